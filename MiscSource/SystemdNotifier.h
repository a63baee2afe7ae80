#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>

/// Tells systemd how the process fares: ready when it is built, stopping when it dies, and in between, if the unit asks
/// for a watchdog, a sign of life twice per watchdog time. The signs come from a timer of the main service, so that a
/// main thread that is stuck gives none and systemd starts the module anew.
///
/// Without systemd, or with a unit that does not listen, it does nothing. Lives on the main thread.
class SystemdNotifier
{
public:
    explicit SystemdNotifier(boost::asio::io_service& mainService);
    ~SystemdNotifier();
    SystemdNotifier(const SystemdNotifier&) = delete;
    SystemdNotifier& operator=(const SystemdNotifier&) = delete;

private:
    void StartTimer();
    void OnTimer();
    static void Tell(const char* state);

    boost::asio::steady_timer mTimer;
    std::chrono::microseconds mPeriod{0};
};
