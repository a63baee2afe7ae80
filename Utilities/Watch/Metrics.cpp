#include "Utilities/Watch/Metrics.h"

#include <fstream>
#include <map>
#include <sstream>
#include <utility>

#include <unistd.h>

namespace watch {

namespace {

using Label = std::pair<std::string_view, std::string_view>;

class Exposition
{
public:
    void Family(std::string_view name, std::string_view type, std::string_view help)
    {
        mName = name;
        mText << "# HELP " << name << ' ' << help << "\n# TYPE " << name << ' ' << type << '\n';
    }
    template <class Value>
    void Sample(Value value, std::initializer_list<Label> labels = {})
    {
        mText << mName;
        char separator = '{';
        for (const Label& label : labels) {
            mText << separator << label.first << "=\"" << Escaped(label.second) << '"';
            separator = ',';
        }
        mText << (labels.size() != 0 ? "} " : " ") << value << '\n';
    }
    std::string Text() const { return mText.str(); }

private:
    static std::string Escaped(std::string_view text)
    {
        std::string escaped;
        for (const char c : text) {
            if (c == '\\' || c == '"') escaped += '\\';
            if (c == '\n') {
                escaped += "\\n";
            } else {
                // Identities and names are plain text; what else the network brings must not break the format.
                escaped += static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7e ? '?' : c;
            }
        }
        return escaped;
    }

