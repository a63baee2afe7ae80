#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"

#include <utility>

void DeviceInfoStorage::Store(Hid hid, K2Heartbeat::LinkType type, std::shared_ptr<const DeskCommand> command,
                              std::uint32_t slot, std::size_t length)
{
    const auto known = mDevices.find(hid);
    std::size_t replaced = 0;
    if (known != mDevices.end()) {
        const auto old = known->second.Lengths.find(slot);
        if (old != known->second.Lengths.end()) replaced = old->second;
    }
    if ((known == mDevices.end() && mDevices.size() >= mLimits.devices) || mBytes - replaced + length > mLimits.bytes) {
        if (!mLimitReported)
            AUDIT_STREAM(Fault, "Store of device descriptions is full ("
                                    << mDevices.size() << " devices, " << mBytes
                                    << " bytes), ignoring the description of device " << hid
                                    << "and all further ones that do not fit\n");
        mLimitReported = true;
        return;
    }
    Entry& entry = known == mDevices.end() ? mDevices[hid] : known->second;
    if (known == mDevices.end()) entry.Type = type;
    mBytes = mBytes - replaced + length;
    entry.Lengths[slot] = length;
    entry.Commands[slot] = std::move(command);
}

std::optional<DeviceInfoStorage::Device> DeviceInfoStorage::GetDevice(Hid hid) const
{
    const auto found = mDevices.find(hid);
    if (found == mDevices.end() || !found->second.IsComplete()) return std::nullopt;
    return found->second;
}

const DeviceInfoStorage::Entry* DeviceInfoStorage::Find(Hid hid, const char* operation) const
{
    const auto found = mDevices.find(hid);
    if (found != mDevices.end()) return &found->second;
    AUDIT_STREAM(Fault, "DeviceInfoStorage::" << operation << ": Unknown device: " << hid << "\n");
    return nullptr;
}

template <class Command>
std::shared_ptr<const Command> DeviceInfoStorage::GetOnly(Hid hid, const char* operation) const
{
    const Entry* entry = Find(hid, operation);
    if (entry == nullptr) return nullptr;
    const auto command = entry->Commands.find(0);
    if (command == entry->Commands.end()) {
        AUDIT_STREAM(Fault, "DeviceInfoStorage::" << operation << ": Malformed commands for device " << hid << "\n");
        return nullptr;
    }
    return std::dynamic_pointer_cast<const Command>(command->second);
}

std::shared_ptr<const IoInfo> DeviceInfoStorage::GetIoInfo(Hid hid) const
{
    return GetOnly<IoInfo>(hid, "GetIoInfo");
}

std::shared_ptr<const IoInfoK2Mod> DeviceInfoStorage::GetIoInfoK2Mod(Hid hid) const
{
    return GetOnly<IoInfoK2Mod>(hid, "GetIoInfoK2Mod");
}

std::shared_ptr<const RouterInfo> DeviceInfoStorage::GetRouterInfo(Hid hid) const
{
    return GetOnly<RouterInfo>(hid, "GetRouterInfo");
}

std::optional<DeviceInfoStorage::CommandMap> DeviceInfoStorage::GetIoInfoCard(Hid hid) const
{
    const Entry* entry = Find(hid, "GetIoInfoCard");
    if (entry == nullptr || !entry->IsComplete()) return std::nullopt;
    return entry->Commands;
}

void DeviceInfoStorage::EraseDeviceInfo(Hid hid)
{
    AUDIT_STREAM(Information, "DeviceInfoStorage::EraseDeviceInfo: device: " << hid << "\n");
    const auto found = mDevices.find(hid);
    if (found == mDevices.end()) {
        AUDIT_STREAM(Fault, "DeviceInfoStorage::EraseDeviceInfo: Unknown device: " << hid << "\n");
        return;
    }
    for (const auto& length : found->second.Lengths)
        mBytes -= length.second;
    mDevices.erase(found);
}
