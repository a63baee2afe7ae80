#pragma once

#include "MiscSource/Side.h"
#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"

#include <memory>

class ActiveRouterTimer;
class DeviceDirectory;
class DeviceSignals;
class IoInfoCard;
class IoInfoDevReq;
class IoSampleRateCapabilities;
class OrbReports;
class OsRoutes;
class iOrbKLVComms;

/// How devices describe themselves to the module, and the module to them. Main thread.
class LocalDiscovery
{
public:
    LocalDiscovery(DeviceDirectory& devices, iOrbKLVComms& comms, OrbReports& reports, DeviceSignals& signals,
                   OsRoutes& routes, ActiveRouterTimer& activeRouter)
        : mDevices(devices),
          mComms(comms),
          mReports(reports),
          mSignals(signals),
          mRoutes(routes),
          mActiveRouter(activeRouter)
    {}

    void ProcessIOCmd(std::shared_ptr<const IoInfo> command, Routing::PortsEnum port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoInfoCard> command, Routing::PortsEnum port, StreamType type);
    void ProcessIOCmd(std::shared_ptr<const IoInfoK2Mod> command, Routing::PortsEnum port, StreamType type);
    void ProcessIOCmd(const RouterInfo& command, Routing::PortsEnum port, StreamType type);
    void ProcessIOCmd(const IoSampleRateCapabilities& command, Routing::PortsEnum port);
    void OnIoInfoReq(Routing::PortsEnum port, StreamType type);
    void OnIoInfoDevReq(const IoInfoDevReq& command, Routing::PortsEnum port, StreamType type);
    void OnRouterInfoReq(Routing::PortsEnum port);

private:
    void OrbRouterInfo(const RouterInfo& command);
    void LocalRouterInfo(const RouterInfo& command, Routing::PortsEnum port, StreamType type);
    void SendSelfInfo(Routing::PortsEnum port);
    void SendRemoteIoUpdate(RemoteDeviceType type, Hid hid);
    void SendDescription(const DeviceInfoStorage::Device& device, Routing::PortsEnum port, StreamType type);
    void RequestGPIState(Hid hid);

    DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
    OrbReports& mReports;
    DeviceSignals& mSignals;
    OsRoutes& mRoutes;
    ActiveRouterTimer& mActiveRouter;
};
