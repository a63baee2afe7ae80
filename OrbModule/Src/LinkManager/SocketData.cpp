#include "OrbModule/Inc/LinkManager/SocketData.h"

#include "Audit/Audit.h"

#include <ios>

using K2Heartbeat::LinkState;
using std::chrono::duration_cast;
using std::chrono::milliseconds;

namespace {

/// The most posted events of a link that may wait for the main thread. A normal neighbour causes a few a second.
constexpr std::uint32_t MostPosted = 1000;

} // namespace

LinkManager::SocketData::SocketData(LinkManager& manager, std::uint32_t number, const Endpoint& local, LinkIndex link,
                                    std::uint32_t remoteId, const Endpoint& remote, std::uint8_t remotePort)
    : mSocket(mService, local.protocol()),
      mLocalEndpoint(local),
      mGigePort(link),
      mRemoteHid(remoteId),
      mRemoteEndpoint(remote),
      mRemotePort(remotePort),
      mManager(manager),
      mNumber(number),
      mTimeoutTimer(mService),
      mSendTimer(mService)
{
    mSocket.bind(local);
}

void LinkManager::SocketData::Start()
{
    mLastSend = Clock::now();
    mLastTimerStart = mLastSend;
    StartReceive();
    StartSendTimer(milliseconds(0));
    mThread = std::thread([this] { mService.run(); });
}

void LinkManager::SocketData::Stop()
{
    mService.stop();
    if (mThread.joinable()) mThread.join();
}

void LinkManager::SocketData::SetTimeout(milliseconds timeout)
{
    mService.post([this, timeout] {
        CancelTimeoutTimer();
        mTimeout = timeout;
        StartTimeoutTimer();
    });
}

/// To the main thread. The posted closure holds only the manager and values, since it can outlive this link.
template <class Action>
void LinkManager::SocketData::Post(Action action)
{
    ++*mPosted;
    mManager.Post([manager = &mManager, link = mGigePort, number = mNumber, posted = mPosted, action] {
        --*posted;
        if (manager->GetLinkInForce(link) == number) action(*manager);
    });
}

// Receive

void LinkManager::SocketData::StartReceive()
{
    if (mReceivePending) return;
    mReceivePending = true;
    mSocket.async_receive_from(
        boost::asio::buffer(mReceiveBuffer), mSender,
        [this](const boost::system::error_code& error, std::size_t size) { OnReceive(error, size); });
}

void LinkManager::SocketData::OnReceive(const boost::system::error_code& error, std::size_t size)
{
    mReceivePending = false;
    if (error == boost::asio::error::operation_aborted) return;
    if (error) {
        AUDIT_STREAM(Fault, "Receiving HB timer error: " << error.message() << "\n");
        return;
    }
    // The main thread cannot follow such a flood, so most of it is dropped here.
    if (*mPosted > MostPosted) {
        StartReceive();
        return;
    }
    if (size != LinkState::SIZE) {
        AUDIT_STREAM(Fault, "Received malformed HB on " << LinkPortText(mGigePort) << " (received " << size
                                                        << " bytes instead of 12)\n");
        return;
    }
    OnHeartbeat(LinkState(mReceiveBuffer.data()));
}

void LinkManager::SocketData::OnHeartbeat(const LinkState& packet)
{
    CancelTimeoutTimer();
    AUDIT_STREAM(RouterConnectionDebugVerbose,
                 "Received HB on " << LinkPortText(mGigePort) << " from " << mSender << "\n");
    mLinkType = packet.GetType();

    if (CheckLateness(packet)) {
        AUDIT_STREAM(Fault, "* Received a heartbeat on "
                                << LinkPortText(mGigePort)
                                << "but the connected stream is about to be closed: ignore.\n");
    } else if (!TakeHeartbeat(packet)) {
        return;
    }
    StartReceive();
    StartTimeoutTimer();
}

bool LinkManager::SocketData::CheckLateness(const LinkState& packet)
{
    StreamState stream = StreamState::None;
    if (K2Heartbeat::IsIoDevice(packet.GetType())) stream = mManager.GetStreamState(mGigePort);
    const auto elapsed = duration_cast<milliseconds>(Clock::now() - mLastTimerStart);
    const LinkRules::Lateness late = LinkRules::DecideLateness(elapsed, mTimeout, stream);
    if (late.report) {
        AUDIT_STREAM(Fault, "A heartbeat receive delay of " << elapsed.count() << "/" << mTimeout.count()
                                                            << " ms has occurred on " << LinkPortText(mGigePort)
                                                            << "\n");
    }
    if (late.forceTimeout) {
        AUDIT_LOG(Fault, "-> Forcing heartbeat timeout.\n");
        HandleHeartbeatTimeout();
    }
    return late.ignoreHeartbeat;
}

