#pragma once

#include "Timers/Source/EventTimer.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <utility>

/// What the manager reports about its passes; the statistics of the process implement it.
class IEventStatistics
{
public:
    virtual ~IEventStatistics() = default;
    /// Timers run so far in this pass.
    virtual void SetEventCount(std::uint32_t count) = 0;
    /// Timers run in a pass that is over.
    virtual void RaiseMaxEvents(std::uint32_t count) = 0;
};

/// The process-wide list of polled timers. The owner of a loop calls Service. Not thread-safe: whoever starts or stops
/// a timer holds the mutex under which that loop runs.
class EventTimerManager
{
public:
    using Timer = boost::shared_ptr<EventTimerProxy>;
    /// Reads the monotonic clock; false if that failed.
    using Clock = std::function<bool(MonotonicTime&)>;

    /// The clock of the system.
    static bool ReadClock(MonotonicTime& time);
    /// @param lastId the id that the first timer counts on from.
    explicit EventTimerManager(std::uint32_t lastId, const Clock& clock = ReadClock) : mClock(clock), mLastId(lastId) {}
    EventTimerManager(const EventTimerManager&) = delete;
    EventTimerManager& operator=(const EventTimerManager&) = delete;

    /// Made on first use, which decides its clock, and never destroyed.
    static EventTimerManager& Instance(bool (*clock)(MonotonicTime&) = ReadClock);

    /// A timer that does not run yet. The name is for the log alone.
    Timer CreateTimer(const std::string& name, IEventTimerHandler* handler, std::uint32_t interval,
                      std::uint32_t repeat, std::uint32_t userValue, TimerUnits units);
    /// Arms the timer; one that runs is moved. False for a null pointer.
    bool Start(const Timer& timer) { return Start(Now(), timer); }
    bool Start(const MonotonicTime& now, const Timer& timer);
    /// False if no timer of that id runs.
    bool Stop(std::uint32_t id);
    bool IsRunning(std::uint32_t id) const;
    /// Seconds and microseconds until the next timer is due, 1 s without one. Overdue gives negative seconds.
    std::pair<std::int32_t, std::int32_t> GetTimeToNext() const;
    /// Runs the timers that are due. A repeating timer of interval 0 runs once a pass.
    void Service();

    /// Null for nobody.
    void SetStatistics(IEventStatistics* statistics) { mStatistics = statistics; }

private:
    MonotonicTime Now() const;
    std::list<Timer>::const_iterator Find(std::uint32_t id) const;
    /// The first timer that is due and has not run in this pass, out of the list; null if there is none.
    Timer TakeDue(const MonotonicTime& now);
    void Run(const MonotonicTime& now, const Timer& timer);
    void EndPass(std::uint32_t events, const MonotonicTime& start);

    std::list<Timer> mTimers;
    const Clock mClock;
    IEventStatistics* mStatistics = nullptr;
    std::uint32_t mPass{};
    std::uint32_t mLastId;
};
