#pragma once

#include <chrono>
#include <functional>
#include <string>

/// How long after its start a shell command is reported, asked to end, killed, and left alone.
struct ShellPatience
{
    std::chrono::milliseconds tell{2000};
    std::chrono::milliseconds terminate{10000};
    std::chrono::milliseconds kill{11000};
    std::chrono::milliseconds leave{12000};
};

/// Runs a command line in the shell and waits for its end as system(3) does, but for a limited time: a command that
/// hangs is killed with all its children, and given up if even that fails. It inherits only the standard descriptors.
/// Any thread; does not log, since the log uses this.
/// @param tell called once, on the caller's thread, when the command takes longer than it should.
/// @return the status as system(3) gives it; that of SIGKILL for one that was given up; -1 if it could not start.
int RunShell(const std::string& line, const std::function<void()>& tell, const ShellPatience& patience = {});
