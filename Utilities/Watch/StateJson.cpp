#include "Utilities/Watch/StateJson.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace watch {

namespace {

using Json = nlohmann::json;

/// What comes from the network may be any bytes; JSON takes UTF-8.
std::string Dump(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json Link(const LinkFacts& facts)
{
    return {{"cable", FactName(facts.cable)},
            {"beating", FactName(facts.beating)},
            {"stream", FactName(facts.stream)},
            {"check", FactName(facts.check)},
            {"described", FactName(facts.described)},
            {"neighbour", facts.neighbour},
            {"type", facts.type},
            {"localAddress", facts.localAddress},
            {"remoteAddress", facts.remoteAddress}};
}

Json Side(const DeviceLink& link)
{
    return {{"online", link.online}, {"address", link.address}};
}

Json Slots(const SlotList& list)
{
    return {{"port", PortName(list.port)}, {"slots", list.slots}};
}

Json End(const AudioPort& port)
{
    return {{"hid", port.hid}, {"style", port.style}, {"index", port.index}};
}

Json Watch(const Picture& picture)
{
    return {{"contact", ContactName(picture.GetContact())},
            {"since", picture.ContactSince()},
            {"started", picture.Started()},
            {"taken", picture.Taken()},
            {"shell", picture.ShellAddress()},
            {"information", picture.IsInformationOn()},
            {"sparing", picture.IsSparing()},
            {"longListings", picture.LongListings()},
            {"restarts", picture.Restarts()},
            {"rounds", picture.Rounds()}};
}

Json Module(const Picture& picture)
{
    const LinkTracker& links = picture.Links();
    return {{"version", picture.Version()},
            {"hid", links.ModuleHid()},
            {"updateService", FactName(links.UpdateService())},
            {"network", FactName(links.Network())}};
}

Json Links(const Picture& picture)
{
    const LinkTracker& links = picture.Links();
    return {{"orb", {{"stream", FactName(links.Link(Port::Orb).stream)}}},
            {"primary", Link(links.Link(Port::Primary))},
            {"secondary", Link(links.Link(Port::Secondary))}};
}

Json Devices(const Picture& picture)
{
    Json list = Json::array();
    for (const Device& device : picture.Devices()) {
        list.push_back({{"hid", device.hid},
                        {"type", device.type},
                        {"local", device.local},
                        {"owner", device.owner},
                        {"rate", device.rate},
                        {"rates", device.rates},
                        {"primary", Side(device.primary)},
                        {"secondary", Side(device.secondary)}});
    }
    return list;
}

Json Patches(const Picture& picture)
{
    Json list = Json::array();
    for (const Patch& patch : picture.Patches()) {
        list.push_back(
            {{"source", End(patch.source)},
             {"destination", End(patch.destination)},
             {"state", PatchStateName(patch.Best())},
             {"primary", {{"state", PatchStateName(patch.primary)}, {"link", Slots(patch.primaryLink)}}},
             {"secondary", {{"state", PatchStateName(patch.secondary)}, {"link", Slots(patch.secondaryLink)}}},
             {"swap", Slots(patch.swap)}});
    }
    return list;
}

Json SlotsInUse(const Picture& picture)
{
    Json ports;
    for (std::size_t i = 0; i < PortCount; ++i) {
        Json list = Json::array();
        for (const Slot& slot : picture.Slots()[i]) {
            list.push_back({{"slot", slot.number},
                            {"source", slot.sourceHid},
                            {"sourcePort", slot.sourcePort},
                            {"from", Slots(slot.from)},
                            {"destinations", slot.destinations}});
        }
        ports[std::string(PortName(static_cast<Port>(i)))] = std::move(list);
    }
    return ports;
}

Json Routes(const Picture& picture)
{
    Json list = Json::array();
    for (const Sink& sink : picture.Routes()) {
        Json runs = Json::array();
        std::uint32_t samples = 0;
        for (const Run& run : sink.runs) {
            samples = std::max(samples, run.last + 1);
            if (run.IsSilence()) continue;
            runs.push_back(
                {{"source", run.source}, {"from", {run.sourceFirst, run.sourceLast}}, {"to", {run.first, run.last}}});
        }
        list.push_back({{"sink", sink.name}, {"samples", samples}, {"runs", std::move(runs)}});
    }
    return list;
}

Json Clocks(const Picture& picture)
{
    Json list = Json::array();
    for (const ClockSource& source : picture.Clocks().sources) {
        list.push_back({{"id", source.id},
                        {"name", source.name},
                        {"enabled", source.enabled},
                        {"measure", source.measure},
                        {"stable", source.stable},
                        {"lock", source.lock},
                        {"selected", source.selected || (source.id == 0 && picture.ActiveClock() == "Internal")}});
    }
    return {{"active", picture.ActiveClock()},
            {"autoSelectOff", picture.Clocks().autoSelectOff},
            {"sources", std::move(list)}};
}

Json Entry(const LogEntry& entry)
{
    return {{"number", entry.number},
            {"time", entry.time},
            {"stamp", entry.stamp},
            {"feature", entry.feature},
            {"text", entry.text}};
}

Json Faults(const Picture& picture)
{
    Json list = Json::array();
    for (const LogEntry& entry : picture.Log().Faults())
        list.push_back(Entry(entry));
    return list;
}

} // namespace

std::string SectionJson(const Picture& picture, Section section)
{
    constexpr std::array<Json (*)(const Picture&), SectionCount> Makers = {Watch,      Module, Links,  Devices, Patches,
                                                                           SlotsInUse, Routes, Clocks, Faults};
    return Dump(Makers[static_cast<std::size_t>(section)](picture));
}

std::string LogJson(const LogStore& log, std::uint64_t from, std::size_t most)
{
    Json lines = Json::array();
    const auto& entries = log.Entries();
    const std::uint64_t oldest = log.Newest() - entries.size() + 1;
    std::uint64_t next = std::max(from, oldest);
    for (; next <= log.Newest() && lines.size() < most; ++next)
        lines.push_back(Entry(entries[static_cast<std::size_t>(next - oldest)]));
    return Dump({{"missed", std::max(from, oldest) - from}, {"lines", std::move(lines)}});
}

} // namespace watch
