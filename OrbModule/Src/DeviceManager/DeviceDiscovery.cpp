#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/DeviceManager/CardModels.h"

#include <algorithm>

// How devices describe themselves to the module, and the module to them.

namespace {

constexpr std::uint32_t SlotCount = 512;
/// At a double rate the second TDM slot of a card's port is this far from the first.
constexpr std::uint32_t DoubleRateOffset = 16;
/// Number of the first audio port of a modular box's card, per slot.
constexpr std::uint32_t PortsPerCard = 64;
/// A card may name ports without end; the number of an audio port has 16 bits.
constexpr std::size_t MaxCardPorts = 65536;

void AddCard(LocalDevice::PortMap& ports, std::uint16_t& next, std::uint32_t first, std::uint32_t count,
             bool doubleRate)
{
    for (std::uint32_t slot = first; slot < first + count; ++slot, ++next) {
        if (doubleRate) {
            ports[next] = {slot, slot + DoubleRateOffset};
        } else {
            ports[next] = {slot};
        }
    }
}

void AddHardwarePorts(LocalDevice::PortMap& ports, std::uint16_t next, const std::vector<std::int16_t>& hardware,
                      bool doubleRate)
{
    const std::size_t step = doubleRate ? 2 : 1;
    const std::size_t count = std::min(hardware.size(), MaxCardPorts);
    for (std::size_t i = 0; i < count; i += step, ++next) {
        std::vector<std::uint32_t>& slots = ports[next];
        slots.clear();
        // A list of an odd count leaves its last port with the one slot it has.
        for (std::size_t j = i; j < std::min(i + step, count); ++j)
            slots.push_back(static_cast<std::uint32_t>(std::int32_t{hardware[j]}));
    }
}

void AddModulePorts(LocalDevice::PortMap& ports, std::uint32_t count, bool doubleRate)
{
    for (std::uint32_t i = 0; i < std::min(count, SlotCount); ++i) {
        if (doubleRate) {
            ports[static_cast<std::uint16_t>(i)] = {2 * i, 2 * i + 1};
        } else {
            ports[static_cast<std::uint16_t>(i)] = {i};
        }
    }
}

} // namespace

void DeviceManager::BuildPortMaps(const IoInfo& command)
{
    const bool doubleRate = SampleRates::IsDoubleRate(mDevices.mLocal.SampleRate);
    std::uint16_t in = 0;
    std::uint16_t out = 0;
    std::uint32_t slot = 0;
    for (const std::string& code : command.GetSlots()) {
        mDevices.mLocal.IoTimeout = LocalDevice::DescribedIoTimeout;
        const CardModel card = GetCardModel(code, doubleRate);
        AddCard(mDevices.mLocal.Inputs, in, slot * card.inputStride, card.inputs, doubleRate);
        AddCard(mDevices.mLocal.Outputs, out, slot * card.outputStride, card.outputs, doubleRate);
        ++slot;
    }
}

void DeviceManager::BuildPortMaps(const DeviceInfoStorage::CommandMap& cards)
{
    const bool doubleRate = SampleRates::IsDoubleRate(mDevices.mLocal.SampleRate);
    for (const auto& entry : cards) {
        const auto card = std::dynamic_pointer_cast<const IoInfoCard>(entry.second);
        if (entry.first == DeviceInfoStorage::LastSlot || card == nullptr) continue;
        const auto first = static_cast<std::uint16_t>(entry.first * PortsPerCard);
        AddHardwarePorts(mDevices.mLocal.Inputs, first, card->GetInputs(), doubleRate);
        AddHardwarePorts(mDevices.mLocal.Outputs, first, card->GetOutputs(), doubleRate);
    }
}

