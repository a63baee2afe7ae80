#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"

#include <arpa/inet.h>

// The relay between the Orb router and the boxes. A command is written on from the object that was decoded, and
// nothing but its target is read.

void DeviceManager::ForwardCmd(const DeskCommand& command, UINT8GIGEPORT port, Hid hid)
{
    AUDIT_STREAM(CmdDebug, "ForwardCmd ID " << command.GetCommandId() << " To Hid " << hid << "From Port "
                                            << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) {
        SendToOrb(command);
        return;
    }
    if (IsLocalIo(hid)) {
        if (mLocal.IsOnline(true)) {
            mComms->SendLocal(command, Routing::PRIMARY_PORT);
        } else if (mLocal.IsOnline(false)) {
            mComms->SendLocal(command, Routing::SECONDARY_PORT);
        } else {
            AUDIT_LOG(Fault, "ForwardCmd No link to local device\r\n");
        }
        return;
    }
    if (mRouterConnected) {
        AUDIT_LOG(Fault, "ForwardCmd When Connected to a network.....\r\n");
        return;
    }
    const Hid owner = GetOwner(hid);
    for (const UINT8GIGEPORT side : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        const bool isPri = IsPrimaryPort(side);
        if (!LinkOnline(owner, isPri) || !LinkOnline(hid, isPri)) continue;
        mComms->SendSlave(command, GetPortAddress(owner, side));
        return;
    }
    AUDIT_STREAM(Fault, "ForwardCmd No link to device " << owner << "\n");
}

void DeviceManager::ForwardToLocal(const DeskCommand& command, UINT8GIGEPORT port)
{
    AUDIT_STREAM(CmdDebug, "Forwarding " << CommandIdToText(command.GetCommandId()) << " to ORB from device on "
                                         << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) {
        SendToOrb(command);
    } else if (mLocal.IsOnline(true)) {
        mComms->SendLocal(command, Routing::PRIMARY_PORT);
    } else if (mLocal.IsOnline(false)) {
        mComms->SendLocal(command, Routing::SECONDARY_PORT);
    }
}

void DeviceManager::ForwardUp(const DeskCommand& command, UINT8GIGEPORT port)
{
    AUDIT_STREAM(CmdDebug, "Forwarding Forwardable Cmd " << CommandIdToText(command.GetCommandId())
                                                         << " to ORB from device on " << PortText(port) << "\n");
    if (port != Routing::ORB_PORT) SendToOrb(command);
}

void DeviceManager::PingHub(const DeviceRecord& hub)
{
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        if (!hub.IsOnline(IsPrimaryPort(port))) continue;
        const std::uint32_t address = GetPortAddress(hub.Hid, port);
        AUDIT_STREAM(Information, "Send Ping To " << AddressText(address) << "\n");
        mComms->SendSlave(OstrelPingCmd("ORBMODULE", 0, 0), address);
    }
}

void DeviceManager::SendPing()
{
    if (mRouterConnected) return;
    if (mLocal.Type == K2Heartbeat::K2_HUB_TYPE) PingHub(mLocal);
    for (const Hid hid : mRemote.GetHids()) {
        const DeviceRecord& record = *mRemote.Find(hid);
        if (record.Type == K2Heartbeat::K2_HUB_TYPE) PingHub(record);
    }
}

void DeviceManager::ReceivedPingCmd(std::shared_ptr<const OstrelPingCmd> command, UINT8GIGEPORT, StreamType)
{
    if (mRouterConnected) return;
    AUDIT_STREAM(Information, "Ping Response " << command->GetName() << " PC " << command->GetPatchCount() << " TD "
                                               << command->GetTotalDests() << "\n");
}

void DeviceManager::ReceivedMcsRequestCmd(std::shared_ptr<const RequestActiveMcsCmd>, UINT8GIGEPORT port, StreamType)
{
    const std::uint32_t address = GetMasterControlAddress(GetRackId(mHid));
    // The address of the wrapper travels in network order, unlike all others.
    ForwardToActiveCmd answer(htonl(UNIT_MODULE));
    answer.SetCommand(RouterMcsUpdate(address));
    AUDIT_STREAM(Information, "ReceivedMcsRequestCmd Our MCS " << AddressText(address) << "\n");
    mComms->SendMaster(port, answer);
}
