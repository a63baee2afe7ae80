#pragma once

#include "MiscSource/GlobalConstants.h"

class DeskCommand;
class DeviceDirectory;
class DeviceRecord;
class OstrelPingCmd;
class iOrbKLVComms;

/// The relay between the Orb router and the boxes. A command is written on from the object that was decoded, and
/// only its target is read. Main thread.
class CommandRelay
{
public:
    CommandRelay(const DeviceDirectory& devices, iOrbKLVComms& comms) : mDevices(devices), mComms(comms) {}

    void ForwardCmd(const DeskCommand& command, Routing::PortsEnum port, Hid hid);
    void ForwardToLocal(const DeskCommand& command, Routing::PortsEnum port);
    void ForwardUp(const DeskCommand& command, Routing::PortsEnum port);
    void SendPing();
    void ReceivedPingCmd(const OstrelPingCmd& command);
    void ReceivedMcsRequestCmd(Routing::PortsEnum port);

private:
    /// On the primary link first. False if the local device is online on none.
    bool SendToLocal(const DeskCommand& command);
    void PingHub(const DeviceRecord& hub);

    const DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
};
