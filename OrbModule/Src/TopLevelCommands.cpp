#include "OrbModule/Inc/TopLevelCommands.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/IoControlCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "OrbModule/Inc/Version.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <sstream>

namespace {

constexpr std::uint32_t LinksDownTimeMs = 30000;

const char* OnOff(std::uint32_t feature)
{
    return Audit::Instance()->IsEnabled(feature) ? "On" : "Off";
}

/// -1 lists all features, any other number flips that one.
void SwitchFeature(int number)
{
    if (number == -1) {
        for (std::uint32_t feature = 0; feature < MaxDebugLevels; ++feature) {
            AUDIT_LOG(Information, "%-3lu  -  %-32s -  %s \r\n", static_cast<unsigned long>(feature),
                      GetFeatureName(feature).data(), OnOff(feature));
        }
        return;
    }
    const auto feature = static_cast<std::uint32_t>(number);
    Audit::Instance()->SetEnabled(feature, !Audit::Instance()->IsEnabled(feature));
    AUDIT_LOG(Information, "%-3d  -  %-32s -  %s \r\n", number, GetFeatureName(feature).data(), OnOff(feature));
}

/// One slot of one port as the shell gives it; the port counts through its low 8 bits.
Routing::GigeAndSlots OneSlot(int port, unsigned long slot)
{
    return {static_cast<UINT8GIGEPORT>(port & 0xFF), {static_cast<std::uint32_t>(slot)}};
}

bool Exists(const Routing::GigeAndSlots& link)
{
    return link.port < Routing::PORT_COUNT && link.slots.front() < Routing::SLOTS_PER_PORT;
}

/// Acts on the FPGA's table alone: no record of a patch changes.
std::string RouteByHand(Patcher& patcher, const LinkPatch& patch, bool make)
{
    if (!Exists(patch.source) || !Exists(patch.destination)) {
        return "Error: ports are 0 to 2 and slots are 0 to 511";
    }
    patcher.ProcessPatchUnpatch(patch, make);
    return {};
}

} // namespace

void AddTopLevelCommands(cmd::CommandLine& shell, const std::string& programName, DeviceManager& devices,
                         PatchController& patches, Patcher& patcher, iOrbKLVComms& comms)
{
    shell.AddAction(
        "rs",
        [&patches] {
            std::ostringstream listing;
            patches.GetLinkAllocation().Print(listing);
            return listing.str();
        },
        "route show,rs Show current patching and link allocations");
    shell.AddAction(
        "version", [programName] { return programName + " " + ORB_MODULE_VERSION; }, "");
    shell.AddAction(
        "sio", [&devices] { devices.ShowDevices(true); }, "Show local and remote I/O devices");
    shell.AddAction(
        "sr", [&devices] { devices.ShowDevices(false); }, "Show local and remote routing devices");
    shell.AddAction(
        "showlinkmap", [&devices](unsigned long hid) { devices.ShowPortMap(Hid{static_cast<std::uint32_t>(hid)}); },
        "Show local TDM link mappings");
    shell.AddAction(
        "db", [](int feature) { SwitchFeature(feature); }, "Set debug level <level>");
    for (const bool make : {true, false}) {
        const std::string name = make ? "patch" : "unpatch";
        shell.AddAction(
            name,
            [&patcher, make](int sourcePort, unsigned long sourceSlot, int destinationPort,
                             unsigned long destinationSlot) {
                const LinkPatch patch{OneSlot(sourcePort, sourceSlot), OneSlot(destinationPort, destinationSlot)};
                return RouteByHand(patcher, patch, make);
            },
            name + " <src> <tdm> <dst> <tdm> patch/unpatch");
    }
    shell.AddAction(
        "spb",
        [&patches](unsigned long hid, unsigned short port, int secondary) {
            patches.SendPortBitmap(Hid{static_cast<std::uint32_t>(hid)}, port, secondary != 0);
        },
        "spb <HID> <Port> <0/1> ");
    shell.AddAction(
        "ssr",
        [&comms](unsigned long hid, int rate) {
            const IoSetSampleRateCmd command(static_cast<SampleRates::SystemSampleRate>(rate),
                                             Hid{static_cast<std::uint32_t>(hid)}, LinksDownTimeMs);
            comms.SendLocal(command, Routing::PRIMARY_PORT);
        },
        "ssr set sample rate <HID> <SampleRates::SystemSampleRate> links down for 30 seconds");
    shell.AddAction(
        "ps", [&patches] { patches.GetPatchStore().Print(); }, "Show Patch Store");
    shell.AddAction(
        "ping", [&devices] { devices.SendPing(); }, "Ping Hubs");
}
