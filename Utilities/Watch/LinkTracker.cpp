#include "Utilities/Watch/LinkTracker.h"

#include "Utilities/Watch/Scanner.h"

#include <optional>

namespace watch {

namespace {

constexpr std::string_view NoAddress = "0.0.0.0";

/// "Pri Korvo " and the like.
Port PortOf(Scanner& scanner)
{
    if (scanner.Skip("Pri Korvo ")) return Port::Primary;
    if (scanner.Skip("Sec Korvo ")) return Port::Secondary;
    if (scanner.Skip("ORB PORT ")) return Port::Orb;
    return Port::Unknown;
}

/// "H0", the number of a link rather than of a port.
Port PortOfLink(Scanner& scanner)
{
    if (scanner.Skip("H0")) return Port::Primary;
    if (scanner.Skip("H1")) return Port::Secondary;
    return Port::Unknown;
}

Fact FactOf(bool value)
{
    return value ? Fact::Yes : Fact::No;
}

bool IsRouting(std::string_view type)
{
    return type == "Router" || type == "KorvoHub" || type == "OrbDsp";
}

bool NeedsCheck(std::string_view type)
{
    return type != "Router" && type != "OrbDsp";
}

void SetDescribed(LinkFacts& link)
{
    link.described = Fact::Yes;
    if (link.check != Fact::NotNeeded) link.check = Fact::Yes;
}

/// "0.48" of "0.48:8000".
std::string_view RackOf(std::string_view hid)
{
    return hid.substr(0, hid.find(':'));
}

} // namespace

std::string_view FactName(Fact fact)
{
    constexpr std::string_view Names[] = {"unknown", "no", "underway", "yes", "not_needed"};
    return Names[static_cast<std::size_t>(fact)];
}

void LinkTracker::Reset()
{
    *this = LinkTracker();
}

void LinkTracker::OnMessage(std::string_view text)
{
    Scanner scanner(text);
    if (scanner.Skip("LID: ")) return OnCable(scanner.Rest());
    if (scanner.Skip("DeviceManager::OnDeviceChanged Hid ")) return OnNeighbour(scanner.Rest());
    if (scanner.Skip("OnKLVStreamChanged Port ")) return OnStream(scanner.Rest());
    if (scanner.Skip("Request Software check") || scanner.Skip("Software check underway")) return OnCheck();
    if (scanner.Skip("SystemWithStderr: command:route add -host ")) return OnRoute(scanner.Rest());
    if (scanner.Skip("Setting UDP timeout on Gige port ")) {
        const Port port = PortOfLink(scanner);
        if (port != Port::Unknown) SetDescribed(At(port));
    } else if (scanner.Skip("LinkManager::OnLocalHidChanged Hid Now Is ")) {
        mModuleHid = Trim(scanner.Rest());
    } else if (scanner.Skip("KORVO NETWORK CONNECTION ")) {
        mNetwork = FactOf(scanner.Skip("true"));
    } else if (const auto before = scanner.Until("Heartbeat timeout on "); before && before->size() < 80) {
        const Port port = PortOfLink(scanner);
        if (port != Port::Unknown) At(port).beating = Fact::No;
    }
}

/// "0.18 LG:H0 RID: 0x40(64) RG:H0 LS 1"
void LinkTracker::OnCable(std::string_view rest)
{
    Scanner scanner(rest);
    if (!scanner.Until("LG:")) return;
    const Port port = PortOfLink(scanner);
    const auto hid = scanner.Until("RID: ") ? scanner.Until(" RG:") : std::nullopt;
    const auto state = scanner.Until("LS ") ? scanner.Number(16) : std::nullopt;
    if (port == Port::Unknown || !hid || !state) return;
    At(port).cable = FactOf(*state != 0 && Trim(*hid) != "INVALID_HID");
}

/// "0.32:1  Port Pri Korvo  Local IP 0.8.0.1 Rem IP 0.8.0.254 Link Type KorvoModule "
void LinkTracker::OnNeighbour(std::string_view rest)
{
    Scanner scanner(rest);
    const auto hid = scanner.Until("Port ");
    const Port port = PortOf(scanner);
    const auto local = scanner.Until("Local IP ") ? scanner.Until(" Rem IP ") : std::nullopt;
    const auto remote = scanner.Until(" Link Type ");
    if (!hid || !local || !remote || port == Port::Unknown) return;
    LinkFacts& link = At(port);
    if (*local == NoAddress) {
        link.beating = link.check = link.described = Fact::No;
        link.neighbour.clear();
        link.type.clear();
        link.localAddress.clear();
        link.remoteAddress.clear();
        return;
    }
    link.beating = link.cable = Fact::Yes;
    link.neighbour = Trim(*hid);
    link.type = Trim(scanner.Rest());
    link.localAddress = *local;
    link.remoteAddress = *remote;
    link.check = NeedsCheck(link.type) ? Fact::No : Fact::NotNeeded;
    link.described = Fact::No;
}

/// "Pri Korvo  Stream LOCAL_LINK  Valid true"
void LinkTracker::OnStream(std::string_view rest)
{
    Scanner scanner(rest);
    const Port port = PortOf(scanner);
    const auto type = scanner.Until("Stream ") ? scanner.Until("Valid ") : std::nullopt;
    const auto valid = scanner.Flag();
    if (!type || !valid) return;
    if (Trim(*type) == "UPDATE_LINK") mUpdateService = FactOf(*valid);
    if (port == Port::Unknown || Trim(*type) != "LOCAL_LINK") return;
    At(port).stream = FactOf(*valid);
    if (!*valid) At(port).described = Fact::No;
    if (*valid) mLastStream = port;
}

/// The line has no port: it follows that of the stream whose device is checked.
void LinkTracker::OnCheck()
{
    if (mLastStream != Port::Unknown) At(mLastStream).check = Fact::Underway;
}

/// "0.48.5.0 k2link0, err_file:...": the first line after the description of a routing device.
void LinkTracker::OnRoute(std::string_view rest)
{
    Scanner scanner(rest);
    const std::string_view address = scanner.Word();
    scanner.SkipBlanks();
    if (!scanner.Skip("k2link")) return;
    const auto number = scanner.Number();
    if (!number || *number > 1) return;
    LinkFacts& link = At(*number == 0 ? Port::Primary : Port::Secondary);
    const std::string rack = std::string(RackOf(link.neighbour)) + ".";
    if (IsRouting(link.type) && address.substr(0, rack.size()) == rack) SetDescribed(link);
}

void LinkTracker::OnLocalDevices(const std::vector<Device>& devices)
{
    for (const Port port : {Port::Primary, Port::Secondary}) {
        LinkFacts& link = At(port);
        for (const Device& device : devices) {
            const DeviceLink& side = port == Port::Primary ? device.primary : device.secondary;
            if (!device.local || !side.online) continue;
            link.cable = link.beating = link.stream = Fact::Yes;
            link.neighbour = device.hid;
            link.type = device.type;
            link.remoteAddress = side.address;
            // A routing device is online once it has described itself.
            if (IsRouting(device.type)) SetDescribed(link);
            if (!NeedsCheck(device.type)) link.check = Fact::NotNeeded;
        }
        if (link.stream == Fact::Unknown) link.stream = Fact::No;
    }
    for (const Device& device : devices) {
        // The unit's own Orb router, from which the module has its identity.
        if (device.local || device.type != "OrbDsp" || device.owner != device.hid) continue;
        if (device.primary.address != "1.63.1.0") continue;
        if (mModuleHid.empty()) mModuleHid = device.hid;
        if (At(Port::Orb).stream == Fact::Unknown) At(Port::Orb).stream = Fact::Yes;
    }
}

} // namespace watch