/// False if the neighbour is ignored from now on.
bool LinkManager::SocketData::TakeHeartbeat(const LinkState& packet)
{
    using Neighbour = LinkRules::HeartbeatDecision::Neighbour;
    const K2Heartbeat::LinkVariant variant = packet.GetVariant();
    const LinkRules::HeartbeatDecision decision = mManager.mRouters.Follow(mGigePort, packet, mLastVariant);

    if (decision.baseRateConflict) {
        AUDIT_STREAM(Information, "Network at incompatible base rate... Our Rate "
                                      << mManager.GetSampleRate() << " Network Rate "
                                      << K2Heartbeat::GetVariantRate(variant) << "\r\n");
        mManager.SendNotification(SornMasterRouterNotification::SAMPLE_RATE);
        mManager.RoutersDisallowed();
        mManager.RestartMcsLink();
    }
    switch (decision.neighbour) {
    case Neighbour::IgnoredOrb:
        AUDIT_LOG(Fault, "ORB detected on downstream ports IGNORING\r\n");
        return false;
    case Neighbour::IgnoredRouter:
        if (decision.notification) mManager.SendNotification(*decision.notification);
        AUDIT_LOG(Fault, "Router detected on downstream ports IGNORING.\n");
        mSendTimer.Cancel();
        return false;
    case Neighbour::Known:
        if (decision.internalsChanged) {
            Post([hid = packet.GetHid(), variant](LinkManager& manager) { manager.IoInternalsChanged(hid, variant); });
        }
        break;
    case Neighbour::New:
        if (decision.followRouter) {
            AUDIT_STREAM(Information, "Router detected on downstream ports ACCEPTING Variant is "
                                          << std::hex << variant << ":" << K2Heartbeat::GetVariantNumber(variant) << ":"
                                          << K2Heartbeat::GetVariantRack(variant) << " Sample Rate "
                                          << K2Heartbeat::GetVariantRate(variant) << "\r\n");
            AUDIT_LOG(Information, "** [%d] %04lx\n", static_cast<int>(mGigePort),
                      static_cast<unsigned long>(K2Heartbeat::GetVariantRack(variant)));
        }
        break;
    }
    if (decision.followRouter) {
        Post([variant](LinkManager& manager) {
            manager.SetMasterHid(MakeLinkHid(K2Heartbeat::GetVariantRack(variant) << 16));
        });
    }
    if (decision.neighbour == Neighbour::New) PostNewDevice(packet);

    mLastVariant = variant;
    Post([port = ToNumber(mGigePort)](LinkManager& manager) { manager.HeartbeatReceived(port); });
    return true;
}

void LinkManager::SocketData::PostNewDevice(const LinkState& packet)
{
    AUDIT_STREAM(Information, "LinkManager::Receive New device Hid 0x" << std::hex << std::uint32_t{packet.GetHid()}
                                                                       << " Port " << LinkPortText(mGigePort)
                                                                       << "\r\n");
    mRemoteHid = packet.GetHid();
    Post([packet, port = ToNumber(mGigePort), remotePort = mRemotePort,
          localIp = mLocalEndpoint.address().to_v4().to_uint(),
          remoteIp = mRemoteEndpoint.address().to_v4().to_uint()](LinkManager& manager) {
        manager.DeviceChanged(port, localIp, remotePort, remoteIp, packet.GetHid(), packet.GetType());
        manager.IoInternalsChanged(packet.GetHid(), packet.GetVariant());
    });
}

// Time-out

void LinkManager::SocketData::StartTimeoutTimer()
{
    if (mTimeout.count() == 0) return;
    mLastTimerStart = Clock::now();
    mTimeoutTimer.Start(mTimeout, [this](const boost::system::error_code& error) {
        if (error) {
            AUDIT_STREAM(Fault, "HB timeout timer error: " << error.message() << "\n");
        } else {
            HandleHeartbeatTimeout();
        }
    });
}

void LinkManager::SocketData::CancelTimeoutTimer()
{
    if (mTimeoutTimer.Cancel()) {
        AUDIT_STREAM(Fault, "Failed to cancel receive HB timer on port " << LinkPortText(mGigePort) << "\n");
    }
}

void LinkManager::SocketData::HandleHeartbeatTimeout()
{
    mLastVariant.reset();
    AUDIT_LOG(CommsDebug, "void LinkManager::SocketData::HandleHeartbeatTimeout()");
    StartReceive();
    const LostNeighbour lost{mNumber, GetRemoteHid(), GetLinkType()};
    mManager.Post(
        [manager = &mManager, port = ToNumber(mGigePort), lost] { manager->HandleHeartbeatTimeout(port, lost); });
}

// Send

void LinkManager::SocketData::StartSendTimer(milliseconds wait)
{
    mSendTimer.Start(wait, [this](const boost::system::error_code& error) { OnSendTimer(error); });
}

void LinkManager::SocketData::OnSendTimer(const boost::system::error_code& error)
{
    if (error) {
        AUDIT_STREAM(Fault, "Sending HB timer error: " << error.message() << "\n");
        return;
    }
    try {
        Send();
    } catch (const boost::system::system_error& failure) {
        AUDIT_STREAM(Fault, "Failed to send HB: " << failure.code().message() << "\n");
        return;
    }
    mLastSend = Clock::now();
    StartSendTimer(mManager.GetEnvironment().heartbeatPeriod);
}

void LinkManager::SocketData::Send()
{
    const LinkState packet = mManager.mRouters.MakeHeartbeat(mGigePort);
    const std::size_t sent = mSocket.send_to(boost::asio::buffer(packet.GetBytes()), mRemoteEndpoint);
    if (sent != LinkState::SIZE) {
        AUDIT_STREAM(Fault, "Failed to send HB correctly (sent " << sent << " bytes instead of 12)\n");
        return;
    }
    if (const auto delay = LinkRules::GetSendDelay(duration_cast<milliseconds>(Clock::now() - mLastSend))) {
        AUDIT_STREAM(Fault, "A heartbeat send delay of " << delay->count() << "ms has occurred on "
                                                         << LinkPortText(mGigePort) << "\n");
    }
    AUDIT_STREAM(RouterConnectionDebugVerbose,
                 "Sent HB on " << LinkPortText(mGigePort) << " to " << mRemoteEndpoint << "\n");
}