void DeviceManager::BuildPortMaps(const IoInfoK2Mod& command)
{
    const bool doubleRate = SampleRates::IsDoubleRate(mDevices.mLocal.SampleRate);
    AddModulePorts(mDevices.mLocal.Inputs, command.GetInputs(), doubleRate);
    AddModulePorts(mDevices.mLocal.Outputs, command.GetOutputs(), doubleRate);
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const IoInfo> command, UINT8GIGEPORT port, StreamType type)
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
            BuildPortMaps(*command);
        }
        mDevices.mDeviceInfo.Emplace(hid, ToLinkType(updateType), command, 0);
    }
    AUDIT_LOG(IODiscovery, "Send %s RemoteIoUpdate\r\n", updateType == RemoteDeviceType::AoIP ? "AoIP" : "FF");
    SendRemoteIoUpdate(updateType, hid);
    DeviceStateChange(hid, port, true, type);
    DoActiveAudio(ToSide(port));
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const IoInfoCard> command, UINT8GIGEPORT port, StreamType type)
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
        DeviceStateChange(hid, port, true, type);
        if (port != Routing::ORB_PORT) DoActiveAudio(side);
        return;
    }
    mDevices.mDeviceInfo.Emplace(hid, K2Heartbeat::K2_MODULAR_TYPE, command, slot);
    if (!isLast) return;
    if (isLocal) {
        if (const auto cards = mDevices.mDeviceInfo.GetIoInfoCard(hid)) BuildPortMaps(*cards);
    }
    AUDIT_STREAM(IODiscovery, "New Modular I/O box " << hid << "\n");
    if (port != Routing::ORB_PORT) {
        SendRemoteIoUpdate(RemoteDeviceType::Modular, hid);
        DoActiveAudio(side);
    }
    DeviceStateChange(hid, port, true, type);
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const IoInfoK2Mod> command, UINT8GIGEPORT port, StreamType type)
{
    const Hid hid = command->GetHid();
    if (!mDevices.mDeviceInfo.GetDevice(hid)) {
        if (hid == mDevices.mLocal.Hid) BuildPortMaps(*command);
        AUDIT_STREAM(IODiscovery, "New Korvo Module " << hid << "\n");
        mDevices.mDeviceInfo.Emplace(hid, K2Heartbeat::K2_MODULE_TYPE, command, 0);
    }
    SendRemoteIoUpdate(RemoteDeviceType::Module, hid);
    DeviceStateChange(hid, port, true, type);
    DoActiveAudio(ToSide(port));
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const RouterInfo> command, UINT8GIGEPORT port, StreamType type)
{
    if (port == Routing::ORB_PORT) {
        OrbRouterInfo(*command);
    } else if (IsFromPort(port)) {
        LocalRouterInfo(*command, port, type);
    }
}

void DeviceManager::OrbRouterInfo(const RouterInfo& command)
{
    const Hid hid = command.GetHid();
    mDevices.mHid = hid;
    mIoService.post([this, hid] { LocalHidChanged(hid); });
    SendToOrb(IoInfoReq());
    EmplaceOrbRouter(command);
}

void DeviceManager::LocalRouterInfo(const RouterInfo& command, UINT8GIGEPORT port, StreamType type)
{
    const Hid hid = command.GetHid();
    const Side side = ToSide(port);
    if (mDevices.mLocal.IsOnline(side)) {
        AUDIT_STREAM(RouterDiscovery, "Routing device already known on port " << PortText(port) << "\n");
        return;
    }
    AUDIT_STREAM(RouterDiscovery, "New Routing device " << hid << "\n");
    const std::uint32_t address = GetPortAddress(hid, port);
    SendToOrb(RemoteRouterUpdate(command.GetType(), hid, address, mDevices.mHid));
    SendSelfInfo(port);
    mRoutes.AddSlaveLinkDataRoute(hid, side);
    if (!mDevices.mRouterConnected) mComms->Connect(address, port, NetworkPorts::ROUTER_STREAM);
    DeviceStateChange(hid, port, true, type);
}

void DeviceManager::EmplaceOrbRouter(const RouterInfo& command)
{
    const Hid hid = MakeLinkHid(command.GetHid());
    const auto inserted = mDevices.mRemote.Insert(DeviceRecord(hid, K2Heartbeat::K2_ORB_TYPE, hid));
    if (inserted.isNew) MarkInternal(*inserted.record);
}

void DeviceManager::MarkInternal(DeviceRecord& record)
{
    for (const Side side : BothSides) {
        LinkInfo& link = record.Link(side);
        link.SetOnline(true);
        link.RemoteIp = UNIT_MASTER_CONTROL;
        link.Port = Routing::ORB_PORT;
        link.RemoteGigE = 0;
    }
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const IoSampleRateCapabilities> command, UINT8GIGEPORT port,
                                 StreamType)
{
    AUDIT_STREAM(IODiscovery, "ProcessIOCmd IoSampleRateCapabilities Current rate = "
                                  << command->GetSampleRate() << " Port " << PortText(port) << "\n");
    mDevices.mLocal.SampleRate = command->GetSampleRate();
    mDevices.mLocal.SampleRates = FirstRates(command->GetSampleRates());
}

void DeviceManager::OnIoInfoReq(std::shared_ptr<const IoInfoReq>, UINT8GIGEPORT port, StreamType type)
{
    AUDIT_STREAM(IODiscovery, "Received IoInfoReq on " << PortText(port) << "\n");
    if (mDevices.mOrbIoHid == INVALID_HID) return;
    const auto device = mDevices.mDeviceInfo.GetDevice(mDevices.mOrbIoHid);
    if (!device) return;
    SendDescription(*device, port, type);
    RequestGPIState(mDevices.mOrbIoHid);
}

void DeviceManager::OnIoInfoDevReq(std::shared_ptr<const IoInfoDevReq> command, UINT8GIGEPORT port, StreamType type)
{
    AUDIT_STREAM(IODiscovery, "Received IoInfoDevReq on " << PortText(port) << "\n");
    const Hid hid = command->GetHid();
    const auto device = mDevices.mDeviceInfo.GetDevice(hid);
    if (!device) return;
    if (K2Heartbeat::IsRoutingDevice(device->Type)) {
        AUDIT_STREAM(Fault, "DeviceManager::OnIoInfoDevReq: Device " << hid << " is a router\n");
        return;
    }
    SendDescription(*device, port, type);
    RequestGPIState(hid);
}

