#pragma once

#include <memory>
#include <string>

namespace google_breakpad {
class ExceptionHandler;
class MinidumpDescriptor;
} // namespace google_breakpad

/// Leaves a minidump on disk when the process crashes, whatever its thread. The first object of main, built before
/// any other thread exists, and alive until main returns.
class CrashDumpHandler
{
public:
    /// Dumps go to directory/<file name of programPath>, which is made with all its parents; the place is printed on
    /// standard output. @throws boost::filesystem::filesystem_error if it cannot be made.
    CrashDumpHandler(const std::string& directory, const std::string& programPath);
    ~CrashDumpHandler();
    CrashDumpHandler(const CrashDumpHandler&) = delete;
    CrashDumpHandler& operator=(const CrashDumpHandler&) = delete;

private:
    std::unique_ptr<google_breakpad::MinidumpDescriptor> mDescriptor;
    std::unique_ptr<google_breakpad::ExceptionHandler> mHandler;
};
