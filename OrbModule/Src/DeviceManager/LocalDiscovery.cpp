#include "OrbModule/Inc/DeviceManager/LocalDiscovery.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/DeviceManager/ActiveRouterTimer.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/DeviceSignals.h"
#include "OrbModule/Inc/DeviceManager/OrbReports.h"
#include "OrbModule/Inc/DeviceManager/OsRoutes.h"
#include "OrbModule/Inc/DeviceManager/PortMaps.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

void LocalDiscovery::ProcessIOCmd(std::shared_ptr<const IoInfo> command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command->GetHid();
    RemoteDeviceType updateType = command->GetType() == static_cast<std::uint8_t>(RemoteDeviceType::AoIP)
                                      ? RemoteDeviceType::AoIP
                                      : RemoteDeviceType::FixedFormat;
    AUDIT_STREAM(IODiscovery, "ProcessIOCmd IoInfo Hid " << hid << " Port " << PortText(port) << ":"
                                                         << std::uint32_t{command->GetType()} << "\n");
    if (!mDevices.mDeviceInfo.GetDevice(hid)) {
        if (const DeviceRecord* record = mDevices.mRemote.Find(hid)) updateType = ToRemoteDeviceType(record->Type);
        if (hid == mDevices.mLocal.Hid) {
            updateType = ToRemoteDeviceType(mDevices.mLocal.Type);
            PortMaps::Build(mDevices.mLocal, *command);
        }
        mDevices.mDeviceInfo.Emplace(hid, ToLinkType(updateType), command, 0);
    }
    AUDIT_LOG(IODiscovery, "Send %s RemoteIoUpdate\r\n", updateType == RemoteDeviceType::AoIP ? "AoIP" : "FF");
    SendRemoteIoUpdate(updateType, hid);
    mReports.DeviceStateChange(hid, port, true, type);
    mActiveRouter.DoActiveAudio(ToSide(port));
}

void LocalDiscovery::ProcessIOCmd(std::shared_ptr<const IoInfoCard> command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command->GetHid();
    const std::uint32_t slot = command->GetSlot();
    const Side side = ToSide(port);
    const bool isLast = slot == DeviceInfoStorage::LastSlot;
    const bool isLocal = hid == mDevices.mLocal.Hid;
    AUDIT_STREAM(IODiscovery, "ProcessIOCmd IoInfoCard Hid " << hid << " Slot " << slot << "\n");
    if (port == Routing::ORB_PORT) {
        mDevices.mOrbIoHid = hid;
    } else if (isLocal) {
        mDevices.mLocal.SetOnline(side, true);
    }
    if (mDevices.mDeviceInfo.GetDevice(hid)) {
        AUDIT_STREAM(IODiscovery, "ModIO is complete " << FlagText(true) << "\n");
        if (!isLast) return;
        mReports.DeviceStateChange(hid, port, true, type);
        if (port != Routing::ORB_PORT) mActiveRouter.DoActiveAudio(side);
        return;
    }
    mDevices.mDeviceInfo.Emplace(hid, K2Heartbeat::K2_MODULAR_TYPE, command, slot);
    if (!isLast) return;
    if (isLocal) {
        if (const auto cards = mDevices.mDeviceInfo.GetIoInfoCard(hid)) PortMaps::Build(mDevices.mLocal, *cards);
    }
    AUDIT_STREAM(IODiscovery, "New Modular I/O box " << hid << "\n");
    if (port != Routing::ORB_PORT) {
        SendRemoteIoUpdate(RemoteDeviceType::Modular, hid);
        mActiveRouter.DoActiveAudio(side);
    }
    mReports.DeviceStateChange(hid, port, true, type);
}

void LocalDiscovery::ProcessIOCmd(std::shared_ptr<const IoInfoK2Mod> command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command->GetHid();
    if (!mDevices.mDeviceInfo.GetDevice(hid)) {
        if (hid == mDevices.mLocal.Hid) PortMaps::Build(mDevices.mLocal, *command);
        AUDIT_STREAM(IODiscovery, "New Korvo Module " << hid << "\n");
        mDevices.mDeviceInfo.Emplace(hid, K2Heartbeat::K2_MODULE_TYPE, command, 0);
    }
    SendRemoteIoUpdate(RemoteDeviceType::Module, hid);
    mReports.DeviceStateChange(hid, port, true, type);
    mActiveRouter.DoActiveAudio(ToSide(port));
}

void LocalDiscovery::ProcessIOCmd(const RouterInfo& command, Routing::PortsEnum port, StreamType type)
{
    if (port == Routing::ORB_PORT) {
        OrbRouterInfo(command);
    } else {
        LocalRouterInfo(command, port, type);
    }
}

void LocalDiscovery::OrbRouterInfo(const RouterInfo& command)
{
    const Hid hid = command.GetHid();
    mDevices.mHid = hid;
    mSignals.PostLocalHid(hid);
    mComms.SendToOrb(IoInfoReq());
    const Hid router = MakeLinkHid(hid);
    const auto inserted = mDevices.mRemote.Insert(DeviceRecord(router, K2Heartbeat::K2_ORB_TYPE, router));
    if (inserted.isNew) MarkInternal(*inserted.record);
}

