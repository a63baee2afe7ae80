#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"
#include "OrbModule/Inc/LinkManager/LinkScan.h"
#include "OrbModule/Inc/LinkManager/SocketData.h"

#include <algorithm>
#include <fstream>

namespace {

using std::chrono::milliseconds;

/// Raised at start, more than the module has links.
constexpr std::uint32_t InterfaceCount = 3;
constexpr milliseconds EndpointPollInterval{100};
/// The driver's id of a node is twice its rack id.
constexpr std::uint32_t DriverIdShift = 15;

} // namespace

LinkManager::LinkManager(boost::asio::io_service& service, std::uint32_t portCount, iOrbKLVComms& comms,
                         LinkEnvironment environment)
    : mIoService(service),
      mEnvironment(std::move(environment)),
      mPortCount(std::min(portCount, Routing::MAX_ORB_K2_PORTS)),
      mComms(&comms),
      mRouters(mPortCount),
      mRouterIgnoreTimer(service)
{
    AUDIT_LOG(Information, "Starting HubLinkManager\n");
    K2LinkDriver driver(*this);
    BringUpInterfaces(driver, InterfaceCount, "Failed to perform initial interface bring up on ");
    mScanThread = std::thread([this] { Scan(); });
    AUDIT_LOG(Information, "Started HubLinkManager\n");
}

LinkManager::~LinkManager()
{
    {
        K2LinkDriver driver(*this);
        for (const LinkIndex link : FirstLinks(mPortCount)) {
            if (driver.ClearInterfaceAddress(link) != 0) {
                AUDIT_STREAM(Fault,
                             "Failed to perform destructor interface take down on " << LinkPortText(link) << "\n");
            }
        }
    }
    mStop = true;
    mScanThread.join();

    std::map<LinkIndex, std::shared_ptr<SocketData>> connections;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        connections.swap(mConnections);
    }
}

void LinkManager::BringUpInterfaces(K2LinkDriver& driver, std::uint32_t count, const char* failure)
{
    for (const LinkIndex link : FirstLinks(count)) {
        if (driver.InterfaceUp(link) != 0) AUDIT_STREAM(Fault, failure << LinkPortText(link) << "\n");
    }
}

// Identity and local device

void LinkManager::OnLocalHidChanged(Hid hid)
{
    AUDIT_STREAM(Information, "LinkManager::OnLocalHidChanged Hid Now Is " << hid << "\r\n");
    mRouters.SetLocalRack(GetRackId(hid));
    {
        K2LinkDriver driver(*this);
        for (const LinkIndex link : FirstLinks(mPortCount)) {
            if (driver.InterfaceDown(link) != 0) {
                AUDIT_STREAM(Fault, "Failed to perform initial interface bring down on " << LinkPortText(link) << "\n");
            }
            WriteHidToDriver(hid, link);
        }
    }
    mHidKnown = true;
    if (!mWaitingForLocalDevice) BringUpExternalGigEs();
    if (GetRackId(hid) == DEFAULT_RACK_ID) {
        AUDIT_LOG(Information, "System is running as default routers disallowed by default\n");
        RoutersDisallowed();
    }
}

void LinkManager::WriteHidToDriver(Hid hid, LinkIndex link)
{
    std::ofstream file(mEnvironment.interfaceDirectory + K2LinkDriver::GetInterfaceName(link) + "/k2hid",
                       std::ios::trunc);
    file << ((hid & 0xFFFF0000) >> DriverIdShift) << "\n" << std::flush;
    if (!file) AUDIT_STREAM(Fault, "Error setting HID in driver for " << LinkPortText(link) << "\r\n");
}

void LinkManager::OnDeviceChange(Hid hid, UINT8GIGEPORT port, bool, StreamType)
{
    if (!mWaitingForLocalDevice) return;
    AUDIT_STREAM(Information,
                 "LinkManager::OnDeviceChange Device Online " << hid << " Port " << LinkPortText(port) << "\r\n");
    if (port != Routing::ORB_PORT || !IsIoHid(hid)) return;
    mWaitingForLocalDevice = false;
    if (mHidKnown) BringUpExternalGigEs();
}

void LinkManager::BringUpExternalGigEs()
{
    AUDIT_LOG(RouterAudioRoute, "LinkManager::BringUpExternalGigEs\r\n");
    std::this_thread::sleep_for(mEnvironment.externalPortsDelay);
    K2LinkDriver driver(*this);
    BringUpInterfaces(driver, mPortCount, "Failed to perform initial interface bring Up on ");
    if (!mWaitingForLocalDevice && mHidKnown && mRouters.Snapshot().routersAllowed) StartRouterIgnoreTimer();
    mExternalGigEsUp = true;
}

