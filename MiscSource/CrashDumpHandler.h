#pragma once

#include <memory>
#include <string>

/// Leaves a minidump on disk when the process crashes, whatever its thread. The first object of main, built before
/// any other thread exists, and alive until main returns.
class CrashDumpHandler
{
public:
    /// Dumps go to a directory of the program's file name below the given one, made with all its parents; the place is
    /// printed on standard output. @throws boost::filesystem::filesystem_error if it cannot be made.
    CrashDumpHandler(const std::string& directory, const std::string& programPath);
    ~CrashDumpHandler();
    /// Whether this program was built with the dump client; without it a crash leaves nothing.
    static bool WritesDumps();

private:
    struct Client;
    std::unique_ptr<Client> mClient;
};
