#include "OrbModule/Inc/DeviceManager/RemoteDiscovery.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/OrbReports.h"
#include "OrbModule/Inc/DeviceManager/OsRoutes.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <sstream>

namespace {

template <class Command>
std::string TextOf(const Command& command)
{
    std::ostringstream text;
    text << command;
    return text.str();
}

/// For the log: a peer may report rates without end.
RemoteIoUpdate WithFirstRates(const RemoteIoUpdate& command)
{
    return RemoteIoUpdate(command.GetType(), command.GetHid(), command.GetAddress(), command.GetOwner(),
                          command.GetSampleRate(), FirstRates(command.GetSampleRates()));
}

RemoteIoUpdate WithOwner(const RemoteIoUpdate& command, std::uint32_t address, Hid owner)
{
    return RemoteIoUpdate(command.GetType(), command.GetHid(), address, owner, command.GetSampleRate(),
                          command.GetSampleRates());
}

} // namespace

void RemoteDiscovery::OnSlaveLinkChanged(Routing::PortsEnum port, std::uint32_t address, bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnSlaveLinkChanged" << PortText(port) << " Address " << AddressText(address)
                                                        << FlagText(valid) << "\n");
    if (!valid) return;
    // The peer at the far end of a data link has its own internal I/O.
    mComms.SendSlave(IoInfoReq(), address);
    if (!mDevices.mRouterConnected) RequestPendingDescriptions(port, address);
}

/// What was reported before the data link of its owner was up could not be asked for its description.
void RemoteDiscovery::RequestPendingDescriptions(Routing::PortsEnum port, std::uint32_t address)
{
    for (const Hid hid : mDevices.mRemote.GetHids()) {
        const DeviceRecord& record = *mDevices.mRemote.Find(hid);
        if (record.Link(ToSide(port)).DescriptionPending && GetPortAddress(record.Owner, port) == address)
            mComms.SendSlave(IoInfoDevReq(hid), address);
    }
}

void RemoteDiscovery::OnRemoteIoUpdate(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type)
{
    if (command.GetOwner() == INVALID_HID) {
        AUDIT_LOG(Assert, "Ignoring message due to invalid Router HID\r\n");
        return;
    }
    AUDIT_STREAM(RouterDiscovery, "Received RemoteIoUpdate on " << PortText(port) << "Hid " << command.GetHid()
                                                                << "Type " << ToLinkType(command.GetType())
                                                                << "Address " << AddressText(command.GetAddress())
                                                                << "Owner " << command.GetOwner() << "\n");
    if (!IoUpdate::IsIoType(command.GetType())) {
        AuditAssertFailed(__FILE__, __LINE__, "IoUpdate::IsIoType(Cmd->GetType())",
                          "RemoteIoUpdate type is wrong: " + TextOf(WithFirstRates(command)));
        return;
    }
    if (command.GetAddress() == 0) {
        RemoteIoGone(command, port, type);
    } else {
        RemoteIoAlive(command, port, type);
    }
}

void RemoteDiscovery::RemoteIoGone(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    const Side side = ToSide(port);
    const bool fromOrb = port == Routing::ORB_PORT;
    bool tellOrb = !fromOrb;
    if (DeviceRecord* record = mDevices.mRemote.Find(hid)) {
        mReports.DeviceStateChange(hid, port, false, type);
        record->SetOnline(side, false);
        if (fromOrb) record->SetOnline(OtherSide(side), false);
        if (record->IsOffline()) {
            mDevices.mRemote.Erase(hid);
            mDevices.mDeviceInfo.EraseDeviceInfo(hid);
        } else {
            tellOrb = false;
        }
    } else {
        AUDIT_STREAM(Fault, "RemoteIoUpdate Can't find remote device to remove" << command.GetOwner());
    }
    const RemoteIoUpdate removal = WithOwner(command, 0, mDevices.mHid);
    if (tellOrb) mComms.SendToOrb(removal);
    if (fromOrb) SendToConnectedRoutingDevice(removal);
}

void RemoteDiscovery::RemoteIoAlive(const RemoteIoUpdate& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    const Side side = ToSide(port);
    const bool fromOrb = port == Routing::ORB_PORT;
    if (fromOrb) {
        if (mDevices.mRemote.Find(hid) == nullptr && !EmplaceOrbInternalIO(command)) return;
    } else {
        DeviceRecord device(hid, ToLinkType(command.GetType()), command.GetOwner());
        device.SampleRate = command.GetSampleRate();
        device.SampleRates = FirstRates(command.GetSampleRates());
        DeviceRecord* record = mDevices.mRemote.Insert(std::move(device)).record;
        if (record == nullptr) return;
        LinkInfo& link = record->Link(side);
        link.RemoteIp = command.GetAddress();
        link.Port = port;
        link.RemoteGigE = mDevices.mLocal.Link(side).RemoteGigE;
        link.SetOnline(true);
        link.DescriptionPending = !mDevices.mRouterConnected;
        mRoutes.AddIoRoute(command.GetAddress(), port);
    }
    if (!mDevices.mRouterConnected) {
        // The description comes over the data link; the Orb router gets its report then.
        if (!fromOrb) mComms.SendSlave(IoInfoDevReq(hid), GetPortAddress(command.GetOwner(), port));
        return;
    }
    const RemoteIoUpdate update = WithOwner(command, command.GetAddress(), mDevices.mHid);
    if (fromOrb) {
        SendToConnectedRoutingDevice(update);
    } else {
        mReports.DeviceStateChange(hid, port, true, type);
        mComms.SendToOrb(update);
    }
}