// Routers

void LinkManager::StartRouterIgnoreTimer()
{
    AUDIT_LOG(Information, "Start Router Ignore Timer\r\n");
    // Void if the module follows a new router by now.
    const auto onExpiry = [this, followed = mRouters.CountFollowed()](const boost::system::error_code& error) {
        if (error) {
            AUDIT_STREAM(Fault, "RoutersDisallowed timer error: " << error.message() << "\n");
        } else if (RoutersDisallowed(followed)) {
            RestartMcsLink();
        }
    };
    mRouterIgnoreTimer.Start(milliseconds(mRouterTimeAllowance), onExpiry);
}

void LinkManager::ReceivedRouterTimeAllowanceCmd(const std::shared_ptr<const RouterDetectTimeAllowanceCmd>& command,
                                                 UINT8GIGEPORT, StreamType)
{
    const std::uint32_t allowance = command->GetMilliseconds();
    AUDIT_STREAM(Information, "ReceivedRouterTimeAllowanceCmd ms" << allowance << "\r\n");
    mRouterTimeAllowance = LinkRules::ComputeRouterAllowance(allowance);
    if (mExternalGigEsUp && mRouters.Snapshot().routersAllowed) StartRouterIgnoreTimer();
}

void LinkManager::ReceivedSetRouterSampleRateCmd(const std::shared_ptr<const SetRouterSampleRateCmd>& command,
                                                 UINT8GIGEPORT, StreamType)
{
    const SampleRates::SystemSampleRate rate = command->GetSampleRate();
    AUDIT_STREAM(Information, "LinkManager::ReceivedSetRouterSampleRateCmd " << rate << "\r\n");
    mRouters.SetSampleRate(SampleRates::GetBaseRate(rate));
}

/// Main thread, or that of a link.
/// @param followed the count of routers followed on which the caller relies.
/// @return false, and nothing done, if it no longer holds.
bool LinkManager::RoutersDisallowed(std::optional<std::uint32_t> followed)
{
    if (!mRouters.Disallow(followed)) return false;
    AUDIT_LOG(Information, "Routers Disallowed\r\n");
    MasterHidChanged(GetRackHid());
    return true;
}

/// Main thread. Once routers are disallowed this module is its own master, whatever was queued before.
void LinkManager::SetMasterHid(Hid hid)
{
    if (!mRouters.SetMaster(GetRackId(hid))) return;
    MasterHidChanged(hid);
    // A link may have disallowed them since, and its signal may have come before this one.
    if (!mRouters.Snapshot().routersAllowed) MasterHidChanged(GetRackHid());
}

void LinkManager::RouterLost(UINT8GIGEPORT port)
{
    if (port >= Routing::MAX_ORB_K2_PORTS) return;
    switch (mRouters.Leave(LinkIndex{port})) {
    case RouterState::Loss::Nothing:
        break;
    case RouterState::Loss::LastIgnoredRouter:
        SendNotification(SornMasterRouterNotification::LOST);
        break;
    case RouterState::Loss::Master:
        Post([this] {
            // A router may have come while this was queued.
            if (!mRouters.HasMaster()) SetMasterHid(INVALID_HID);
        });
        break;
    }
}

void LinkManager::SendNotification(unsigned char number)
{
    mComms->SendToOrb(SornMasterRouterNotification::Command(number));
}

void LinkManager::RestartMcsLink()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mComms->SendToOrb(RestartMCSLinkCmd(GetMasterControlAddress(mRouters.Snapshot().localRack)));
}

// Links

void LinkManager::Scan()
{
    AUDIT_LOG(Information, "Scanning...\n");
    LinkScan scan(*this);
    while (!mStop) {
        if (!scan.TakeReport() && !mStop) scan.FollowDriver();
    }
}

std::uint8_t LinkManager::GetAdmaEndpointId(std::uint32_t Port, const std::chrono::seconds& timeout)
{
    if (!AUDIT_ASSERT(Port < mFsiInfo.size())) return 0;
    const std::atomic<std::uint32_t>& id = mFsiInfo[Port];
    const auto start = std::chrono::steady_clock::now();
    while (id == 0 && std::chrono::steady_clock::now() - start < timeout) {
        std::this_thread::sleep_for(EndpointPollInterval);
    }
    const std::uint32_t value = id;
    if (value != 0 && value <= 0xFF) return static_cast<std::uint8_t>(value);
    AUDIT_STREAM(Fault, "Failed to get FSI endpoint id for K2link " << Port << "\n");
    return 0;
}

