#pragma once

#include <chrono>
#include <functional>
#include <string>

/// How long a shell command may take before it is reported, asked to end, killed, and left alone. Each counts from
/// the start.
struct ShellPatience
{
    std::chrono::milliseconds tell{2000};
    std::chrono::milliseconds terminate{10000};
    std::chrono::milliseconds kill{11000};
    std::chrono::milliseconds leave{12000};
};

/// Runs a command line in the shell and waits for its end as system(3) does, but never for ever: one that hangs is
/// ended together with all that it has started, and one that cannot even be killed is left behind. No
/// descriptor of this process but the standard ones reaches it. Any thread; the log is not used, since it uses this.
/// @param tell called once, on the caller's thread, while the command goes on for longer than it should.
/// @return the status as system(3) gives it; that of SIGKILL for a command that is left behind; -1 if none could be
/// started.
int RunShell(const std::string& line, const std::function<void()>& tell, const ShellPatience& patience = {});
