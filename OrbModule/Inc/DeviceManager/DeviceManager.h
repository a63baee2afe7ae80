#pragma once

#include "OrbModule/Inc/DeviceManager/CableChecks.h"
#include "OrbModule/Inc/DeviceManager/CommandRelay.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/NeighbourRules.h"
#include "OrbModule/Inc/DeviceManager/OsRoutes.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/signals2/signal.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class ChainLengthCmd;
class DeviceCheckResultsCmd;
class IoInfoCard;
class IoInfoDevReq;
class IoInfoReq;
class IoSampleRateCapabilities;
class OstrelPingCmd;
class RemoteIoUpdate;
class RemoteRouterUpdate;
class RequestActiveMcsCmd;
class RouterInfoReq;

/// The directory of what stands on the audio network: the device plugged into the links, the devices behind it,
/// and the module's own identity. It brings a neighbour from its first heartbeat to use, keeps the Orb router on
/// port 0 told of everything, and relays I/O commands between the two sides.
///
/// Everything runs on the main service thread but OnMasterHidChanged. Ports are Routing::PortsEnum, addresses are
/// in host order. The signals are fired by post, so that subscribers find the tables at rest. The object outlives
/// the running of the service: closures and timers hold it by reference, and touch nothing if they never run.
class DeviceManager : public iDevices
{
public:
    using DeviceInfoStorage = ::DeviceInfoStorage;
    using StreamType = ::StreamType;
    using RunCommand = OsRoutes::RunCommand;
    /// How long the timers of the directory wait.
    struct Delays
    {
        std::chrono::milliseconds cableCheck{3000};
        std::chrono::milliseconds secondaryActiveRouter{10000};
    };
    /// What the network may make the directory hold.
    struct Limits
    {
        std::size_t remoteDevices = RemoteDevices::MaxRecords;
        DeviceInfoStorage::Limits descriptions{};
        std::size_t cableChecks = 65536;
    };

    /// Asks for the connection to the update service at once.
    DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms);
    DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms, RunCommand run, Delays delays, Limits limits);

    boost::signals2::signal<void(Hid hid, UINT8GIGEPORT port, bool online, StreamType type)> DeviceChange;
    boost::signals2::signal<void(Hid hid)> LocalHidChanged;
    boost::signals2::signal<void(bool connected)> NetworkConnectionChanged;

    // What the patch side asks.
    bool IsDeviceOnline(Hid hid, UINT8GIGEPORT port) const override { return mDevices.IsDeviceOnline(hid, port); }
    bool IsLocalIo(Hid hid) const override { return mDevices.IsLocalIo(hid); }
    bool IsOwnDevice(Hid hid) const override { return mDevices.IsOwnDevice(hid); }
    /// Empty, with a Fault line, also for a slot that no link has.
    std::vector<std::uint32_t> GetInputLinkSlot(Hid hid, AudioPortNumber port) const override;
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid hid, AudioPortNumber port) const override;
    DevicePorts GetDevicePorts(Hid hid, UINT8GIGEPORT port) const override;
    std::uint32_t GetSlaveAddress(Hid hid, UINT8GIGEPORT port) const override;

    /// The local device if it has this identity, else the remote one, else null.
    const DeviceRecord* GetDeviceRecord(Hid hid) const { return mDevices.GetDeviceRecord(hid); }
    bool LinkOnline(Hid hid, Side side) const { return mDevices.LinkOnline(hid, side); }
    /// The router that reported a remote device; INVALID_HID if it is unknown or local.
    Hid GetOwner(Hid hid) const { return mDevices.GetOwner(hid); }
    /// Heartbeat time-out of a local device; nothing for any other.
    std::optional<std::chrono::milliseconds> GetIoTimeout(Hid hid) const;

    // The shell's listings, written to the log.
    /// @param io I/O devices, else routing devices.
    void ShowDevices(bool io) const;
    void ShowPortMap(Hid hid) const;
    void SendPing();

    // Events of the link layer and of the streams.
    /// @param portIndex link index, 0 or 1. A lost link has localIp 0.
    void OnDeviceChanged(UINT8GIGEPORT portIndex, std::uint32_t localIp, UINT8GIGEPORT remoteGigE,
                         std::uint32_t remoteIp, Hid hid, K2Heartbeat::LinkType type);
    void OnKLVStreamChanged(UINT8GIGEPORT port, StreamType type, std::uint32_t address, bool valid);
    void OnIoInternalsChanged(Hid hid, std::uint32_t bitmap);
    /// Any thread.
    void OnMasterHidChanged(Hid hid);

    // The discovery exchange, one handler a command.
    void ProcessIOCmd(std::shared_ptr<const IoInfo> command, UINT8GIGEPORT port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoInfoCard> command, UINT8GIGEPORT port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoInfoK2Mod> command, UINT8GIGEPORT port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const RouterInfo> command, UINT8GIGEPORT port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoSampleRateCapabilities> command, UINT8GIGEPORT port, StreamType type);
    void OnRemoteIoUpdate(std::shared_ptr<const RemoteIoUpdate> command, UINT8GIGEPORT port, StreamType type);
    void OnRemoteRouterUpdate(std::shared_ptr<const RemoteRouterUpdate> command, UINT8GIGEPORT port, StreamType type);
    void OnIoInfoReq(std::shared_ptr<const IoInfoReq> command, UINT8GIGEPORT port, StreamType type);
    void OnIoInfoDevReq(std::shared_ptr<const IoInfoDevReq> command, UINT8GIGEPORT port, StreamType type);
    void OnRouterInfoReq(std::shared_ptr<const RouterInfoReq> command, UINT8GIGEPORT port, StreamType type);
    void OnChainLength(std::shared_ptr<const ChainLengthCmd> command, UINT8GIGEPORT port, StreamType type);
    void OnDeviceCheckResults(std::shared_ptr<const DeviceCheckResultsCmd> command, UINT8GIGEPORT port,
                              StreamType type);

    // The relay.
    /// On to where its target is.
    /// @param port on which the command arrived; @param hid the device that the command names.
    void ForwardCmd(const DeskCommand& command, UINT8GIGEPORT port, Hid hid);
    /// From a link to the Orb router, or from there to the local device.
    void ForwardToLocal(const DeskCommand& command, UINT8GIGEPORT port);
    /// From a link to the Orb router; one that comes from there is dropped.
    void ForwardUp(const DeskCommand& command, UINT8GIGEPORT port);
    void ReceivedPingCmd(std::shared_ptr<const OstrelPingCmd> command, UINT8GIGEPORT port, StreamType type);
    void ReceivedMcsRequestCmd(std::shared_ptr<const RequestActiveMcsCmd> command, UINT8GIGEPORT port, StreamType type);

