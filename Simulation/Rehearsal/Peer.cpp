#include "Simulation/Rehearsal/Peer.h"

#include <atomic>
#include <utility>

namespace stage {

namespace {

/// Every peer of this process has a socket of its own, in the rig's own /tmp.
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

/// What stands behind the first three words of a line of "received".
std::string BytesOf(const std::string& line)
{
    std::size_t position = 0;
    for (int word = 0; word < 3; ++word)
        position = line.find(' ', position) + 1;
    return line.substr(position);
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

} // namespace stage
