#pragma once

#include <cstdint>

#include <boost/shared_ptr.hpp>

enum class TimerUnits : std::uint8_t { Microseconds = 0, Milliseconds = 1, Seconds = 2 };

/// A time on the monotonic clock.
struct MonotonicTime
{
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;

    friend bool operator<(const MonotonicTime& a, const MonotonicTime& b)
    {
        return a.seconds != b.seconds ? a.seconds < b.seconds : a.microseconds < b.microseconds;
    }
    /// Milliseconds from b to a.
    friend std::int64_t MillisecondsBetween(const MonotonicTime& a, const MonotonicTime& b)
    {
        return (std::int64_t{a.seconds} - b.seconds) * 1000 + (a.microseconds - b.microseconds) / 1000;
    }
};

/// A timer as its client sees it. It is in the manager's list while it runs; its interval, repeat and user value can be
/// set only while it does not run.
class IEventTimer
{
public:
    virtual ~IEventTimer() = default;

    virtual std::uint32_t GetIntervalMs() const = 0;
    virtual std::uint32_t GetIntervalUs() const = 0;
    /// Not 0: the timer arms itself again.
    virtual std::uint32_t GetRepeat() const = 0;
    virtual std::uint32_t GetUserValue() const = 0;
    virtual std::uint32_t GetId() const = 0;
    virtual bool IsRunning() const = 0;
    virtual void SetInterval(std::uint32_t value, TimerUnits units) = 0;
    virtual void SetRepeat(std::uint32_t value) = 0;
    virtual void SetUserValue(std::uint32_t value) = 0;
    /// Stores how late the timer is at that time.
    virtual void MarkElapsed(const MonotonicTime& now) = 0;
    /// The stored lateness in milliseconds, -1 before there is one.
    virtual std::int32_t GetElapsed() const = 0;
};

/// Called when a timer has elapsed, on the thread that runs the manager's Service. It may start, stop or change any
/// timer. A client stops its timer before its handler goes away.
class IEventTimerHandler
{
public:
    virtual ~IEventTimerHandler() = default;
    virtual void OnTimer(boost::shared_ptr<IEventTimer> timer) = 0;
};