private:
    using Neighbour = NeighbourRules::Neighbour;
    /// The local stream of a link: used by the local device, or up without one.
    enum class LocalStream { Down, Unused, Used };

    // Links and streams.
    void LinkUp(UINT8GIGEPORT port);
    void LinkDown(UINT8GIGEPORT port, K2Heartbeat::LinkType type);
    void UseLink(UINT8GIGEPORT port);
    void UseOtherLink(UINT8GIGEPORT port);
    void TakeFromLink(UINT8GIGEPORT port);
    void CloseStreams(UINT8GIGEPORT port);
    void EndMixedHid();
    void ReplaceLocal();
    void EndLocal();
    bool IsLocalInUse() const;
    NeighbourRules::Local GetLocal() const;
    void OnLocalLinkChanged(UINT8GIGEPORT port, StreamType type, bool valid);
    void OnLocalLinkUp(UINT8GIGEPORT port);
    void OnLocalLinkGone(UINT8GIGEPORT port, StreamType type);
    void LocalRouterGone(UINT8GIGEPORT port, StreamType type);
    void LocalIoGone();
    void OnSlaveLinkChanged(UINT8GIGEPORT port, std::uint32_t address, bool valid);
    void RequestPendingDescriptions(UINT8GIGEPORT port, std::uint32_t address);
    void OnUpdateLinkChanged(bool valid);
    bool HasLiveStream(UINT8GIGEPORT port);
    /// The first request on a new stream: for the software check, or for the description.
    void RequestInfo(UINT8GIGEPORT port);
    void RequestCheck(Side side, std::uint8_t kind, std::uint8_t method, Hid hid);
    /// The description request of the local box: the extended form for those that know it.
    void SendIoInfoReq(UINT8GIGEPORT port);

    // What both the events and the exchange report.
    void DeviceStateChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType type);
    void ReportRemoteGone(K2Heartbeat::LinkType type, Hid hid);
    void PostNetworkConnection(bool connected);
    void SendToOrb(const DeskCommand& command);

    // The discovery exchange.
    void BuildPortMaps(const IoInfo& command);
    void BuildPortMaps(const DeviceInfoStorage::CommandMap& cards);
    void BuildPortMaps(const IoInfoK2Mod& command);
    /// False, with a Fault line, for a command of a stream that matches no port.
    static bool IsFromPort(UINT8GIGEPORT port);
    void OrbRouterInfo(const RouterInfo& command);
    void LocalRouterInfo(const RouterInfo& command, UINT8GIGEPORT port, StreamType type);
    void SendSelfInfo(UINT8GIGEPORT port);
    void SendRemoteIoUpdate(RemoteDeviceType type, Hid hid);
    void RemoteIoGone(const RemoteIoUpdate& command, UINT8GIGEPORT port, StreamType type);
    void RemoteIoAlive(const RemoteIoUpdate& command, UINT8GIGEPORT port, StreamType type);
    void RemoteRouterGone(const RemoteRouterUpdate& command, UINT8GIGEPORT port, StreamType type);
    void RemoteRouterAlive(const RemoteRouterUpdate& command, UINT8GIGEPORT port, StreamType type);
    /// False if the directory is full.
    bool EmplaceOrbInternalIO(const RemoteIoUpdate& command);
    void EmplaceOrbRouter(const RouterInfo& command);
    static void MarkInternal(DeviceRecord& record);
    void SendDescription(const DeviceInfoStorage::Device& device, UINT8GIGEPORT port, StreamType type);
    void RequestGPIState(Hid hid);
    void SendToConnectedRoutingDevice(const DeskCommand& command);
    void DoActiveAudio(Side side);

    boost::asio::io_service& mIoService;
    boost::asio::steady_timer mActiveTimer;
    std::atomic<std::uint32_t> mMasterHid{MakeLinkHid(INVALID_HID)};
    iOrbKLVComms* mComms;
    DeviceDirectory mDevices;
    CableChecks mCableChecks;
    OsRoutes mRoutes;
    CommandRelay mRelay;
    std::array<LocalStream, Routing::PORT_COUNT> mLocalStreams{};
    Delays mDelays;
};
