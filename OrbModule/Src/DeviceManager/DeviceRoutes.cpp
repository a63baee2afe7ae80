#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"

// The routes are not tracked: adding one that exists fails, which the log tells and nothing depends on.

namespace {

/// The routes of the unit's internal network and of the module's own rack are not for what others report: without them
/// the module would lose its unit.
bool MayRoute(std::uint32_t address, Hid self)
{
    const std::uint32_t rack = GetRackId(address);
    if (rack != GetRackId(UNIT_MODULE) && rack != GetRackId(self)) return true;
    AUDIT_STREAM(Fault, "A device reports " << AddressText(address)
                                            << ", which is an address of this unit: its route is left alone\r\n");
    return false;
}

} // namespace

void DeviceManager::AddSlaveLinkDataRoute(Hid hid, bool isPri)
{
    if (!MayRoute(hid, mHid)) return;
    const UINT8GIGEPORT port = isPri ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT;
    const std::string command =
        "route add -host " + AddressText(GetPortAddress(hid, port)) + " k2link" + (isPri ? "0" : "1");
    AUDIT_STREAM(RouterAudioRoute, "AddSlaveLinkDataRoute " << command << "\n");
    mRun(command, "/tmp/addroute.err");
}

void DeviceManager::AddIoRoute(std::uint32_t address, UINT8GIGEPORT port)
{
    if (!MayRoute(address, mHid)) return;
    const std::string command = "route add -net " + AddressText(address & 0xFFFFFF00) +
                                " netmask 255.255.255.0 k2link" + std::to_string(port - 1);
    AUDIT_STREAM(RouterAudioRoute, "OS ROUTE ADD " << command << "\n");
    mRun(command, "/tmp/addioroute.err");
}

void DeviceManager::DeleteSlaveRoute(Hid hid)
{
    if (!MayRoute(hid, mHid)) return;
    const std::string command = "route del -net " + AddressText(hid & 0xFFFF0000) + " netmask 255.255.0.0";
    AUDIT_STREAM(RouterAudioRoute, "OS ROUTE DEL CMD " << command << "\n");
    mRun(command, "/tmp/delroute.err");
}
