#include "OrbModule/Inc/DeviceManager/CommandRelay.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <arpa/inet.h>

bool CommandRelay::SendToLocal(const DeskCommand& command)
{
    for (const Side side : BothSides) {
        if (!mDevices.mLocal.IsOnline(side)) continue;
        mComms.SendLocal(command, ToPort(side));
        return true;
    }
    return false;
}

void CommandRelay::ForwardCmd(const DeskCommand& command, Routing::PortsEnum port, Hid hid)
{
    AUDIT_STREAM(CmdDebug, "ForwardCmd ID " << command.GetCommandId() << " To Hid " << hid << "From Port "
                                            << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) {
        mComms.SendToOrb(command);
        return;
    }
    if (mDevices.IsLocalIo(hid)) {
        if (!SendToLocal(command)) AUDIT_LOG(Fault, "ForwardCmd No link to local device\r\n");
        return;
    }
    if (mDevices.mRouterConnected) {
        AUDIT_LOG(Fault, "ForwardCmd When Connected to a network.....\r\n");
        return;
    }
    const Hid owner = mDevices.GetOwner(hid);
    for (const Side side : BothSides) {
        if (!mDevices.LinkOnline(owner, side) || !mDevices.LinkOnline(hid, side)) continue;
        mComms.SendSlave(command, GetPortAddress(owner, ToPort(side)));
        return;
    }
    AUDIT_STREAM(Fault, "ForwardCmd No link to device " << owner << "\n");
}

void CommandRelay::ForwardToLocal(const DeskCommand& command, Routing::PortsEnum port)
{
    AUDIT_STREAM(CmdDebug, "Forwarding " << CommandIdToText(command.GetCommandId()) << " to ORB from device on "
                                         << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) {
        mComms.SendToOrb(command);
    } else {
        SendToLocal(command);
    }
}

void CommandRelay::ForwardUp(const DeskCommand& command, Routing::PortsEnum port)
{
    AUDIT_STREAM(CmdDebug, "Forwarding Forwardable Cmd " << CommandIdToText(command.GetCommandId())
                                                         << " to ORB from device on " << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) mComms.SendToOrb(command);
}

void CommandRelay::PingHub(const DeviceRecord& hub)
{
    for (const Side side : BothSides) {
        if (!hub.IsOnline(side)) continue;
        const std::uint32_t address = GetPortAddress(hub.Hid, ToPort(side));
        AUDIT_STREAM(Information, "Send Ping To " << AddressText(address) << "\n");
        mComms.SendSlave(OstrelPingCmd("ORBMODULE", 0, 0), address);
    }
}

void CommandRelay::SendPing()
{
    if (mDevices.mRouterConnected) return;
    if (K2Heartbeat::IsHub(mDevices.mLocal.Type)) PingHub(mDevices.mLocal);
    for (const Hid hid : mDevices.mRemote.GetHids()) {
        const DeviceRecord& record = *mDevices.mRemote.Find(hid);
        if (K2Heartbeat::IsHub(record.Type)) PingHub(record);
    }
}

void CommandRelay::ReceivedPingCmd(const OstrelPingCmd& command)
{
    if (mDevices.mRouterConnected) return;
    AUDIT_STREAM(Information, "Ping Response " << command.GetName() << " PC " << command.GetPatchCount() << " TD "
                                               << command.GetTotalDests() << "\n");
}

void CommandRelay::ReceivedMcsRequestCmd(Routing::PortsEnum port)
{
    const std::uint32_t address = GetMasterControlAddress(GetRackId(mDevices.mHid));
    // The address of the wrapper travels in network order, unlike all others.
    ForwardToActiveCmd answer(htonl(UNIT_MODULE));
    answer.SetCommand(RouterMcsUpdate(address));
    AUDIT_STREAM(Information, "ReceivedMcsRequestCmd Our MCS " << AddressText(address) << "\n");
    mComms.SendMaster(port, answer);
}
