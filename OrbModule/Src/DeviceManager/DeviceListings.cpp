#include "OrbModule/Inc/DeviceManager/DeviceListings.h"

#include "Audit/Audit.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"

#include <map>
#include <sstream>

namespace {

void ShowLocal(const LocalDevice& local)
{
    AUDIT_STREAM(Information,
                 local.Type << ' ' << local.Hid << "\n\tPri Rem Address: " << AddressText(local.Pri.RemoteIp)
                            << "Pri Link " << FlagText(local.Pri.IsOnline()) << "\n\tSec Rem Address: "
                            << AddressText(local.Sec.RemoteIp) << " Sec Link " << FlagText(local.Sec.IsOnline())
                            << "\n SR " << local.SampleRate << ":" << RatesText(local.SampleRates) << "\n");
}

void ShowRemote(const DeviceRecord& record)
{
    AUDIT_STREAM(Information, "Hid: " << record.Hid << ", Type: " << record.Type
                                      << "\n\tPri Rem GigE: " << LinkPortText(record.Pri.RemoteGigE)
                                      << " Pri Rem Address: " << AddressText(record.Pri.RemoteIp) << " Link "
                                      << FlagText(record.Pri.IsOnline())
                                      << "\n\tSec Rem GigE: " << LinkPortText(record.Sec.RemoteGigE)
                                      << " Sec Rem Address: " << AddressText(record.Sec.RemoteIp) << " Link "
                                      << FlagText(record.Sec.IsOnline()) << "\n\tOwning ROuter " << record.Owner
                                      << " SR " << record.SampleRate << ":" << RatesText(record.SampleRates) << "\n");
}

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

void DeviceListings::ShowDevices(const DeviceDirectory& devices, bool io)
{
    AUDIT_LOG(Information, "Local devices:\n");
    if (devices.mLocal.Hid != INVALID_HID && (!io || devices.mLocal.IsIoDevice())) ShowLocal(devices.mLocal);
    AUDIT_LOG(Information, "Remote devices:\n");
    for (const Hid hid : devices.mRemote.GetHids()) {
        const DeviceRecord& record = *devices.mRemote.Find(hid);
        if (io ? record.IsIoDevice() : record.IsRoutingDevice()) ShowRemote(record);
    }
}

void DeviceListings::ShowPortMap(const LocalDevice& local, Hid hid)
{
    ShowPorts("Inputs for device ", hid, local.Inputs);
    ShowPorts("Outputs for device ", hid, local.Outputs);
}
