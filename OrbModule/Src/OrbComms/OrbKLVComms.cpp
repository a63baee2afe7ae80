#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"

#include "Audit/Audit.h"
#include "Common/KLV/DeskCommand.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"
#include "Timers/Source/EventTimerManager.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int Backlog = 20;
constexpr int RetryForEver = -1;
/// A router may report others without end, and each is retried for ever.
constexpr std::size_t MostReported = 256;
/// On one port. A link has one neighbour; the others are those that were there before and never answered.
constexpr std::size_t MostOfNeighbours = 16;
/// However often a timer is due, the passes leave the processor to others in between.
constexpr long ShortestWaitUs = 1000;

} // namespace

OrbKLVComms::OrbKLVComms(boost::asio::io_service& service, OrbCommandProcessor& processor, iStreamContainer& streams)
    : OrbKLVComms(service, processor, streams, Ports())
{}

OrbKLVComms::OrbKLVComms(boost::asio::io_service& service, OrbCommandProcessor& processor, iStreamContainer& streams,
                         const Ports& ports)
    : mService(service),
      mHandler(mMutex, *this, processor),
      KLVStreamChanged(std::make_shared<StreamSignal>()),
      mStreams(streams),
      mPorts(ports)
{
    AUDIT_LOG(Information, "Starting OrbRouterKLVComms\n");
    mHandler.RegStdLog(&mLog);
    if (const auto adjacent = Listen(mPorts.adjacentRouter, "ADJACENT_ROUTER_KLV")) {
        mPorts.adjacentRouter = *adjacent;
        mPorts.masterRouter = Listen(mPorts.masterRouter, "MASTER_ROUTER_KLV").value_or(mPorts.masterRouter);
    }
    processor.GetPostedWork().SetDrained([this] { mHandler.Wake(); });
    mThread = std::thread([this] { Run(); });
}

OrbKLVComms::~OrbKLVComms()
{
    mRunning = false;
    mHandler.Wake();
    mThread.join();
    mHandler.GetProcessor().GetPostedWork().SetDrained({});
    // The sockets report their end to the log, the directory and the signal, so they go before those do.
    const HandlerMutex::Guard guard(mMutex);
    mHandler.CloseAll();
}

std::optional<std::uint16_t> OrbKLVComms::Listen(std::uint16_t port, const char* name)
{
    auto listener = std::make_unique<ListenSocket<OrbKLVStream, OrbKLVSocketHandler>>(mHandler);
    if (listener->Bind(port, Backlog) != 0) {
        AUDIT_LOG(Fault, "OrbRouterKLVComms FAILED to bind %s listener\r\n", name);
        return std::nullopt;
    }
    const std::uint16_t bound = listener->GetPort();
    mHandler.Add(mHandler.Own(std::move(listener)));
    return bound;
}

void OrbKLVComms::Run()
{
    AUDIT_LOG(Information, "OrbKLVComms::Run\r\n");
    EventTimerManager& timers = EventTimerManager::Instance();
    while (mRunning) {
        const HandlerMutex::Guard guard(mMutex);
        const auto [seconds, microseconds] = timers.GetTimeToNext();
        if (seconds >= 1) {
            mHandler.Select(1, 0);
        } else {
            mHandler.Select(0, seconds < 0 ? ShortestWaitUs : std::max<long>(microseconds, ShortestWaitUs));
        }
        timers.Service();
    }
}

void OrbKLVComms::Open(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort, bool isReported)
{
    const HandlerMutex::Guard guard(mMutex);
    AUDIT_STREAM(CommsDebug, "Connecting to " << AddressText(address) << " Port " << tcpPort << "\r\n");
    const auto underWay = std::find_if(mConnecting.begin(), mConnecting.end(), [&](const Connecting& one) {
        return !one.stream->CloseAndDelete() && one.stream->GetPort() == port &&
               one.stream->IsAimedAt(address, tcpPort);
    });
    if (underWay != mConnecting.end()) {
        // A caller that asks again has reason to expect the peer now.
        underWay->stream->SetRetryClientConnect();
        return;
    }
    if (!MakeRoom(port, isReported)) {
        AUDIT_STREAM(Fault, "OrbKLVComms::Connect " << AddressText(address) << " refused, " << MostReported
                                                    << " streams are being opened\r\n");
        return;
    }
    OrbKLVStream* const stream = mHandler.Own(std::make_unique<OrbKLVStream>(mHandler));
    stream->SetPort(port);
    stream->SetConnectionRetry(RetryForEver);
    stream->SetReconnect(true);
    stream->AimAt(address, tcpPort);
    mConnecting.push_back({stream, isReported});
    stream->TcpConnect(mHandler, AddressText(address), tcpPort);
}

