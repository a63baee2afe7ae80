#include "Simulation/Stage/ShellClient.h"

namespace stage {

namespace {

constexpr char EndMark[] = "end-of-reply";

} // namespace

ShellClient::ShellClient(std::uint16_t port, const std::string& address, Milliseconds patience)
    : mStream(ByteStream::ConnectTcp({}, address, port))
{
    mGreeting = mStream.TakeThrough("Type 'cmd --help' to find out more about 'cmd'.\n", patience);
}

void ShellClient::StopTailing(Milliseconds patience)
{
    Type("tail false");
    // The log line about the command comes first, if it comes at all; the reply follows.
    Type(EndMark);
    mStream.TakeThrough("true\nunrecognised command '" + std::string(EndMark) + "'\n", patience);
}

std::string ShellClient::Ask(const std::string& line, Milliseconds patience)
{
    const std::string mark = "unrecognised command '" + std::string(EndMark) + "'\n";
    Type(line);
    Type(EndMark);
    std::string reply = mStream.TakeThrough(mark, patience);
    reply.resize(reply.size() - mark.size());
    return reply;
}

} // namespace stage