bool RemoteDiscovery::EmplaceOrbInternalIO(const RemoteIoUpdate& command)
{
    DeviceRecord device(command.GetHid(), K2Heartbeat::K2_MODULAR_TYPE, command.GetOwner());
    device.SampleRate = command.GetSampleRate();
    device.SampleRates = FirstRates(command.GetSampleRates());
    AUDIT_STREAM(Information,
                 "EmplaceOrbInternalIO SR " << device.SampleRate << ":" << RatesText(device.SampleRates) << "\n");
    const auto inserted = mDevices.mRemote.Insert(std::move(device));
    if (inserted.isNew) MarkInternal(*inserted.record);
    return inserted.record != nullptr;
}

void RemoteDiscovery::OnRemoteRouterUpdate(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    AUDIT_STREAM(RouterDiscovery, "Received RemoteRouterUpdate on " << PortText(port) << hid << "\n");
    if (hid == mDevices.mHid) {
        std::ostringstream text;
        text << "RemoteRouterUpdate is about us (Hid: " << mDevices.mHid << "\n";
        AuditAssertFailed(__FILE__, __LINE__, "Cmd->GetHid() != mHid", text.str());
        return;
    }
    if (!IsRoutingRemoteType(command.GetType())) return;
    if (command.GetAddress() == 0) {
        RemoteRouterGone(command, port, type);
    } else {
        RemoteRouterAlive(command, port, type);
    }
    AUDIT_STREAM(RouterDiscovery, "Received RemoteRouterUpdate on " << PortText(port) << " Out\n");
}

void RemoteDiscovery::RemoteRouterGone(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    for (const Hid owned : mDevices.mRemote.GetOwnedBy(hid)) {
        const DeviceRecord& record = *mDevices.mRemote.Find(owned);
        if (!record.IsIoDevice()) continue;
        mReports.DeviceStateChange(owned, port, false, StreamType::LOCAL_LINK);
        if (!record.IsOffline()) continue;
        mReports.ReportRemoteGone(record.Type, owned);
        mDevices.mDeviceInfo.EraseDeviceInfo(owned);
        mDevices.mRemote.Erase(owned);
    }
    if (!mDevices.mRouterConnected) mComms.Disconnect(GetPortAddress(hid, port), StreamType::SLAVE_LINK);
    mReports.DeviceStateChange(hid, port, false, type);
    DeviceRecord* record = mDevices.mRemote.Find(hid);
    if (record == nullptr) return;
    record->SetOnline(ToSide(port), false);
    if (!record->IsOffline()) return;
    mDevices.mRemote.Erase(hid);
    mRoutes.DeleteSlaveRoute(hid);
    mComms.SendToOrb(command);
}

void RemoteDiscovery::RemoteRouterAlive(const RemoteRouterUpdate& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    const Side side = ToSide(port);
    DeviceRecord* record = mDevices.mRemote.Find(hid);
    if (record == nullptr) {
        const K2Heartbeat::LinkType linkType = ToLinkType(command.GetType());
        AUDIT_STREAM(RouterDiscovery, "Emplace new remote router device " << linkType << "\n");
        record = mDevices.mRemote.Insert(DeviceRecord(hid, linkType, hid)).record;
        if (record == nullptr) return;
    }
    if (record->IsOnline(side)) return;
    mRoutes.AddSlaveLinkDataRoute(hid, side);
    if (!mDevices.mRouterConnected)
        mComms.ConnectReported(GetPortAddress(hid, port), port, NetworkPorts::ROUTER_STREAM);
    const UINT8GIGEPORT remoteGigE = mDevices.mLocal.Link(side).RemoteGigE;
    AUDIT_STREAM(RouterDiscovery, "Port " << PortText(port) << " RemoteGigE " << LinkPortText(remoteGigE) << " Address "
                                          << AddressText(command.GetAddress()) << "\n");
    LinkInfo& link = record->Link(side);
    link.RemoteIp = command.GetAddress();
    link.Port = port;
    link.RemoteGigE = remoteGigE;
    link.SetOnline(true);
    mComms.SendToOrb(command);
    mReports.DeviceStateChange(hid, port, true, type);
}

void RemoteDiscovery::SendToConnectedRoutingDevice(const DeskCommand& command)
{
    if (!mDevices.mLocal.IsRoutingDevice()) return;
    AUDIT_LOG(RouterCmdDebug, "Sending command %u to connected routing device.\n", command.GetCommandId());
    for (const Side side : BothSides)
        if (mDevices.mLocal.IsOnline(side)) mComms.SendLocal(command, ToPort(side));
}
