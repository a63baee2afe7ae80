#include "Simulation/Stage/Peer.h"

#include "Simulation/Stage/Deadline.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <utility>

namespace stage {

namespace {

/// Every peer of this process has its own socket in the rig's /tmp.
std::string NextControlPath(const std::string& kind)
{
    static std::atomic<int> sNumber{0};
    return "/tmp/Peer-" + kind + "-" + std::to_string(++sNumber) + ".control";
}

Command MakeCommand(const std::string& kind, const std::string& path, const std::string& networkNamespace,
                    const std::vector<std::string>& options)
{
    Command command{{ProgramPath("Peer"), kind, "--control", path}};
    command.arguments.insert(command.arguments.end(), options.begin(), options.end());
    command.networkNamespace = networkNamespace;
    return command;
}

/// The rest of a line of "received" after its first three words.
std::string BytesOf(const std::string& line)
{
    std::size_t position = 0;
    for (int word = 0; word < 3; ++word)
        position = line.find(' ', position) + 1;
    return line.substr(position);
}

/// A word in wire format, in the form of a received command.
std::string WireWord(const std::string& hex)
{
    const unsigned long value = std::stoul(hex, nullptr, 16);
    char text[16];
    std::snprintf(text, sizeof text, "%02lx %02lx %02lx %02lx", value & 0xFF, value >> 8 & 0xFF, value >> 16 & 0xFF,
                  value >> 24 & 0xFF);
    return text;
}

} // namespace

Peer::Peer(const std::string& kind, const std::string& networkNamespace, const std::vector<std::string>& options,
           Milliseconds patience)
    : Peer(kind, networkNamespace, options, NextControlPath(kind), patience)
{}

Peer::Peer(const std::string& kind, const std::string& networkNamespace, const std::vector<std::string>& options,
           const std::string& path, Milliseconds patience)
    : mProcess(MakeCommand(kind, path, networkNamespace, options))
{
    mProcess.WaitForOutput("ready", 0, patience);
    mControl = std::make_unique<ControlChannel>(path);
}

std::string Peer::WaitFor(unsigned int id, unsigned int count, Milliseconds patience)
{
    const std::string line =
        "wait " + std::to_string(id) + " " + std::to_string(patience.count()) + " " + std::to_string(count);
    const std::string answer = mControl->AskOne(line, patience + Patience);
    if (answer == "timeout") {
        throw NotSeen("command " + std::to_string(id) + " has not come, or not " + std::to_string(count) + " times");
    }
    return BytesOf(answer);
}

std::vector<std::string> Peer::GetReceived(unsigned int id)
{
    std::vector<std::string> lines = mControl->Ask("received " + std::to_string(id));
    for (std::string& line : lines)
        line = BytesOf(line);
    return lines;
}

void Peer::WaitForOneLike(unsigned int id, const std::function<bool(const std::string& bytes)>& accept,
                          Milliseconds patience)
{
    const Deadline deadline(patience);
    for (;;) {
        const std::vector<std::string> received = GetReceived(id);
        if (std::any_of(received.begin(), received.end(), accept)) return;
        WaitFor(id, static_cast<unsigned int>(received.size() + 1), deadline.Left());
    }
}

void Peer::WaitForUpdate(unsigned int id, const std::string& hid, bool present, Milliseconds patience)
{
    // After the 8 bytes of the header come the type, the HID and the address, which is 0 for a device that has gone.
    constexpr std::size_t HidPlace = 9 * 3;
    constexpr std::size_t AddressPlace = 13 * 3;
    constexpr std::size_t WordLength = 4 * 3 - 1;
    const std::string wanted = WireWord(hid);
    const auto isWanted = [&](const std::string& bytes) {
        return bytes.size() >= AddressPlace + WordLength && bytes.substr(HidPlace, WordLength) == wanted &&
               (bytes.substr(AddressPlace, WordLength) != "00 00 00 00") == present;
    };
    WaitForOneLike(id, isWanted, patience);
}

} // namespace stage