void LocalDiscovery::LocalRouterInfo(const RouterInfo& command, Routing::PortsEnum port, StreamType type)
{
    const Hid hid = command.GetHid();
    const Side side = ToSide(port);
    if (mDevices.mLocal.IsOnline(side)) {
        AUDIT_STREAM(RouterDiscovery, "Routing device already known on port " << PortText(port) << "\n");
        return;
    }
    AUDIT_STREAM(RouterDiscovery, "New Routing device " << hid << "\n");
    const std::uint32_t address = GetPortAddress(hid, port);
    mComms.SendToOrb(RemoteRouterUpdate(command.GetType(), hid, address, mDevices.mHid));
    SendSelfInfo(port);
    mRoutes.AddSlaveLinkDataRoute(hid, side);
    if (!mDevices.mRouterConnected) mComms.Connect(address, port, NetworkPorts::ROUTER_STREAM);
    mReports.DeviceStateChange(hid, port, true, type);
}

void LocalDiscovery::ProcessIOCmd(const IoSampleRateCapabilities& command, Routing::PortsEnum port)
{
    AUDIT_STREAM(IODiscovery, "ProcessIOCmd IoSampleRateCapabilities Current rate = "
                                  << command.GetSampleRate() << " Port " << PortText(port) << "\n");
    mDevices.mLocal.SampleRate = command.GetSampleRate();
    mDevices.mLocal.SampleRates = FirstRates(command.GetSampleRates());
}

void LocalDiscovery::OnIoInfoReq(Routing::PortsEnum port, StreamType type)
{
    AUDIT_STREAM(IODiscovery, "Received IoInfoReq on " << PortText(port) << "\n");
    if (mDevices.mOrbIoHid == INVALID_HID) return;
    const auto device = mDevices.mDeviceInfo.GetDevice(mDevices.mOrbIoHid);
    if (!device) return;
    SendDescription(*device, port, type);
    RequestGPIState(mDevices.mOrbIoHid);
}

void LocalDiscovery::OnIoInfoDevReq(const IoInfoDevReq& command, Routing::PortsEnum port, StreamType type)
{
    AUDIT_STREAM(IODiscovery, "Received IoInfoDevReq on " << PortText(port) << "\n");
    const Hid hid = command.GetHid();
    const auto device = mDevices.mDeviceInfo.GetDevice(hid);
    if (!device) return;
    if (K2Heartbeat::IsRoutingDevice(device->Type)) {
        AUDIT_STREAM(Fault, "DeviceManager::OnIoInfoDevReq: Device " << hid << " is a router\n");
        return;
    }
    SendDescription(*device, port, type);
    RequestGPIState(hid);
}

void LocalDiscovery::SendDescription(const DeviceInfoStorage::Device& device, Routing::PortsEnum port, StreamType type)
{
    for (const auto& entry : device.Commands)
        mComms.SendCmd(port, *entry.second, type, 0);
}

void LocalDiscovery::OnRouterInfoReq(Routing::PortsEnum port)
{
    AUDIT_STREAM(RouterDiscovery, "Received RouterInfoReq on " << PortText(port) << "\n");
    SendSelfInfo(port);
}

void LocalDiscovery::SendSelfInfo(Routing::PortsEnum port)
{
    mComms.SendLocal(
        RouterInfo(mDevices.mHid, RemoteDeviceType::Hub, Routing::SLOTS_PER_PORT, Routing::SLOTS_PER_PORT, 0), port);
    if (port == Routing::ORB_PORT) return;
    AUDIT_STREAM(IODiscovery, "SendSelfInfo ORB Internal IO at " << mDevices.mOrbIoHid << "\n");
    const DeviceRecord* record = mDevices.mRemote.Find(mDevices.mOrbIoHid);
    if (record == nullptr) {
        AUDIT_LOG(Information, "SendSelfInfo Failed to find internal IO to report\r\n");
        return;
    }
    mComms.SendLocal(RemoteIoUpdate(RemoteDeviceType::Modular, mDevices.mOrbIoHid,
                                    mDevices.mLocal.Link(ToSide(port)).LocalIp, mDevices.mHid, record->SampleRate,
                                    record->SampleRates),
                     port);
}

void LocalDiscovery::SendRemoteIoUpdate(RemoteDeviceType type, Hid hid)
{
    const DeviceRecord* record = mDevices.GetDeviceRecord(hid);
    if (record == nullptr) {
        AUDIT_STREAM(Fault, "SendRemoteIoUpdate Could Not Find Device " << hid << "\n");
        return;
    }
    const std::uint32_t address = record->ActiveRemoteIp();
    AUDIT_STREAM(RouterDiscovery, "SendRemoteIoUpdate Hid " << hid << "Type " << ToLinkType(type) << " Address "
                                                            << AddressText(address) << "\n");
    mComms.SendToOrb(RemoteIoUpdate(type, hid, address, mDevices.mHid, record->SampleRate, record->SampleRates));
}

void LocalDiscovery::RequestGPIState(Hid hid)
{
    if (hid == mDevices.mLocal.Hid) {
        AUDIT_STREAM(GPIODebug, "RequestGPIState For Local Box " << hid << "\n");
        for (const Side side : BothSides) {
            if (!mDevices.mLocal.IsOnline(side)) continue;
            mComms.SendLocal(GpiInfoRequest(), mDevices.mLocal.Link(side).Port);
            return;
        }
    } else if (hid == mDevices.mOrbIoHid) {
        AUDIT_STREAM(GPIODebug, "RequestGPIState For Orb IO " << hid << "\n");
        mComms.SendToOrb(GpiInfoRequest());
    } else {
        AUDIT_STREAM(Fault, "RequestGPIState UNKNOWN DEVICE " << hid << "\n");
    }
}
