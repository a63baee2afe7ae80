#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace soak {

/// A thread that sleeps by the clock and does nothing else, at the module's priority: when it is late, the machine has
/// no processor to give, so that others may be late as well.
class BareSleeper
{
public:
    using Clock = std::chrono::steady_clock;
    /// From here on it counts as late; a heartbeat may be late by as much again.
    static constexpr std::chrono::milliseconds LATE{150};

    BareSleeper();
    ~BareSleeper();
    BareSleeper(const BareSleeper&) = delete;
    BareSleeper& operator=(const BareSleeper&) = delete;

    /// By how much it was late at most in the last so many seconds; 0 if it was never late.
    std::chrono::milliseconds GetLateness(std::chrono::seconds within) const;

private:
    void Run();

    mutable std::mutex mMutex;
    std::deque<std::pair<Clock::time_point, std::chrono::milliseconds>> mLate;
    std::atomic<bool> mRunning{true};
    std::thread mThread;
};

} // namespace soak
