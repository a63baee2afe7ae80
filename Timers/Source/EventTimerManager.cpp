#include "Timers/Source/EventTimerManager.h"

#include "Audit/Audit.h"

#include <boost/core/demangle.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <ctime>
#include <memory>
#include <typeinfo>

namespace {

constexpr std::int64_t SlowMs = 2000;
constexpr std::uint32_t ManyEvents = 5;
constexpr std::int32_t MicrosecondsPerSecond = 1000000;

MonotonicTime DueTime(const MonotonicTime& now, std::uint32_t interval)
{
    MonotonicTime due = now;
    due.seconds += static_cast<std::int32_t>(interval / MicrosecondsPerSecond);
    due.microseconds += static_cast<std::int32_t>(interval % MicrosecondsPerSecond);
    if (due.microseconds >= MicrosecondsPerSecond) {
        due.microseconds -= MicrosecondsPerSecond;
        ++due.seconds;
    }
    return due;
}

} // namespace

bool EventTimerManager::ReadClock(MonotonicTime& time)
{
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
    time.seconds = static_cast<std::int32_t>(now.tv_sec);
    time.microseconds = static_cast<std::int32_t>(now.tv_nsec / 1000);
    return true;
}

EventTimerManager& EventTimerManager::Instance(bool (*clock)(MonotonicTime&))
{
    static EventTimerManager& sManager = *std::make_unique<EventTimerManager>(0, clock).release();
    return sManager;
}

EventTimerManager::Timer EventTimerManager::CreateTimer(const std::string& name, IEventTimerHandler* handler,
                                                        std::uint32_t interval, std::uint32_t repeat,
                                                        std::uint32_t userValue, TimerUnits units)
{
    mLastId += mLastId == 0xFFFFFFFF ? 2 : 1;
    AUDIT_LOG(TimingStatsDebug, "New Timer '%s' ID=%lu\n", name.c_str(), static_cast<unsigned long>(mLastId));
    return boost::make_shared<EventTimerProxy>(mLastId, handler, interval, repeat, userValue, units);
}

MonotonicTime EventTimerManager::Now() const
{
    MonotonicTime now;
    if (!mClock(now)) {
        AuditAssertFailed(__FILE__, __LINE__, "CurrentTime.SetToMonotonicTime()");
        now = {};
    }
    return now;
}

bool EventTimerManager::Start(const MonotonicTime& now, const Timer& timer)
{
    if (!timer) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return false;
    }
    Stop(timer->GetId());
    EventTimerImpl& impl = *timer;
    impl.mDue = DueTime(now, impl.mInterval);
    impl.mRunning = true;
    const auto place = std::find_if(mTimers.begin(), mTimers.end(),
                                    [&impl](const Timer& other) { return !(other->mDue < impl.mDue); });
    mTimers.insert(place, timer);
    return true;
}

std::list<EventTimerManager::Timer>::const_iterator EventTimerManager::Find(std::uint32_t id) const
{
    return std::find_if(mTimers.begin(), mTimers.end(), [id](const Timer& timer) { return timer->GetId() == id; });
}

bool EventTimerManager::Stop(std::uint32_t id)
{
    const auto entry = Find(id);
    if (entry == mTimers.end()) return false;
    (*entry)->mRunning = false;
    // A timer is in the list once: Start removes it before it inserts it.
    mTimers.erase(entry);
    return true;
}

bool EventTimerManager::IsRunning(std::uint32_t id) const
{
    const auto entry = Find(id);
    return entry != mTimers.end() && (*entry)->IsRunning();
}

std::pair<std::int32_t, std::int32_t> EventTimerManager::GetTimeToNext() const
{
    if (mTimers.empty()) return {1, 0};
    const MonotonicTime now = Now();
    const MonotonicTime& due = mTimers.front()->mDue;
    std::int32_t seconds = due.seconds - now.seconds;
    std::int32_t microseconds = due.microseconds - now.microseconds;
    if (microseconds < 0) {
        microseconds += MicrosecondsPerSecond;
        --seconds;
    }
    return {seconds, microseconds};
}

void EventTimerManager::Service()
{
    if (mTimers.empty()) return;
    MonotonicTime now;
    MonotonicTime loopStart;
    if (!mClock(now) || !mClock(loopStart)) return;
    if (mStatistics) mStatistics->SetEventCount(0);
    std::uint32_t events = 0;
    ++mPass;
    while (const Timer timer = TakeDue(now)) {
        ++events;
        if (mStatistics) mStatistics->SetEventCount(events);
        Run(now, timer);
    }
    EndPass(events, loopStart);
}

EventTimerManager::Timer EventTimerManager::TakeDue(const MonotonicTime& now)
{
    // The list is looked at afresh for each timer, since handlers change it. A timer runs once a pass: one that is due
    // again at once would keep the pass going for ever.
    for (auto entry = mTimers.begin(); entry != mTimers.end() && !(now < (*entry)->mDue); ++entry) {
        if ((*entry)->mLastPass == mPass) continue;
        Timer timer = *entry;
        mTimers.erase(entry);
        return timer;
    }
    return nullptr;
}

void EventTimerManager::Run(const MonotonicTime& now, const Timer& timer)
{
    EventTimerImpl& impl = *timer;
    impl.mLastPass = mPass;
    const MonotonicTime due = impl.mDue;
    if (impl.mRepeat != 0) {
        Start(now, timer);
    } else {
        impl.mRunning = false;
    }
    MonotonicTime start;
    const bool hasStart = mClock(start);
    if (hasStart) impl.mElapsed = static_cast<std::int32_t>(MillisecondsBetween(start, due));
    IEventTimerHandler& handler = *impl.mHandler;
    // The handler may go away in its call, its name must not.
    const char* const name = typeid(handler).name();
    handler.OnTimer(timer);
    MonotonicTime end;
    if (!mClock(end) || !hasStart) return;
    const std::int64_t took = MillisecondsBetween(end, start);
    if (took > SlowMs) {
        AUDIT_STREAM(Information, "ProcessTimerEvent Object " << boost::core::demangle(name) << " Ms in service call "
                                                              << took << "\r\n");
    }
}

void EventTimerManager::EndPass(std::uint32_t events, const MonotonicTime& start)
{
    MonotonicTime end;
    if (mClock(end) && MillisecondsBetween(end, start) > SlowMs) {
        AUDIT_STREAM(Information, "Timer manager Ms in service loop " << MillisecondsBetween(end, start) << "\r\n");
    }
    if (events > ManyEvents) AUDIT_LOG(TimingStatsDebug, "NumEvents = %lu\n", static_cast<unsigned long>(events));
    if (mStatistics) mStatistics->RaiseMaxEvents(events);
}
