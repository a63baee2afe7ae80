#include "OrbModule/Inc/DeviceManager/OsRoutes.h"

#include "Audit/Audit.h"

bool OsRoutes::MayRoute(std::uint32_t address) const
{
    const std::uint32_t rack = GetRackId(address);
    if (rack != GetRackId(UNIT_MODULE) && rack != GetRackId(mSelf)) return true;
    AUDIT_STREAM(Fault, "A device reports " << AddressText(address)
                                            << ", which is an address of this unit: its route is left alone\r\n");
    return false;
}

void OsRoutes::AddSlaveLinkDataRoute(Hid hid, Side side)
{
    if (!MayRoute(hid)) return;
    const Routing::PortsEnum port = ToPort(side);
    const std::string command =
        "route add -host " + AddressText(GetPortAddress(hid, port)) + " k2link" + std::to_string(port - 1);
    AUDIT_STREAM(RouterAudioRoute, "AddSlaveLinkDataRoute " << command << "\n");
    mRun(command, "/tmp/addroute.err");
}

void OsRoutes::AddIoRoute(std::uint32_t address, Routing::PortsEnum port)
{
    if (!MayRoute(address)) return;
    const std::string command = "route add -net " + AddressText(address & 0xFFFFFF00) +
                                " netmask 255.255.255.0 k2link" + std::to_string(port - 1);
    AUDIT_STREAM(RouterAudioRoute, "OS ROUTE ADD " << command << "\n");
    mRun(command, "/tmp/addioroute.err");
}

void OsRoutes::DeleteSlaveRoute(Hid hid)
{
    if (!MayRoute(hid)) return;
    const std::string command = "route del -net " + AddressText(hid & 0xFFFF0000) + " netmask 255.255.0.0";
    AUDIT_STREAM(RouterAudioRoute, "OS ROUTE DEL CMD " << command << "\n");
    mRun(command, "/tmp/delroute.err");
}
