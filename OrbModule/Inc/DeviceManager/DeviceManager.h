#pragma once

#include "OrbModule/Inc/DeviceManager/ActiveRouterTimer.h"
#include "OrbModule/Inc/DeviceManager/CableChecks.h"
#include "OrbModule/Inc/DeviceManager/CommandRelay.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/DeviceListings.h"
#include "OrbModule/Inc/DeviceManager/DeviceSignals.h"
#include "OrbModule/Inc/DeviceManager/LinkedDevices.h"
#include "OrbModule/Inc/DeviceManager/LocalDiscovery.h"
#include "OrbModule/Inc/DeviceManager/OrbReports.h"
#include "OrbModule/Inc/DeviceManager/OsRoutes.h"
#include "OrbModule/Inc/DeviceManager/RemoteDiscovery.h"
#include "OrbModule/Inc/DeviceManager/SoftwareChecks.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <boost/asio/io_service.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

class ChainLengthCmd;
class IoInfoReq;
class RequestActiveMcsCmd;
class RouterInfoReq;

/// The operations of the device directory. It brings a neighbour from its first heartbeat to use, keeps the Orb router
/// on port 0 informed of everything, and relays I/O commands between the two sides. The work is done by its members,
/// each with one subject; they share the DeviceDirectory.
///
/// Everything runs on the main service thread but OnMasterHidChanged. Addresses are in host order. The object outlives
/// the running of the service: closures and timers hold it by reference, and touch nothing if they never run.
class DeviceManager : public iDevices, public DeviceSignals
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

    // What the patch side asks.
    bool IsDeviceOnline(Hid hid, Routing::PortsEnum port) const override { return mDevices.IsDeviceOnline(hid, port); }
    bool IsLocalIo(Hid hid) const override { return mDevices.IsLocalIo(hid); }
    bool IsOwnDevice(Hid hid) const override { return mDevices.IsOwnDevice(hid); }
    /// Empty, with a Fault line, also for a slot that no link has.
    std::vector<std::uint32_t> GetInputLinkSlot(Hid hid, AudioPortNumber port) const override
    {
        return mDevices.GetInputLinkSlot(hid, port);
    }
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid hid, AudioPortNumber port) const override
    {
        return mDevices.GetOutputLinkSlot(hid, port);
    }
    DevicePorts GetDevicePorts(Hid hid, Routing::PortsEnum port) const override
    {
        return mDevices.GetDevicePorts(hid, port);
    }
    std::uint32_t GetSlaveAddress(Hid hid, Routing::PortsEnum port) const override
    {
        return mDevices.GetSlaveAddress(hid, port);
    }

    /// The local device if it has this identity, else the remote one, else null. Unused in this
    /// module.
    const DeviceRecord* GetDeviceRecord(Hid hid) const { return mDevices.GetDeviceRecord(hid); }
    /// Heartbeat time-out of a local device; nothing for any other.
    std::optional<std::chrono::milliseconds> GetIoTimeout(Hid hid) const;

    // The shell's listings, written to the log.
    /// @param io I/O devices, else routing devices.
    void ShowDevices(bool io) const { DeviceListings::ShowDevices(mDevices, io); }
    void ShowPortMap(Hid hid) const { DeviceListings::ShowPortMap(mDevices.mLocal, hid); }
    void SendPing() { mRelay.SendPing(); }

    // Events of the link layer and of the streams.
    /// @param portIndex link index, 0 or 1. A lost link has localIp 0.
    void OnDeviceChanged(UINT8GIGEPORT portIndex, std::uint32_t localIp, UINT8GIGEPORT remoteGigE,
                         std::uint32_t remoteIp, Hid hid, K2Heartbeat::LinkType type);
    void OnKLVStreamChanged(UINT8GIGEPORT number, StreamType type, std::uint32_t address, bool valid);
    void OnIoInternalsChanged(Hid hid, std::uint32_t bitmap);
    /// Any thread.
    void OnMasterHidChanged(Hid hid);

    // The discovery exchange, one handler a command.
    void ProcessIOCmd(std::shared_ptr<const IoInfo> command, UINT8GIGEPORT port, StreamType type)
    {
        mLocalDiscovery.ProcessIOCmd(std::move(command), ToPortsEnum(port), type);
    }
    void ProcessIOCmd(std::shared_ptr<const IoInfoCard> command, UINT8GIGEPORT port, StreamType type)
    {
        mLocalDiscovery.ProcessIOCmd(std::move(command), ToPortsEnum(port), type);
    }
    void ProcessIOCmd(std::shared_ptr<const IoInfoK2Mod> command, UINT8GIGEPORT port, StreamType type)
    {
        mLocalDiscovery.ProcessIOCmd(std::move(command), ToPortsEnum(port), type);
    }
    void ProcessIOCmd(std::shared_ptr<const RouterInfo> command, UINT8GIGEPORT port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoSampleRateCapabilities> command, UINT8GIGEPORT port, StreamType)
    {
        mLocalDiscovery.ProcessIOCmd(*command, ToPortsEnum(port));
    }
    void OnRemoteIoUpdate(std::shared_ptr<const RemoteIoUpdate> command, UINT8GIGEPORT port, StreamType type);
    void OnRemoteRouterUpdate(std::shared_ptr<const RemoteRouterUpdate> command, UINT8GIGEPORT port, StreamType type);
    void OnIoInfoReq(std::shared_ptr<const IoInfoReq>, UINT8GIGEPORT port, StreamType type)
    {
        mLocalDiscovery.OnIoInfoReq(ToPortsEnum(port), type);
    }
    void OnIoInfoDevReq(std::shared_ptr<const IoInfoDevReq> command, UINT8GIGEPORT port, StreamType type)
    {
        mLocalDiscovery.OnIoInfoDevReq(*command, ToPortsEnum(port), type);
    }
    void OnRouterInfoReq(std::shared_ptr<const RouterInfoReq>, UINT8GIGEPORT port, StreamType)
    {
        mLocalDiscovery.OnRouterInfoReq(ToPortsEnum(port));
    }
    void OnChainLength(std::shared_ptr<const ChainLengthCmd> command, UINT8GIGEPORT port, StreamType type);
    void OnDeviceCheckResults(std::shared_ptr<const DeviceCheckResultsCmd> command, UINT8GIGEPORT, StreamType)
    {
        mSoftwareChecks.OnDeviceCheckResults(*command);
    }

    // The relay.
    /// On to where its target is.
    /// @param port on which the command arrived; @param hid the device that the command names.
    void ForwardCmd(const DeskCommand& command, UINT8GIGEPORT port, Hid hid)
    {
        mRelay.ForwardCmd(command, ToPortsEnum(port), hid);
    }
    /// From a link to the Orb router, or from there to the local device.
    void ForwardToLocal(const DeskCommand& command, UINT8GIGEPORT port)
    {
        mRelay.ForwardToLocal(command, ToPortsEnum(port));
    }
    /// From a link to the Orb router; one that comes from there is dropped.
    void ForwardUp(const DeskCommand& command, UINT8GIGEPORT port) { mRelay.ForwardUp(command, ToPortsEnum(port)); }
    void ReceivedPingCmd(std::shared_ptr<const OstrelPingCmd> command, UINT8GIGEPORT, StreamType)
    {
        mRelay.ReceivedPingCmd(*command);
    }
    void ReceivedMcsRequestCmd(std::shared_ptr<const RequestActiveMcsCmd>, UINT8GIGEPORT port, StreamType)
    {
        mRelay.ReceivedMcsRequestCmd(ToPortsEnum(port));
    }

private:
    std::atomic<std::uint32_t> mMasterHid{MakeLinkHid(INVALID_HID)};
    iOrbKLVComms& mComms;
    DeviceDirectory mDevices;
    CableChecks mCableChecks;
    OrbReports mReports;
    SoftwareChecks mSoftwareChecks;
    LinkedDevices mLinkedDevices;
    OsRoutes mRoutes;
    ActiveRouterTimer mActiveRouter;
    LocalDiscovery mLocalDiscovery;
    RemoteDiscovery mRemoteDiscovery;
    CommandRelay mRelay;
};
