#pragma once

#include "MiscSource/GlobalConstants.h"

class CableChecks;
class DeviceDirectory;
class DeviceSignals;
class iOrbKLVComms;

/// Keeps the Orb router on port 0 informed of the devices. Main thread.
class OrbReports
{
public:
    OrbReports(DeviceDirectory& devices, iOrbKLVComms& comms, DeviceSignals& signals, CableChecks& cableChecks)
        : mDevices(devices), mComms(comms), mSignals(signals), mCableChecks(cableChecks)
    {}

    /// A device has come up or gone on a port: records it, and reports it to the Orb router and to the subscribers.
    void DeviceStateChange(Hid hid, Routing::PortsEnum port, bool online, StreamType type);
    void ReportRemoteGone(K2Heartbeat::LinkType type, Hid hid);

private:
    DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
    DeviceSignals& mSignals;
    CableChecks& mCableChecks;
};
