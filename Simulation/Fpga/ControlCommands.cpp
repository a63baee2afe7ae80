#include "Simulation/Fpga/ControlCommands.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <malloc.h>

namespace simulation {

namespace {

using Words = std::vector<std::string>;

std::uint64_t Number(const std::string& word, std::uint64_t maximum, int base = 10)
{
    const char* const digits = base == 16 ? "0123456789abcdefABCDEFxX" : "0123456789";
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(word.c_str(), &end, base);
    if (word.empty() || word.find_first_not_of(digits) != std::string::npos || *end != '\0' || errno != 0 ||
        value > maximum)
        throw std::invalid_argument("'" + word + "' is not a number up to " + std::to_string(maximum));
    return value;
}

bool Switch(const std::string& word)
{
    if (word != "on" && word != "off") throw std::invalid_argument("'" + word + "' is neither on nor off");
    return word == "on";
}

const std::string& BlockName(const SimulatedFpga& board, const std::string& word)
{
    if (!board.HasBlock(word)) throw std::invalid_argument("no block '" + word + "'");
    return word;
}

std::string Hex(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

ControlAnswer Text(const std::string& line)
{
    return {line + "\n", std::nullopt};
}

ControlAnswer Register(SimulatedFpga& board, const Words& words)
{
    const auto offset = static_cast<std::uint32_t>(Number(words[2], SimulatedBlock::Size - 1, 16));
    if (offset % 4 != 0) throw std::invalid_argument("offsets are multiples of 4");
    return Text(Hex(board.GetRegister(BlockName(board, words[1]), offset)));
}

ControlAnswer Table(SimulatedFpga& board, const Words&)
{
    const SimulatedFpga::Table table = board.GetActiveTable();
    ControlAnswer answer;
    for (std::size_t i = 0; i < table.size(); ++i)
        if (table[i] != 0) answer.text += std::to_string(i) + " " + Hex(table[i]) + "\n";
    return answer;
}

ControlAnswer Probe(SimulatedFpga& board, const Words& words)
{
    const auto endpoint = static_cast<std::uint32_t>(Number(words[1], 7));
    const auto sample = static_cast<std::uint32_t>(Number(words[2], 511));
    const std::optional<SimulatedFpga::SampleName> source = board.Probe(endpoint, sample);
    return Text(source ? std::to_string(source->endpoint) + " " + std::to_string(source->sample) : "silence");
}

ControlAnswer Syncs(SimulatedFpga& board, const Words&)
{
    return Text(std::to_string(board.GetSyncs()));
}

ControlAnswer Times(SimulatedFpga& board, const Words&)
{
    const SimulatedFpga::Times times = board.GetTimes();
    return Text(std::to_string(times.request.count()) + " " + std::to_string(times.activation.count()));
}

ControlAnswer Wait(SimulatedFpga&, const Words& words)
{
    if (words[1] != "syncs") throw std::invalid_argument("only syncs can be waited for");
    const std::uint64_t n = Number(words[2], std::numeric_limits<std::uint64_t>::max());
    return {"", SyncWait{n, std::chrono::milliseconds(Number(words[3], std::numeric_limits<std::int32_t>::max()))}};
}

ControlAnswer SyncTime(SimulatedFpga& board, const Words& words)
{
    board.SetSyncTime(std::chrono::microseconds(Number(words[1], std::numeric_limits<std::uint32_t>::max())));
    return {};
}

ControlAnswer Hold(SimulatedFpga& board, const Words& words)
{
    board.SetHold(Switch(words[1]));
    return {};
}

ControlAnswer Complete(SimulatedFpga& board, const Words&)
{
    if (!board.Complete()) throw std::invalid_argument("no sync in progress");
    return {};
}

ControlAnswer Measure(SimulatedFpga& board, const Words& words)
{
    const auto id = static_cast<std::uint32_t>(Number(words[1], 0xFF));
    board.Measure(id, static_cast<std::uint32_t>(Number(words[2], 0xFFFFFF)));
    return {};
}

ControlAnswer ServoLock(SimulatedFpga& board, const Words& words)
{
    board.SetServoLock(Switch(words[1]));
    return {};
}

ControlAnswer Event(SimulatedFpga& board, const Words& words)
{
    const std::string& block = BlockName(board, words[1]);
    board.RaiseEvent(block, static_cast<int>(Number(words[2], 31)));
    return {};
}

ControlAnswer Pll(SimulatedFpga& board, const Words&)
{
    return Text(std::to_string(board.GetPllSource()));
}

ControlAnswer Range(SimulatedFpga& board, const Words&)
{
    const auto [low, high] = board.GetRange();
    return Text(std::to_string(low) + " " + std::to_string(high));
}

/// Bytes that the program has allocated, without free space between them.
ControlAnswer Heap(SimulatedFpga&, const Words&)
{
    const struct mallinfo2 heap = ::mallinfo2();
    const std::size_t bytes = heap.uordblks + heap.hblkhd;
    if (bytes == 0) throw std::invalid_argument("the allocator of this build keeps no count");
    return Text(std::to_string(bytes));
}

struct Command
{
    const char* usage;
    std::size_t words;
    ControlAnswer (*run)(SimulatedFpga&, const Words&);
};

/// The first word of the usage is the command's name.
constexpr std::array<Command, 15> Commands{{{"reg BLOCK OFFSET", 3, Register},
                                            {"table", 1, Table},
                                            {"probe ENDPOINT SAMPLE", 3, Probe},
                                            {"syncs", 1, Syncs},
                                            {"times", 1, Times},
                                            {"wait syncs N MS", 4, Wait},
                                            {"sync-time US", 2, SyncTime},
                                            {"hold on|off", 2, Hold},
                                            {"complete", 1, Complete},
                                            {"measure ID VALUE", 3, Measure},
                                            {"lock on|off", 2, ServoLock},
                                            {"event BLOCK N", 3, Event},
                                            {"pll", 1, Pll},
                                            {"range", 1, Range},
                                            {"heap", 1, Heap}}};

} // namespace

ControlAnswer RunControlCommand(SimulatedFpga& board, const std::string& line)
{
    std::istringstream stream(line);
    Words words;
    for (std::string word; stream >> word;)
        words.push_back(word);
    if (words.empty()) return Text("error: no command");

    const auto command = std::find_if(Commands.begin(), Commands.end(), [&](const Command& candidate) {
        const std::string usage = candidate.usage;
        return usage.substr(0, usage.find(' ')) == words[0];
    });
    if (command == Commands.end()) return Text("error: unknown command '" + words[0] + "'");
    if (words.size() != command->words) return Text(std::string("error: usage: ") + command->usage);
    try {
        return command->run(board, words);
    } catch (const std::invalid_argument& error) {
        return Text(std::string("error: ") + error.what());
    }
}

} // namespace simulation
