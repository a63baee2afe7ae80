#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "MiscSource/NetworkPorts.h"
#include "MiscSource/SystemUtilities.h"

#include <map>
#include <utility>

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms)
    : DeviceManager(service, comms, SystemWithStderr, Delays(), Limits())
{}

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms, RunCommand run, Delays delays,
                             Limits limits)
    : mIoService(service),
      mActiveTimer(service),
      mComms(&comms),
      mRemote(limits.remoteDevices),
      mDeviceInfo(limits.descriptions),
      mRun(std::move(run)),
      mDelays(delays),
      mLimits(limits)
{
    AUDIT_LOG(Information, "Starting DeviceManager\n");
    mComms->Connect(UNIT_MASTER_CONTROL, Routing::ORB_PORT, NetworkPorts::UPDATE_SERVICE);
}

DeviceRecord* DeviceManager::GetDeviceRecord(Hid hid)
{
    return hid == mLocal.Hid ? &mLocal : mRemote.Find(hid);
}

const DeviceRecord* DeviceManager::GetDeviceRecord(Hid hid) const
{
    return hid == mLocal.Hid ? &mLocal : mRemote.Find(hid);
}

bool DeviceManager::IsDeviceOnline(Hid hid, UINT8GIGEPORT port)
{
    const DeviceRecord* record = GetDeviceRecord(hid);
    return record != nullptr && record->IsOnline(IsPrimaryPort(port));
}

bool DeviceManager::IsLocalIo(Hid hid)
{
    return hid == mLocal.Hid && IsIoHid(hid);
}

bool DeviceManager::IsOwnDevice(Hid hid)
{
    return hid == mOrbIoHid || GetRackId(hid) == GetRackId(mHid);
}

std::vector<std::uint32_t> DeviceManager::GetInputLinkSlot(Hid hid, AudioPortNumber port)
{
    return GetLinkSlot(&LocalDevice::Inputs, "GetInputLinkSlot", hid, port);
}

std::vector<std::uint32_t> DeviceManager::GetOutputLinkSlot(Hid hid, AudioPortNumber port)
{
    return GetLinkSlot(&LocalDevice::Outputs, "GetOutputLinkSlot", hid, port);
}

std::vector<std::uint32_t> DeviceManager::GetLinkSlot(LocalDevice::PortMap LocalDevice::*portMap, const char* operation,
                                                      Hid hid, AudioPortNumber port)
{
    const LocalDevice::PortMap& ports = mLocal.*portMap;
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

DevicePorts DeviceManager::GetDevicePorts(Hid hid, UINT8GIGEPORT port)
{
    AUDIT_STREAM(RouterAudioRoute, "DeviceManager::GetDevicePorts For " << hid << " Port " << PortText(port) << "\n");
    const DeviceRecord* record = GetDeviceRecord(hid);
    if (record == nullptr) {
        AUDIT_STREAM(Fault, "HubDeviceManager::GetDevicePorts: Unknown Device: " << hid << "\n");
        return {};
    }
    const bool isPri = IsPrimaryPort(port);
    if (!record->IsOnline(isPri)) return {};
    return {record->Link(isPri).Port, record->Link(isPri).RemoteGigE};
}

std::uint32_t DeviceManager::GetSlaveAddress(Hid hid, UINT8GIGEPORT port)
{
    return GetPortAddress(GetOwner(hid), port);
}

bool DeviceManager::LinkOnline(Hid hid, bool isPri) const
{
    AUDIT_STREAM(RouterAudioRoute, "DeviceManager::LinkOnline " << hid << "Check Primary: " << FlagText(isPri) << "\n");
    const DeviceRecord* record = GetDeviceRecord(hid);
    return record != nullptr && record->IsOnline(isPri);
}

Hid DeviceManager::GetOwner(Hid hid) const
{
    const DeviceRecord* record = mRemote.Find(hid);
    return record == nullptr ? INVALID_HID : record->Owner;
}

std::optional<std::chrono::milliseconds> DeviceManager::GetIoTimeout(Hid hid) const
{
    if (hid != mLocal.Hid) return std::nullopt;
    return mLocal.IoTimeout;
}

void DeviceManager::ShowLocalDevice() const
{
    AUDIT_STREAM(Information, mLocal.Type
                                  << ' ' << mLocal.Hid << "\n\tPri Rem Address: " << AddressText(mLocal.Pri.RemoteIp)
                                  << "Pri Link " << FlagText(mLocal.Pri.IsOnline()) << "\n\tSec Rem Address: "
                                  << AddressText(mLocal.Sec.RemoteIp) << " Sec Link " << FlagText(mLocal.Sec.IsOnline())
                                  << "\n SR " << mLocal.SampleRate << ":" << RatesText(mLocal.SampleRates) << "\n");
}

void DeviceManager::ShowDevices(bool io)
{
    AUDIT_LOG(Information, "Local devices:\n");
    if (mLocal.Hid != INVALID_HID && (!io || mLocal.IsIoDevice())) ShowLocalDevice();
    AUDIT_LOG(Information, "Remote devices:\n");
    for (const Hid hid : mRemote.GetHids()) {
        const DeviceRecord& record = *mRemote.Find(hid);
        if (io ? !record.IsIoDevice() : !record.IsRoutingDevice()) continue;
        AUDIT_STREAM(Information,
                     "Hid: " << record.Hid << ", Type: " << record.Type
                             << "\n\tPri Rem GigE: " << LinkPortText(record.Pri.RemoteGigE) << " Pri Rem Address: "
                             << AddressText(record.Pri.RemoteIp) << " Link " << FlagText(record.Pri.IsOnline())
                             << "\n\tSec Rem GigE: " << LinkPortText(record.Sec.RemoteGigE)
                             << " Sec Rem Address: " << AddressText(record.Sec.RemoteIp) << " Link "
                             << FlagText(record.Sec.IsOnline()) << "\n\tOwning ROuter " << record.Owner << " SR "
                             << record.SampleRate << ":" << RatesText(record.SampleRates) << "\n");
    }
}

namespace {

void ShowPorts(const char* heading, Hid hid, const LocalDevice::PortMap& ports)
{
    AUDIT_STREAM(Information, heading << hid << ":\n");
    if (!Audit::IsOn(DebugFeature::Information)) return;
    for (const auto& entry : std::map<std::uint16_t, std::vector<std::uint32_t>>(ports.begin(), ports.end())) {
        std::ostringstream line;
        line << 'A' << entry.first << "  ->";
        for (const std::uint32_t slot : entry.second)
            line << ' ' << slot;
        Audit::Instance()->Write("%s\n", line.str().c_str());
    }
}

} // namespace

void DeviceManager::ShowPortMap(Hid hid)
{
    ShowPorts("Inputs for device ", hid, mLocal.Inputs);
    ShowPorts("Outputs for device ", hid, mLocal.Outputs);
}
