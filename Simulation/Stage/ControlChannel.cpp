#include "Simulation/Stage/ControlChannel.h"

#include <array>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace stage {

namespace {

std::string RouteText(const std::optional<Sample>& source)
{
    return source ? source->Text() : "silence";
}

} // namespace

std::string Sample::Text() const
{
    return std::to_string(endpoint) + " " + std::to_string(sample);
}

ControlChannel::ControlChannel(const std::string& path) : mStream(ByteStream::ConnectUnix(path)) {}

std::vector<std::string> ControlChannel::Ask(const std::string& command, Milliseconds patience)
{
    const Deadline deadline(patience);
    mStream.Send(command + "\n");
    std::vector<std::string> lines;
    for (;;) {
        std::string line = mStream.TakeThrough("\n", deadline.Left());
        line.pop_back();
        if (line == ".") break;
        lines.push_back(std::move(line));
    }
    if (!lines.empty() && lines.front().rfind("error: ", 0) == 0) {
        throw std::runtime_error("'" + command + "' on the control channel: " + lines.front());
    }
    return lines;
}

std::string ControlChannel::AskOne(const std::string& command, Milliseconds patience)
{
    const std::vector<std::string> lines = Ask(command, patience);
    if (lines.size() != 1) {
        throw std::runtime_error("'" + command + "' on the control channel gave " + std::to_string(lines.size()) +
                                 " lines");
    }
    return lines.front();
}

std::uint32_t ControlChannel::Register(const std::string& block, unsigned int offset)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%x", offset);
    return static_cast<std::uint32_t>(std::stoul(AskOne("reg " + block + " " + text.data()), nullptr, 16));
}

void ControlChannel::WaitForRegister(const std::string& block, unsigned int offset, std::uint32_t mask,
                                     std::uint32_t value, Milliseconds patience)
{
    const Deadline deadline(patience);
    while ((Register(block, offset) & mask) != value) {
        if (deadline.HasPassed()) throw NotSeen("a register of block " + block + " has not changed");
    }
}

std::optional<Sample> ControlChannel::Probe(Sample sink)
{
    const std::string answer = AskOne("probe " + sink.Text());
    if (answer == "silence") return std::nullopt;
    Sample source;
    std::istringstream text(answer);
    if (!(text >> source.endpoint >> source.sample)) throw std::runtime_error("probe gave '" + answer + "'");
    return source;
}

unsigned long ControlChannel::Syncs()
{
    return std::stoul(AskOne("syncs"));
}

void ControlChannel::WaitForSyncs(unsigned long count, Milliseconds patience)
{
    const std::string command = "wait syncs " + std::to_string(count) + " " + std::to_string(patience.count());
    const std::vector<std::string> answer = Ask(command, patience + Patience);
    if (!answer.empty() && answer.front() == "timeout") {
        throw NotSeen("the table was activated " + std::to_string(Syncs()) + " times, and " + std::to_string(count) +
                      " were awaited");
    }
}

void ControlChannel::WaitForRoute(Sample sink, std::optional<Sample> source, Milliseconds patience)
{
    const Deadline deadline(patience);
    for (;;) {
        const unsigned long syncs = Syncs();
        const std::optional<Sample> found = Probe(sink);
        if (found == source) return;
        try {
            WaitForSyncs(syncs + 1, deadline.Left());
        } catch (const NotSeen&) {
            throw NotSeen("sample " + sink.Text() + " of the FPGA's table is fed by " + RouteText(found) + ", and " +
                          RouteText(source) + " was awaited");
        }
    }
}

} // namespace stage
