#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"

#include "Audit/Audit.h"

namespace {

std::vector<std::uint32_t> GetLinkSlot(const LocalDevice::PortMap& ports, const char* operation, Hid hid,
                                       AudioPortNumber port)
{
    const auto found = ports.find(port);
    if (found == ports.end()) {
        AUDIT_STREAM(Fault, "DeviceManager::" << operation << ": Unknown port " << AudioPortText(port) << " for device "
                                              << hid << "\n");
        return {};
    }
    // A box names its hardware ports as it likes; a slot that no link has must not reach the patches.
    for (const std::uint32_t slot : found->second) {
        if (slot < Routing::SLOTS_PER_PORT) continue;
        AUDIT_STREAM(Fault, "DeviceManager::" << operation << ": Link slot " << static_cast<std::int32_t>(slot)
                                              << " out of range at port " << AudioPortText(port) << " for device "
                                              << hid << "\n");
        return {};
    }
    return found->second;
}

} // namespace

bool DeviceDirectory::IsDeviceOnline(Hid hid, Routing::PortsEnum port) const
{
    const DeviceRecord* record = GetDeviceRecord(hid);
    return record != nullptr && record->IsOnline(ToSide(port));
}

std::vector<std::uint32_t> DeviceDirectory::GetInputLinkSlot(Hid hid, AudioPortNumber port) const
{
    return GetLinkSlot(mLocal.Inputs, "GetInputLinkSlot", hid, port);
}

std::vector<std::uint32_t> DeviceDirectory::GetOutputLinkSlot(Hid hid, AudioPortNumber port) const
{
    return GetLinkSlot(mLocal.Outputs, "GetOutputLinkSlot", hid, port);
}

DevicePorts DeviceDirectory::GetDevicePorts(Hid hid, Routing::PortsEnum port) const
{
    AUDIT_STREAM(RouterAudioRoute, "DeviceManager::GetDevicePorts For " << hid << " Port " << PortText(port) << "\n");
    const DeviceRecord* record = GetDeviceRecord(hid);
    if (record == nullptr) {
        AUDIT_STREAM(Fault, "HubDeviceManager::GetDevicePorts: Unknown Device: " << hid << "\n");
        return {};
    }
    const LinkInfo& link = record->Link(ToSide(port));
    if (!link.IsOnline()) return {};
    return {link.Port, link.RemoteGigE};
}

bool DeviceDirectory::LinkOnline(Hid hid, Side side) const
{
    AUDIT_STREAM(RouterAudioRoute,
                 "DeviceManager::LinkOnline " << hid << "Check Primary: " << FlagText(IsPrimary(side)) << "\n");
    const DeviceRecord* record = GetDeviceRecord(hid);
    return record != nullptr && record->IsOnline(side);
}

Hid DeviceDirectory::GetOwner(Hid hid) const
{
    const DeviceRecord* record = mRemote.Find(hid);
    return record == nullptr ? INVALID_HID : record->Owner;
}

bool DeviceDirectory::IsOtherOn(Side side) const
{
    const LinkReport& link = mLinks[ToPort(side)];
    return mLocal.Hid != INVALID_HID && link.IsUp() && link.hid != mLocal.Hid;
}
