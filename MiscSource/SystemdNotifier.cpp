#include "MiscSource/SystemdNotifier.h"

#include "Audit/Audit.h"

#include <cstdint>
#include <cstring>

#include <systemd/sd-daemon.h>

SystemdNotifier::SystemdNotifier(boost::asio::io_service& mainService) : mTimer(mainService)
{
    Tell("READY=1");
    std::uint64_t watchdogUs{};
    // Also 0 if the watchdog is meant for another process.
    if (sd_watchdog_enabled(0, &watchdogUs) <= 0) return;
    mPeriod = std::chrono::microseconds(watchdogUs / 2);
    StartTimer();
}

SystemdNotifier::~SystemdNotifier()
{
    Tell("STOPPING=1");
}

void SystemdNotifier::StartTimer()
{
    mTimer.expires_after(mPeriod);
    mTimer.async_wait([this](const boost::system::error_code& error) {
        if (error) return;
        Tell("WATCHDOG=1");
        StartTimer();
    });
}

void SystemdNotifier::Tell(const char* state)
{
    const int result = sd_notify(0, state);
    if (result < 0) AUDIT_LOG(Fault, "SystemdNotifier: %s not delivered, %s\r\n", state, std::strerror(-result));
}
