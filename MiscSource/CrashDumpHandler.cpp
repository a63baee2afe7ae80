#include "MiscSource/CrashDumpHandler.h"

#include <boost/filesystem.hpp>

#include <client/linux/handler/exception_handler.h>

#include <cstring>
#include <iostream>
#include <unistd.h>

namespace {

/// Runs in the crashed process: only plain writes are safe.
bool OnDump(const google_breakpad::MinidumpDescriptor& descriptor, void*, bool succeeded)
{
    const char* const parts[] = {"MINIDUMP=", descriptor.path(), "\n"};
    for (const char* part : parts) {
        const ssize_t ignored = write(STDERR_FILENO, part, std::strlen(part));
        static_cast<void>(ignored);
    }
    return succeeded;
}

} // namespace

struct CrashDumpHandler::Client
{
    explicit Client(const std::string& path)
        : mDescriptor(path), mHandler(mDescriptor, nullptr, OnDump, nullptr, true, -1)
    {}

    google_breakpad::MinidumpDescriptor mDescriptor;
    google_breakpad::ExceptionHandler mHandler;
};

CrashDumpHandler::CrashDumpHandler(const std::string& directory, const std::string& programPath)
{
    const std::string path = directory + "/" + boost::filesystem::path(programPath).filename().string();
    std::cout << "Google Breakpad dump location: " << path << std::endl;
    boost::filesystem::create_directories(path);
    mClient = std::make_unique<Client>(path);
}

CrashDumpHandler::~CrashDumpHandler() = default;

bool CrashDumpHandler::WritesDumps()
{
    return true;
}
