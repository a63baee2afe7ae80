#pragma once

#include "K2Common/K2Heartbeat.h"
#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"
#include "OrbModule/Inc/LinkManager/LinkEnvironment.h"
#include "OrbModule/Inc/LinkManager/RestartableTimer.h"
#include "OrbModule/Inc/LinkManager/RouterState.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <array>
#include <atomic>
#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/signals2/signal.hpp>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

class RouterDetectTimeAllowanceCmd;
class SetRouterSampleRateCmd;

/// Owns the two external link ports: decides when they come up, holds one SocketData for each live link, and keeps
/// the rules that make this module a downstream node of a master router, or its own master.
///
/// Operations run on the main thread unless they say otherwise, and so do the slots of all signals but
/// MasterHidChanged. A link's thread reaches the rest of the system by posts that hold this object and values; so the
/// main service must not run any more when this object is destroyed.
///
/// mMutex guards mConnections. It is held while the master control is asked for a restart, and over RouterLost and its
/// notification when a neighbour's heartbeats stay away.
class LinkManager
{
public:
    class LinkScan;
    class SocketData;
    using Endpoint = boost::asio::ip::udp::endpoint;
    using LinkType = K2Heartbeat::LinkState::LinkType;

    /// Raises the interfaces and starts the scan. Both objects outlive this one.
    LinkManager(boost::asio::io_service& service, std::uint32_t portCount, iOrbKLVComms& comms,
                LinkEnvironment environment = {});
    ~LinkManager();

    /// A new neighbour: the number of its link, its addresses in host order. A lost one: local IP 0, remote port 0xFF,
    /// remote IP 0, and type 0 if the driver reported it.
    boost::signals2::signal<void(UINT8GIGEPORT port, std::uint32_t localIp, UINT8GIGEPORT remotePort,
                                 std::uint32_t remoteIp, Hid hid, LinkType type)>
        DeviceChanged;
    boost::signals2::signal<void(Hid hid, std::uint32_t variant)> IoInternalsChanged;
    /// Each heartbeat of a neighbour that is not ignored. Kept for a subscriber that watches the links.
    boost::signals2::signal<void(UINT8GIGEPORT port)> HeartbeatReceived;
    /// MakeLinkHid of the master's rack; this rack with device field 0 once routers are disallowed; INVALID_HID when
    /// the master is lost. It fires on a link's thread if that link brings the change about, so that what must not wait
    /// for the main thread does not. A slot that belongs there dispatches to the main service.
    boost::signals2::signal<void(Hid hid)> MasterHidChanged;

    /// This module's identity. The link interfaces go down.
    void OnLocalHidChanged(Hid hid);
    /// The first I/O device on the internal port lets the link interfaces come up (for which this sleeps 2 s) as soon
    /// as the HID is known.
    void OnDeviceChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType type);
    void ReceivedRouterTimeAllowanceCmd(const std::shared_ptr<const RouterDetectTimeAllowanceCmd>& command,
                                        UINT8GIGEPORT port, StreamType type);
    void ReceivedSetRouterSampleRateCmd(const std::shared_ptr<const SetRouterSampleRateCmd>& command,
                                        UINT8GIGEPORT port, StreamType type);
    /// From now on the neighbour of this link is lost when its heartbeats stay away for that time.
    void SetUdpTimeout(LinkIndex link, std::chrono::milliseconds timeout);
    /// ADMA endpoint id of a port as the driver gave it; waits for it on the caller's thread, any, at most that long.
    /// @return 0 if it is still unknown.
    std::uint8_t GetAdmaEndpointId(std::uint32_t Port, const std::chrono::seconds& timeout);
    /// The neighbour of a link as it was when its heartbeats stayed away.
    struct LostNeighbour
    {
        std::uint32_t linkNumber;
        Hid hid;
        LinkType type;
    };
    /// A neighbour's heartbeats stay away. Its connection stays.
    void HandleHeartbeatTimeout(UINT8GIGEPORT GigePort, const LostNeighbour& lost);
    void RouterLost(UINT8GIGEPORT port);

    /// Any thread.
    SampleRates::SystemSampleRate GetSampleRate() const { return mRouters.Snapshot().rate; }
    std::uint32_t GetPortCount() const { return mPortCount; }
    const LinkEnvironment& GetEnvironment() const { return mEnvironment; }
    /// Tells the console on the local port what became of the master router. Any thread.
    void SendNotification(unsigned char number);
    /// Asks the master control of this rack to restart its link. Any thread that does not hold mMutex.
    void RestartMcsLink();

    /// The loop of the scan thread: driver reports become connections.
    void Scan();
    /// Opens the connection of a link whose interface has its address. If it still has one, that one is kept.
    void CreateConnection(LinkIndex link, const Endpoint& local, std::uint8_t remotePort, const Endpoint& remote,
                          std::uint32_t remoteId);
    void DestroyConnection(LinkIndex link);

private:
    void BringUpInterfaces(K2LinkDriver& driver, std::uint32_t count, const char* failure);
    void BringUpExternalGigEs();
    void WriteHidToDriver(Hid hid, LinkIndex link);
    void StartRouterIgnoreTimer();
    Hid GetRackHid() const { return mRouters.Snapshot().localRack << 16; }
    void SetMasterHid(Hid hid);

    // All that a link asks of its manager, besides mRouters, SendNotification and RestartMcsLink. On its thread.
    bool RoutersDisallowed(std::optional<std::uint32_t> followed = std::nullopt);
    /// Of the stream to the neighbour of a link.
    StreamState GetStreamState(LinkIndex link) const;
    template <class Action>
    void Post(Action action)
    {
        mIoService.post(std::move(action));
    }
    // And in what it posts.
    /// Number of the connection that a link has, 0 if it has none. What a link posted before it went is void.
    std::uint32_t GetLinkInForce(LinkIndex link);

    /// ADMA endpoint id of each link as the driver first gave it, 0 if unknown.
    std::array<std::atomic<std::uint32_t>, Routing::MAX_ORB_K2_PORTS> mFsiInfo{};
    boost::asio::io_service& mIoService;
    const LinkEnvironment mEnvironment;
    const std::uint32_t mPortCount;
    iOrbKLVComms* const mComms;
    RouterState mRouters;
    std::map<LinkIndex, std::shared_ptr<SocketData>> mConnections;
    std::thread mScanThread;
    std::atomic<bool> mStop{false};
    std::atomic<bool> mHidKnown{false};
    std::mutex mMutex;
    RestartableTimer mRouterIgnoreTimer;
    bool mWaitingForLocalDevice = true;
    std::uint32_t mRouterTimeAllowance = 0;
    std::atomic<bool> mExternalGigEsUp{false};
    std::uint32_t mLinksMade{};
};
