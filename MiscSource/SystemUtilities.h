#pragma once

#include <string>

/// Runs a shell command, waits for its end, and logs its standard error if it failed. One that hangs is reported,
/// and ended after 10 s. Any thread, with no lock held; two callers with the same file overwrite each other's text.
/// @param errFile takes the command's standard error, overwritten by every call.
/// @return the status as system(3) gives it (exit code 1 is 256), 0 for success; -1 if it cannot be run.
int SystemWithStderr(const std::string& command, const std::string& errFile);
