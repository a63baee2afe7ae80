#include "Utilities/Watch/Listings.h"

#include "Utilities/Watch/Scanner.h"

#include <algorithm>
#include <utility>

namespace watch {

namespace {

struct PortText
{
    std::string_view text;
    Port port;
};

constexpr PortText PortTexts[] = {
    {"ORB PORT ", Port::Orb},
    {"Pri Korvo ", Port::Primary},
    {"Sec Korvo ", Port::Secondary},
    {"UNKNOWN ", Port::Unknown},
};

struct StateText
{
    std::string_view text;
    PatchState state;
    std::string_view name;
};

constexpr StateText StateTexts[] = {
    {"Patch Not Sent", PatchState::NotSent, "not_sent"},
    {"Patch Sent", PatchState::Sent, "sent"},
    {"Patch Awaiting Reply", PatchState::AwaitingReply, "awaiting_reply"},
    {"Patch Retry Sent", PatchState::RetrySent, "retry_sent"},
    {"Patch Success", PatchState::Success, "success"},
    {"Patch Reserved", PatchState::Reserved, "reserved"},
    {"Invalid Patch State", PatchState::Invalid, "invalid"},
};

Port TakePort(Scanner& scanner)
{
    for (const PortText& entry : PortTexts) {
        if (!scanner.Skip(entry.text)) continue;
        // An unknown port has its number after it.
        if (entry.port == Port::Unknown) scanner.Number();
        return entry.port;
    }
    return Port::Unknown;
}

std::string Text(std::string_view text)
{
    return std::string(Trim(text));
}

/// What follows the label, up to the end of its line.
std::optional<std::string_view> LineAfter(Scanner& scanner, std::string_view label)
{
    if (!scanner.Until(label)) return std::nullopt;
    return scanner.Line();
}

/// "HID:2097153(0.32:1 ), Style:1(Input), Idx:3 "
std::optional<AudioPort> TakeAudioPort(Scanner& scanner)
{
    AudioPort port;
    if (!scanner.Skip("HID:")) return std::nullopt;
    const auto number = scanner.Number();
    if (!number || !scanner.Skip("(")) return std::nullopt;
    // The short form of an identity has its own brackets.
    const auto hid = scanner.Until("), Style:");
    if (!hid || !scanner.Number() || !scanner.Skip("(")) return std::nullopt;
    const auto style = scanner.Until("), Idx:");
    if (!style) return std::nullopt;
    const auto index = scanner.Number();
    if (!index) return std::nullopt;
    port.hidNumber = *number;
    port.hid = Text(*hid);
    port.style = Text(*style);
    port.index = *index;
    return port;
}

PatchState StateOf(std::string_view text)
{
    const std::string_view trimmed = Trim(text);
    for (const StateText& entry : StateTexts)
        if (entry.text == trimmed) return entry.state;
    return PatchState::Invalid;
}

/// " GigE:TDM Pri Korvo 3 4 "
SlotList SlotsOf(std::string_view text)
{
    Scanner scanner(text);
    scanner.SkipBlanks();
    SlotList list;
    if (!scanner.Skip("GigE:TDM ")) return list;
    list.port = TakePort(scanner);
    for (scanner.SkipBlanks(); !scanner.IsAtEnd(); scanner.SkipBlanks()) {
        const auto slot = scanner.Number();
        if (slot) {
            list.slots.push_back(*slot);
        } else if (!scanner.Skip("INVALID_TDM_SLOT")) {
            break;
        }
    }
    return list;
}

std::vector<std::string> Words(std::string_view text)
{
    std::vector<std::string> words;
    Scanner scanner(text);
    for (scanner.SkipBlanks(); !scanner.IsAtEnd(); scanner.SkipBlanks())
        words.emplace_back(scanner.Word());
    return words;
}

void TakeRates(Scanner& scanner, Device& device)
{
    const auto line = LineAfter(scanner, " SR ");
    if (!line) return;
    const std::size_t colon = line->find(':');
    device.rate = Text(line->substr(0, colon));
    if (colon != std::string_view::npos) device.rates = Words(line->substr(colon + 1));
}

/// "Pri Rem Address: 0.8.0.254Pri Link true"; of a remote device " Link true" without the name of the link.
std::optional<DeviceLink> TakeLink(Scanner& scanner, std::string_view addressLabel)
{
    const auto line = LineAfter(scanner, addressLabel);
    if (!line) return std::nullopt;
    const std::size_t end = line->find_first_not_of("0123456789.");
    const std::size_t flag = line->find("Link ");
    if (flag == std::string_view::npos) return std::nullopt;
    const auto online = Scanner(line->substr(flag + 5)).Flag();
    if (!online) return std::nullopt;
    return DeviceLink{*online, std::string(line->substr(0, end))};
}

/// The links and rates that both kinds of record have.
std::optional<Device> TakeLinks(Scanner& scanner, Device device)
{
    auto primary = TakeLink(scanner, "Pri Rem Address: ");
    if (!primary) return std::nullopt;
    auto secondary = TakeLink(scanner, "Sec Rem Address: ");
    if (!secondary) return std::nullopt;
    device.primary = std::move(*primary);
    device.secondary = std::move(*secondary);
    if (!device.local) {
        const auto owner = scanner.Until("Owning ROuter ");
        const std::size_t end = scanner.Rest().find(" SR ");
        if (!owner || end == std::string_view::npos) return std::nullopt;
        device.owner = Text(scanner.Rest().substr(0, end));
    }
    TakeRates(scanner, device);
    return device;
}

/// Sample numbers "3" or "3-7".
std::optional<std::pair<std::uint32_t, std::uint32_t>> TakeRange(std::string_view text)
{
    Scanner scanner(Trim(text));
    const auto first = scanner.Number();
    if (!first) return std::nullopt;
    if (!scanner.Skip("-")) return std::pair(*first, *first);
    const auto last = scanner.Number();
    if (!last || *last < *first) return std::nullopt;
    return std::pair(*first, *last);
}

/// "k0:   3       >> bulk: 0      "
std::optional<std::pair<std::string, Run>> ParseRun(std::string_view line)
{
    Scanner scanner(line);
    const auto source = scanner.Until(": ");
    const auto sourceSamples = scanner.Until(" >> ");
    const auto sink = scanner.Until(": ");
    if (!source || !sourceSamples || !sink) return std::nullopt;
    const auto from = TakeRange(*sourceSamples);
    const auto to = TakeRange(scanner.Rest());
    if (!from || !to) return std::nullopt;
    return std::pair(Text(*sink), Run{Text(*source), from->first, from->second, to->first, to->second});
}

/// "Clock Ids: bulk (4) k0 (1) Internal (0)"
std::vector<std::pair<std::uint32_t, std::string>> ParseClockNames(std::string_view line)
{
    std::vector<std::pair<std::uint32_t, std::string>> names;
    Scanner scanner(line);
    if (!scanner.Skip("Clock Ids: ")) return names;
    while (const auto name = scanner.Until(" (")) {
        const auto id = scanner.Number();
        if (!id || !scanner.Skip(")")) break;
        names.emplace_back(*id, Text(*name));
    }
    return names;
}

std::optional<ClockSource> ParseClock(std::string_view line, ClockTable& table)
{
    Scanner scanner(line);
    ClockSource source;
    scanner.SkipBlanks();
    const auto id = scanner.Number();
    scanner.SkipBlanks();
    const auto enabled = scanner.Flag();
    scanner.SkipBlanks();
    const auto measure = scanner.Number();
    if (!id || !enabled || !measure) return std::nullopt;
    source.id = *id;
    source.enabled = *enabled;
    source.measure = *measure;
    const std::string_view state = scanner.Word();
    if (state != "stable" && state != "unstable") return std::nullopt;
    source.stable = state == "stable";
    scanner.SkipBlanks();
    if (scanner.Skip("locking")) source.lock = "locking";
    if (scanner.Skip("locked")) source.lock = "locked";
    scanner.SkipBlanks();
    source.selected = scanner.Skip("[selected");
    if (source.selected && scanner.Skip(", auto-select off")) table.autoSelectOff = true;
    return source;
}

} // namespace

std::string_view Trim(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string_view PortName(Port port)
{
    switch (port) {
    case Port::Orb:
        return "orb";
    case Port::Primary:
        return "primary";
    case Port::Secondary:
        return "secondary";
    default:
        return "unknown";
    }
}

std::string_view PatchStateName(PatchState state)
{
    for (const StateText& entry : StateTexts)
        if (entry.state == state) return entry.name;
    return "invalid";
}

PatchState Patch::Best() const
{
    constexpr PatchState Order[] = {PatchState::Success,       PatchState::Reserved, PatchState::RetrySent,
                                    PatchState::AwaitingReply, PatchState::Sent,     PatchState::NotSent};
    for (const PatchState state : Order)
        if (primary == state || secondary == state) return state;
    return PatchState::Invalid;
}

bool Patch::AwaitsAnswer() const
{
    constexpr auto Awaits = [](PatchState state) {
        return state == PatchState::Sent || state == PatchState::AwaitingReply || state == PatchState::RetrySent;
    };
    return Awaits(primary) || Awaits(secondary);
}

std::optional<Device> ParseDevice(std::string_view text)
{
    Scanner scanner(text);
    Device device;
    if (scanner.Skip("Hid: ")) {
        const auto hid = scanner.Until(", Type: ");
        if (!hid) return std::nullopt;
        device.hid = Text(*hid);
        device.type = Text(scanner.Line());
        return TakeLinks(scanner, std::move(device));
    }
    // A local device has its type first, which may hold blanks; its identity holds none.
    const std::string_view line = Trim(scanner.Line());
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string_view::npos || !scanner.Skip("\tPri Rem Address: ")) return std::nullopt;
    device.local = true;
    device.type = Text(line.substr(0, blank));
    device.hid = Text(line.substr(blank));
    return TakeLinks(scanner = Scanner(text), std::move(device));
}

std::optional<Patch> ParsePatch(std::string_view text)
{
    Scanner scanner(text);
    if (!scanner.Skip("PI  Src ")) return std::nullopt;
    const auto source = TakeAudioPort(scanner);
    if (!source || !scanner.Until("\tDst ")) return std::nullopt;
    const auto destination = TakeAudioPort(scanner);
    if (!destination) return std::nullopt;
    Patch patch;
    patch.source = *source;
    patch.destination = *destination;
    const auto primary = LineAfter(scanner, "\tPri ");
    const auto secondary = LineAfter(scanner, "\tSec ");
    if (!primary || !secondary) return std::nullopt;
    patch.primary = StateOf(*primary);
    patch.secondary = StateOf(*secondary);
    if (const auto list = LineAfter(scanner, "\tPri ")) patch.primaryLink = SlotsOf(*list);
    if (const auto list = LineAfter(scanner, "\tSec ")) patch.secondaryLink = SlotsOf(*list);
    if (const auto list = LineAfter(scanner, "\tSwap ")) patch.swap = SlotsOf(*list);
    return patch;
}

SlotTable ParseSlots(std::string_view text)
{
    SlotTable table;
    std::vector<Slot>* slots = nullptr;
    for (Scanner lines(text); !lines.IsAtEnd();) {
        Scanner line(lines.Line());
        if (line.Skip("Link ")) {
            const auto port = line.Number();
            slots = port && *port < table.size() ? &table[*port] : nullptr;
        } else if (slots && line.Skip("\tSlot ")) {
            const auto number = line.Number();
            line.SkipBlanks();
            const auto hid = line.Skip("Source") ? line.Until(" Port ") : std::nullopt;
            const auto port = line.Number(16);
            if (!number || !hid || !port) continue;
            Slot slot{*number, Text(*hid), *port, {}, 0};
            slot.from.port = TakePort(line);
            line.SkipBlanks();
            if (const auto from = line.Number()) slot.from.slots.push_back(*from);
            slots->push_back(std::move(slot));
        } else if (slots && !slots->empty() && line.Skip("\t\tDest ")) {
            ++slots->back().destinations;
        }
    }
    return table;
}

std::vector<Sink> ParseRoutes(std::string_view text)
{
    std::vector<Sink> sinks;
    for (Scanner lines(text); !lines.IsAtEnd();) {
        auto run = ParseRun(lines.Line());
        if (!run) continue;
        if (sinks.empty() || sinks.back().name != run->first) sinks.push_back({run->first, {}});
        sinks.back().runs.push_back(std::move(run->second));
    }
    std::sort(sinks.begin(), sinks.end(), [](const Sink& a, const Sink& b) { return a.name < b.name; });
    return sinks;
}

ClockTable ParseClocks(std::string_view text)
{
    ClockTable table;
    Scanner lines(text);
    const auto names = ParseClockNames(lines.Line());
    while (!lines.IsAtEnd()) {
        auto source = ParseClock(lines.Line(), table);
        if (!source) continue;
        for (const auto& [id, name] : names)
            if (id == source->id) source->name = name;
        table.sources.push_back(std::move(*source));
    }
    return table;
}

} // namespace watch