/// Reported peers are refused when there are too many. A neighbour is not: the oldest of its port gives way.
bool OrbKLVComms::MakeRoom(UINT8GIGEPORT port, bool isReported)
{
    const auto counts = [&](const Connecting& one) {
        return one.isReported == isReported && !one.stream->CloseAndDelete() &&
               (isReported || one.stream->GetPort() == port);
    };
    const auto pending = static_cast<std::size_t>(std::count_if(mConnecting.begin(), mConnecting.end(), counts));
    if (isReported) return pending < MostReported;
    if (pending >= MostOfNeighbours) {
        Shutdown(*std::find_if(mConnecting.begin(), mConnecting.end(), counts)->stream);
    }
    return true;
}

/// False if the stream was not being opened.
bool OrbKLVComms::EndConnecting(const OrbKLVStream& stream)
{
    const auto entry = std::find_if(mConnecting.begin(), mConnecting.end(),
                                    [&stream](const Connecting& one) { return one.stream == &stream; });
    if (entry == mConnecting.end()) return false;
    mConnecting.erase(entry);
    return true;
}

void OrbKLVComms::Shutdown(OrbKLVStream& stream)
{
    stream.SetFlushBeforeClose(false);
    stream.ShutdownStreamViaHandler();
}

void OrbKLVComms::Disconnect(UINT8GIGEPORT port)
{
    const HandlerMutex::Guard guard(mMutex);
    AUDIT_STREAM(CommsDebug, "OrbKLVComms::Disconnect " << PortText(port) << "\r\n");
    for (const StreamType type : {LOCAL_LINK, MASTER_LINK, SLAVE_LINK}) {
        if (OrbKLVStream* const stream = mStreams.GetStreamByPortAndType(port, type)) {
            Shutdown(*stream);
        } else {
            AUDIT_STREAM(CommsDebug, "OrbKLVComms::Disconnect NO Link " << type << "\r\n");
        }
    }
}

OrbKLVStream* OrbKLVComms::Find(const StreamName& name)
{
    return name.isByAddress ? mStreams.GetStreamByAddressAndType(name.address, name.type)
                            : mStreams.GetStreamByPortAndType(name.port, name.type);
}

void OrbKLVComms::Disconnect(const StreamName& name)
{
    const HandlerMutex::Guard guard(mMutex);
    AUDIT_STREAM(CommsDebug,
                 "OrbKLVComms::Disconnect " << AddressText(name.address) << " Type " << name.type << "\r\n");
    if (OrbKLVStream* const stream = Find(name)) Shutdown(*stream);
}

StreamState OrbKLVComms::GetState(const StreamName& name)
{
    const HandlerMutex::Guard guard(mMutex);
    const OrbKLVStream* const stream = Find(name);
    if (!stream) return StreamState::None;
    if (!stream->WasShutdownLocally()) return StreamState::Open;
    AUDIT_STREAM(CommsDebug,
                 "virtual bool OrbKLVComms::DisconnectPending(UINT8GIGEPORT, iOrbKLVComms::StreamType, bool&)"
                     << ": " << PortText(name.port) << " " << name.type << " is about to close.\n");
    return StreamState::Closing;
}

bool OrbKLVComms::Send(const StreamName& name, const DeskCommand& command)
{
    const HandlerMutex::Guard guard(mMutex);
    AUDIT_STREAM(CmdDebug, "OrbKLVComms::SendCmd Port " << PortText(name.port) << " Cmd "
                                                        << CommandIdToText(command.GetCommandId()) << " Stream Type "
                                                        << name.type << " Remote Address " << AddressText(name.address)
                                                        << "\r\n");
    OrbKLVStream* const stream = Find(name);
    if (!stream) {
        AUDIT_STREAM(Fault, "Stream " << name.type << " Port " << PortText(name.port) << " Not Found\r\n");
        return false;
    }
    if (!stream->IsStreamConnected()) {
        AUDIT_STREAM(Fault, "Attempt to write to unconnected stream " << static_cast<unsigned>(name.type) << " Port "
                                                                      << PortText(name.port) << "\r\n");
        return false;
    }
    command.WriteTo(*stream);
    return true;
}

void OrbKLVComms::AddKLVStream(OrbKLVStream& stream)
{
    if (EndConnecting(stream)) TakePlaceOfEarlier(stream);
    AUDIT_STREAM(CommsDebug, "OrbKLVComms::AddKLVStream Remote Address "
                                 << AddressText(stream.GetRemoteIp()) << " Port " << stream.GetRemotePort() << "\r\n");
    const UINT8GIGEPORT port = stream.GetPort() < UNKNOWN_GIGE_PORT ? stream.GetPort() : FindPort(stream);
    AUDIT_STREAM(CommsDebug, "OrbKLVComms::AddKLVStream Remote Port " << stream.GetRemotePort() << " Local Port "
                                                                      << stream.GetLocalPort() << "\r\n");
    const StreamType type = FindType(stream);
    AUDIT_STREAM(CommsDebug, "OrbKLVComms::AddKLVStream Type " << type << "\r\n");
    stream.SetStreamType(type);
    stream.SetPort(port);
    mStreams.Store(stream);
    PostStreamChanged(stream, true);
}

