#pragma once

#include "Simulation/Stage/ByteStream.h"

#include <string>

namespace stage {

constexpr std::uint16_t ShellPort = 55555;

/// A service engineer at the module's shell. As a client begins, it tails the log and gets its replies as log
/// lines; StopTailing changes to direct replies.
class ShellClient
{
public:
    /// Connects and reads the greeting.
    explicit ShellClient(std::uint16_t port = ShellPort, const std::string& address = "127.0.0.1",
                         Milliseconds patience = Patience);

    const std::string& Greeting() const { return mGreeting; }

    /// Sends one line as a telnet client does, with "\r\n".
    void Type(const std::string& line) { mStream.Send(line + "\r\n"); }
    /// "tail false", and waits until no more log lines come on this connection.
    void StopTailing(Milliseconds patience = Patience);
    /// The whole direct reply to a line, empty if there is none. Only after StopTailing. The shell has no prompt:
    /// the end of the reply is where the reply to a second line begins, which no command answers to.
    std::string Ask(const std::string& line, Milliseconds patience = Patience);

    ByteStream& Stream() { return mStream; }

private:
    ByteStream mStream;
    std::string mGreeting;
};

} // namespace stage
