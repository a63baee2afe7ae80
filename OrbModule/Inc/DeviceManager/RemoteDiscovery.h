#pragma once

#include "MiscSource/GlobalConstants.h"

class DeskCommand;
class DeviceDirectory;
class OrbReports;
class OsRoutes;
class RemoteIoUpdate;
class RemoteRouterUpdate;
class iOrbKLVComms;

/// What neighbours and the Orb router report of remote devices. Main thread.
class RemoteDiscovery
{
public:
    RemoteDiscovery(DeviceDirectory& devices, iOrbKLVComms& comms, OrbReports& reports, OsRoutes& routes)
        : mDevices(devices), mComms(comms), mReports(reports), mRoutes(routes)
    {}

    void OnSlaveLinkChanged(Routing::PortsEnum port, std::uint32_t address, bool valid);
    void OnRemoteIoUpdate(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type);
    void OnRemoteRouterUpdate(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type);

private:
    void RequestPendingDescriptions(Routing::PortsEnum port, std::uint32_t address);
    void RemoteIoGone(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type);
    void RemoteIoAlive(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type);
    void RemoteRouterGone(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type);
    void RemoteRouterAlive(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type);
    /// False if the directory is full.
    bool EmplaceOrbInternalIO(const RemoteIoUpdate& command);
    void SendToConnectedRoutingDevice(const DeskCommand& command);

    DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
    OrbReports& mReports;
    OsRoutes& mRoutes;
};