/// A peer to which this side connects once more, as to the Orb router after each check, keeps one stream of ours: the
/// others would stay open, since nothing finds them any more.
void OrbKLVComms::TakePlaceOfEarlier(OrbKLVStream& stream)
{
    for (OrbKLVStream* const other : mOpened) {
        if (other->HasTargetOf(stream)) Shutdown(*other);
    }
    mOpened.insert(&stream);
}

void OrbKLVComms::RemoveKLVStream(OrbKLVStream& stream)
{
    if (EndConnecting(stream) && mRunning) {
        AUDIT_STREAM(Fault, "OrbKLVComms::Connect " << AddressText(stream.GetTargetAddress()) << " Port "
                                                    << stream.GetTargetPort() << " given up before it connected\r\n");
    }
    mOpened.erase(&stream);
    AUDIT_STREAM(CommsDebug,
                 "OrbKLVComms::RemoveKLVStream Remote Address " << AddressText(stream.GetRemoteIp()) << "\r\n");
    mStreams.Remove(stream);
    PostStreamChanged(stream, false);
}

void OrbKLVComms::PostStreamChanged(const OrbKLVStream& stream, bool valid)
{
    PostedWork& posted = mHandler.GetProcessor().GetPostedWork();
    posted.Add(PostedWork::HandlerSize);
    // Streams that end with the comms find no signal any more.
    mService.post([&posted, weakSignal = std::weak_ptr<StreamSignal>(KLVStreamChanged), port = stream.GetPort(),
                   type = stream.GetStreamType(), address = stream.GetRemoteIp(), valid] {
        posted.TakeOff(PostedWork::HandlerSize);
        const auto signal = weakSignal.lock();
        if (!signal) return;
        try {
            (*signal)(port, type, address, valid);
        } catch (const std::exception& error) {
            AUDIT_LOG(Fault, "KLVStreamChanged: %s\r\n", error.what());
        }
    });
}

OrbKLVComms::StreamType OrbKLVComms::FindType(const OrbKLVStream& stream) const
{
    if (stream.GetRemotePort() == mPorts.updateService) return UPDATE_LINK;
    if (stream.GetRemotePort() == mPorts.masterRouter) return SLAVE_LINK;
    if (stream.GetLocalPort() == mPorts.masterRouter) return MASTER_LINK;
    return LOCAL_LINK;
}

UINT8GIGEPORT OrbKLVComms::FindPort(const OrbKLVStream& stream) const
{
    sockaddr_in local{};
    socklen_t size = sizeof local;
    if (getsockname(stream.GetSocket(), reinterpret_cast<sockaddr*>(&local), &size) == -1) {
        AUDIT_LOG(Fault, "KLVTCPStream FAILED TO GET LOCAL PORT (Errno=%d:%s)\r\n", errno, std::strerror(errno));
        return UNKNOWN_GIGE_PORT;
    }
    const std::uint32_t localAddress = ntohl(local.sin_addr.s_addr);
    for (const UINT8GIGEPORT port : {Routing::ORB_PORT, Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        const std::uint32_t portAddress = GetPortAddress(port);
        AUDIT_STREAM(CommsDebug, "AddKLVStream Finding Port " << PortText(port) << " Sock Address "
                                                              << AddressText(localAddress) << " Port Address "
                                                              << AddressText(portAddress) << "\r\n");
        const bool found =
            port == Routing::ORB_PORT ? portAddress == localAddress : (stream.GetRemoteIp() ^ portAddress) < 256;
        if (found) {
            AUDIT_STREAM(CommsDebug, "Found " << PortText(port) << "\r\n");
            return port;
        }
    }
    return UNKNOWN_GIGE_PORT;
}

std::uint32_t OrbKLVComms::GetPortAddress(UINT8GIGEPORT port) const
{
    return port < mPorts.interfaces.size() ? ReadInterfaceAddress(mPorts.interfaces[port]) : 0;
}

std::uint32_t OrbKLVComms::ReadInterfaceAddress(const std::string& name)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd == -1) return 0;
    ifreq request{};
    name.copy(request.ifr_name, IFNAMSIZ - 1);
    request.ifr_addr.sa_family = AF_INET;
    const bool found = ioctl(fd, SIOCGIFADDR, &request) == 0;
    ::close(fd);
    if (!found) return 0;
    sockaddr_in address{};
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    return ntohl(address.sin_addr.s_addr);
}
