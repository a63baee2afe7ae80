#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>

/// Reports to systemd: ready when it is built, stopping when it is destroyed, and in between, if the unit has a
/// watchdog, a keep-alive twice per watchdog time. A timer of the main service sends it, so that systemd restarts a
/// module whose main thread is stuck.
///
/// Without systemd, or with a unit that does not listen, it does nothing. Lives on the main thread.
class SystemdNotifier
{
public:
    explicit SystemdNotifier(boost::asio::io_service& mainService);
    ~SystemdNotifier();

private:
    void StartTimer();
    static void Tell(const char* state);

    boost::asio::steady_timer mTimer;
    std::chrono::microseconds mPeriod{};
};
