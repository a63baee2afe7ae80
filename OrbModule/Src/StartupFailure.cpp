#include "OrbModule/Inc/StartupFailure.h"

#include "Audit/Audit.h"

#include <cstdio>
#include <string>
#include <system_error>

namespace {

constexpr int ExitStartupFailed = 3;

/// Of an error whose text is fixed elsewhere.
std::string AdviceFor(const std::exception& error)
{
    const auto* const block = dynamic_cast<const std::system_error*>(&error);
    if (block && block->code() == std::errc::no_such_device) {
        return ": load the FPGA and its UIO driver, and let /dev/uioN be read and written";
    }
    return {};
}

} // namespace

int ReportStartupFailure(const std::exception& error)
{
    const std::string text = error.what() + AdviceFor(error);
    AUDIT_LOG(Fault, "Start-up failed: %s\r\n", text.c_str());
    std::fprintf(stderr, "OrbModule cannot start: %s\n", text.c_str());
    return ExitStartupFailed;
}
