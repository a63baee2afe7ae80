#pragma once

#include "MiscSource/Side.h"

class DeviceCheckResultsCmd;
class DeviceDirectory;
class iOrbKLVComms;

/// What the local device is asked first: for its software check, and once that is passed for its description. The
/// update service answers; what it passes is used. Main thread.
class SoftwareChecks
{
public:
    SoftwareChecks(DeviceDirectory& devices, iOrbKLVComms& comms) : mDevices(devices), mComms(comms) {}

    /// The module's own check, which lets it connect to the Orb router.
    void OnUpdateLinkChanged(bool valid);
    /// The first request on a new stream of the local device.
    void RequestInfo(Side side);
    void OnDeviceCheckResults(const DeviceCheckResultsCmd& command);

private:
    void RequestCheck(Side side, std::uint8_t kind, std::uint8_t method, Hid hid);
    /// The extended form for those that know it.
    void SendIoInfoReq(Side side);

    DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
};