    std::string_view mName;
    std::ostringstream mText;
};

void AddContact(Exposition& out, const Picture& picture, Milliseconds now)
{
    out.Family("orbmodule_up", "gauge", "Whether the module's shell answers.");
    out.Sample(picture.GetContact() == Contact::Live ? 1 : 0);
    out.Family("orbmodule_info", "gauge", "The module's program and version, and its identity on the network.");
    out.Sample(1, {{"version", picture.Version()}, {"hid", picture.Links().ModuleHid()}});
    out.Family("orbmodule_restarts_total", "counter", "Times that the module's shell went away and came back.");
    out.Sample(picture.Restarts());
    out.Family("orbmodule_picture_age_seconds", "gauge",
               "Age of the listings that the other figures come from; -1 if there are none.");
    out.Sample(picture.Taken() == 0 ? -1.0 : static_cast<double>(now - picture.Taken()) / 1000);
}

void AddLinks(Exposition& out, const Picture& picture)
{
    constexpr Port Links[] = {Port::Primary, Port::Secondary};
    out.Family("orbmodule_link_up", "gauge", "Whether a neighbour is heard on the link and has its stream.");
    for (const Port port : Links) {
        const LinkFacts& link = picture.Links().Link(port);
        out.Sample(link.beating == Fact::Yes && link.stream == Fact::Yes ? 1 : 0, {{"link", PortName(port)}});
    }
    out.Family("orbmodule_link_neighbour_info", "gauge", "Who is at the far end of the link.");
    for (const Port port : Links) {
        const LinkFacts& link = picture.Links().Link(port);
        if (link.neighbour.empty()) continue;
        out.Sample(1, {{"link", PortName(port)}, {"hid", link.neighbour}, {"type", link.type}});
    }
    out.Family("orbmodule_devices", "gauge", "Devices in reach, by type and by the link on which they are online.");
    std::map<std::pair<std::string_view, std::string_view>, std::size_t> counts;
    for (const Device& device : picture.Devices()) {
        if (device.primary.online) ++counts[{device.type, PortName(Port::Primary)}];
        if (device.secondary.online) ++counts[{device.type, PortName(Port::Secondary)}];
    }
    for (const auto& [labels, count] : counts)
        out.Sample(count, {{"type", labels.first}, {"link", labels.second}});
}

void AddPatches(Exposition& out, const Picture& picture)
{
    std::map<PatchState, std::size_t> states{
        {PatchState::Success, 0}, {PatchState::Reserved, 0}, {PatchState::Sent, 0}, {PatchState::NotSent, 0}};
    std::size_t redundant = 0;
    for (const Patch& patch : picture.Patches()) {
        ++states[patch.Best()];
        const auto isReady = [](PatchState state) {
            return state == PatchState::Success || state == PatchState::Reserved;
        };
        if (isReady(patch.primary) && isReady(patch.secondary)) ++redundant;
    }
    out.Family("orbmodule_patches", "gauge", "Patches by the better of their states on the two links.");
    for (const auto& [state, count] : states)
        out.Sample(count, {{"state", PatchStateName(state)}});
    out.Family("orbmodule_patches_redundant", "gauge", "Patches that work or are reserved on both links.");
    out.Sample(redundant);
    out.Family("orbmodule_slots_in_use", "gauge", "TDM slots in use, of 512 of each port.");
    for (std::size_t i = 0; i < PortCount; ++i)
        out.Sample(picture.Slots()[i].size(), {{"port", PortName(static_cast<Port>(i))}});
    out.Family("orbmodule_fpga_routed_samples", "gauge", "Samples of a sink of the FPGA that have a source.");
    for (const Sink& sink : picture.Routes()) {
        std::size_t samples = 0;
        for (const Run& run : sink.runs)
            if (!run.IsSilence()) samples += run.Length();
        out.Sample(samples, {{"sink", sink.name}});
    }
}

void AddClocks(Exposition& out, const Picture& picture)
{
    const auto each = [&](auto value) {
        for (const ClockSource& source : picture.Clocks().sources) {
            const std::string id = std::to_string(source.id);
            out.Sample(value(source), {{"id", id}, {"source", source.id == 0 ? "Internal" : source.name}});
        }
    };
    out.Family("orbmodule_clock_selected", "gauge", "1 for the clock source that is selected.");
    each([&](const ClockSource& source) {
        const bool isInternal = source.id == 0 && picture.ActiveClock() == "Internal";
        return source.selected || isInternal ? 1 : 0;
    });
    out.Family("orbmodule_clock_stable", "gauge", "Whether the clock source was measured inside its range.");
    each([](const ClockSource& source) { return source.stable ? 1 : 0; });
    out.Family("orbmodule_clock_locked", "gauge", "Whether the servo loop has locked to the clock source.");
    each([](const ClockSource& source) { return source.lock == "locked" ? 1 : 0; });
    out.Family("orbmodule_clock_measure", "gauge", "Last measurement of the clock source.");
    each([](const ClockSource& source) { return source.measure; });
}

void AddLog(Exposition& out, const Picture& picture)
{
    out.Family("orbmodule_log_lines_total", "counter",
               "Lines of the module's log, listings left out, by debug feature as far as the text tells.");
    for (const auto& [feature, count] : picture.Log().Counts())
        out.Sample(count, {{"feature", feature}});
}

void AddOwn(Exposition& out, const Picture& picture, const OwnFigures& own)
{
    out.Family("orbwatch_rounds_total", "counter", "Rounds of listings that were read.");
    out.Sample(picture.Rounds());
    out.Family("orbwatch_sparing", "gauge", "Whether the next round waits to spare the module's log.");
    out.Sample(picture.IsSparing() ? 1 : 0);
    out.Family("orbwatch_listings_in_flight", "gauge", "Rounds of listings in flight, 0 or 1.");
    out.Sample(own.listingsInFlight);
    out.Family("orbwatch_viewers", "gauge", "Open event streams.");
    out.Sample(own.viewers);
    out.Family("orbwatch_http_requests_total", "counter", "HTTP requests answered.");
    out.Sample(own.requests);

    long pages{};
    std::ifstream("/proc/self/statm") >> pages >> pages;
    out.Family("process_resident_memory_bytes", "gauge", "Resident memory size in bytes.");
    out.Sample(pages * sysconf(_SC_PAGESIZE));
    std::ifstream stat("/proc/self/stat");
    std::string word;
    // utime and stime are the fields 14 and 15; the name of the program, field 2, has no blank.
    for (int field = 1; field < 14; ++field)
        stat >> word;
    long user{};
    long system{};
    stat >> user >> system;
    out.Family("process_cpu_seconds_total", "counter", "Total user and system CPU time spent in seconds.");
    out.Sample(static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK)));
}

} // namespace

std::string MetricsText(const Picture& picture, const OwnFigures& own, Milliseconds now)
{
    Exposition out;
    AddContact(out, picture, now);
    AddLinks(out, picture);
    AddPatches(out, picture);
    AddClocks(out, picture);
    AddLog(out, picture);
    AddOwn(out, picture, own);
    return out.Text();
}

} // namespace watch