void LinkManager::SetUdpTimeout(LinkIndex link, milliseconds timeout)
{
    const UINT8GIGEPORT Port = ToNumber(link);
    if (!AUDIT_ASSERT(Port < Routing::MAX_ORB_K2_PORTS)) return;
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mConnections.find(link);
    if (found == mConnections.end()) {
        AUDIT_STREAM(Fault, "No heartbeat timer running on Gige port " << LinkPortText(Port)
                                                                       << ", ignoring timeout settings\n");
        return;
    }
    AUDIT_STREAM(Information,
                 "Setting UDP timeout on Gige port " << LinkPortText(Port) << " to " << timeout.count() << "\n");
    found->second->SetTimeout(timeout);
}

void LinkManager::HandleHeartbeatTimeout(UINT8GIGEPORT GigePort, const LostNeighbour& lost)
{
    if (!AUDIT_ASSERT(GigePort < Routing::MAX_ORB_K2_PORTS)) return;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto found = mConnections.find(LinkIndex{GigePort});
        if (found == mConnections.end()) {
            AUDIT_STREAM(RouterConnectionDebug, "HandleHeartbeatTimeout: No connection on local Gige port "
                                                    << LinkPortText(GigePort) << " to destroy\n");
            return;
        }
        // The port has another link by now.
        if (lost.linkNumber != found->second->GetNumber()) return;
        AUDIT_STREAM(Information, "void LinkManager::HandleHeartbeatTimeout(UINT8GIGEPORT): Heartbeat timeout on "
                                      << LinkPortText(GigePort) << "\n");
        if (LinkRules::IsRouter(lost.type)) RouterLost(GigePort);
    }
    // Now, not by another post: the report of its return may be queued. Not under the lock either: a slot may take it.
    DeviceChanged(GigePort, 0, UNKNOWN_GIGE_PORT, 0, lost.hid, lost.type);
}

void LinkManager::CreateConnection(LinkIndex link, const Endpoint& local, std::uint8_t remotePort,
                                   const Endpoint& remote, std::uint32_t remoteId)
{
    std::shared_ptr<SocketData> connection;
    try {
        connection = std::make_shared<SocketData>(*this, ++mLinksMade, local, link, remoteId, remote, remotePort);
    } catch (const boost::system::system_error& error) {
        AUDIT_STREAM(Fault, "Unable to bind GigePort " << LinkPortText(link) << " to Port " << local << ": Error "
                                                       << error.code().message() << "\n");
        return;
    }
    // Before the first heartbeat, which leaves at once.
    K2LinkDriver::SetSocketTos(link, connection->GetSocket());
    connection->Start();
    // A link that is not inserted is destroyed outside the lock, since its thread may wait for the lock.
    const std::lock_guard<std::mutex> lock(mMutex);
    mConnections.emplace(link, connection);
}

void LinkManager::DestroyConnection(LinkIndex link)
{
    std::shared_ptr<SocketData> connection;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto found = mConnections.find(link);
        if (found != mConnections.end()) {
            connection = std::move(found->second);
            mConnections.erase(found);
        }
    }
    if (!connection) {
        AUDIT_STREAM(RouterConnectionDebug, "Scan: No connection on local " << LinkPortText(link) << " to destroy\n");
        return;
    }
    // Not under the lock, for which the link's thread may be waiting.
    connection->Stop();
    const Hid hid = connection->GetRemoteHid();
    const bool wasRouter = LinkRules::IsRouter(connection->GetLinkType());
    AUDIT_STREAM(RouterConnectionDebug,
                 "Scan: Connection lost on " << LinkPortText(link) << " Was Router ? " << (wasRouter ? 1 : 0) << "\n");
    DeviceChanged(ToNumber(link), 0, UNKNOWN_GIGE_PORT, 0, hid, K2Heartbeat::K2_NO_TYPE);
    if (wasRouter) RouterLost(ToNumber(link));
}

StreamState LinkManager::GetStreamState(LinkIndex link) const
{
    return mComms->GetState(StreamName::OnPort(StreamType::LOCAL_LINK, ToPort(link)));
}

std::uint32_t LinkManager::GetLinkInForce(LinkIndex link)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mConnections.find(link);
    return found == mConnections.end() ? 0 : found->second->GetNumber();
}