void DeviceManager::SendDescription(const DeviceInfoStorage::Device& device, UINT8GIGEPORT port, StreamType type)
{
    for (const auto& entry : device.Commands)
        mComms->SendCmd(port, *entry.second, type, 0);
}

void DeviceManager::OnRouterInfoReq(std::shared_ptr<const RouterInfoReq>, UINT8GIGEPORT port, StreamType)
{
    AUDIT_STREAM(RouterDiscovery, "Received RouterInfoReq on " << PortText(port) << "\n");
    SendSelfInfo(port);
}

void DeviceManager::OnChainLength(std::shared_ptr<const ChainLengthCmd> command, UINT8GIGEPORT port, StreamType)
{
    if (IsLinkPort(port)) mRoutes.AddIoRoute(command->GetAddress(), port);
    SendToOrb(*command);
}

void DeviceManager::SendSelfInfo(UINT8GIGEPORT port)
{
    mComms->SendLocal(RouterInfo(mDevices.mHid, RemoteDeviceType::Hub, SlotCount, SlotCount, 0), port);
    if (port == Routing::ORB_PORT) return;
    AUDIT_STREAM(IODiscovery, "SendSelfInfo ORB Internal IO at " << mDevices.mOrbIoHid << "\n");
    const DeviceRecord* record = mDevices.mRemote.Find(mDevices.mOrbIoHid);
    if (record == nullptr) {
        AUDIT_LOG(Information, "SendSelfInfo Failed to find internal IO to report\r\n");
        return;
    }
    mComms->SendLocal(RemoteIoUpdate(RemoteDeviceType::Modular, mDevices.mOrbIoHid,
                                     mDevices.mLocal.Link(ToSide(port)).LocalIp, mDevices.mHid, record->SampleRate,
                                     record->SampleRates),
                      port);
}

void DeviceManager::SendRemoteIoUpdate(RemoteDeviceType type, Hid hid)
{
    const DeviceRecord* record = mDevices.GetDeviceRecord(hid);
    if (record == nullptr) {
        AUDIT_STREAM(Fault, "SendRemoteIoUpdate Could Not Find Device " << hid << "\n");
        return;
    }
    const std::uint32_t address = record->ActiveRemoteIp();
    AUDIT_STREAM(RouterDiscovery, "SendRemoteIoUpdate Hid " << hid << "Type " << ToLinkType(type) << " Address "
                                                            << AddressText(address) << "\n");
    SendToOrb(RemoteIoUpdate(type, hid, address, mDevices.mHid, record->SampleRate, record->SampleRates));
}

void DeviceManager::SendToConnectedRoutingDevice(const DeskCommand& command)
{
    if (!mDevices.mLocal.IsRoutingDevice()) return;
    AUDIT_LOG(RouterCmdDebug, "Sending command %u to connected routing device.\n", command.GetCommandId());
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
        if (mDevices.mLocal.IsOnline(ToSide(port))) mComms->SendLocal(command, port);
}

void DeviceManager::DoActiveAudio(Side side)
{
    AUDIT_STREAM(IODiscovery, "DoActiveAudio, Pri: " << FlagText(IsPrimary(side)) << "\n");
    if (IsPrimary(side)) {
        AUDIT_LOG(Information, "Sending IoActiveRouter on primary port\r\n");
        mComms->SendLocal(IoActiveRouter(), Routing::PRIMARY_PORT);
        return;
    }
    mActiveTimer.expires_after(mDelays.secondaryActiveRouter);
    // The error code is not looked at: a wait that a later call cancels sends at once.
    mActiveTimer.async_wait([this](const boost::system::error_code&) {
        AUDIT_LOG(Information, "Sending IoActiveRouter on secondary port\r\n");
        mComms->SendLocal(IoActiveRouter(), Routing::SECONDARY_PORT);
    });
}

void DeviceManager::RequestGPIState(Hid hid)
{
    if (hid == mDevices.mLocal.Hid) {
        AUDIT_STREAM(GPIODebug, "RequestGPIState For Local Box " << hid << "\n");
        for (const Side side : BothSides) {
            if (!mDevices.mLocal.IsOnline(side)) continue;
            mComms->SendLocal(GpiInfoRequest(), mDevices.mLocal.Link(side).Port);
            return;
        }
    } else if (hid == mDevices.mOrbIoHid) {
        AUDIT_STREAM(GPIODebug, "RequestGPIState For Orb IO " << hid << "\n");
        SendToOrb(GpiInfoRequest());
    } else {
        AUDIT_STREAM(Fault, "RequestGPIState UNKNOWN DEVICE " << hid << "\n");
    }
}
