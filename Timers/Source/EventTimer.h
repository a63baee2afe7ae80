#pragma once

#include "Timers/Source/IEventTimer.h"

#include <string>

/// The state of one timer.
class EventTimerImpl : public IEventTimer
{
public:
    EventTimerImpl(std::uint32_t id, IEventTimerHandler* handler, std::uint32_t interval, std::uint32_t repeat,
                   std::uint32_t userValue, TimerUnits units);

    std::uint32_t GetIntervalMs() const override { return mInterval / 1000; }
    std::uint32_t GetIntervalUs() const override { return mInterval; }
    std::uint32_t GetRepeat() const override { return mRepeat; }
    std::uint32_t GetUserValue() const override { return mUserValue; }
    std::uint32_t GetId() const override { return mId; }
    bool IsRunning() const override { return mRunning; }
    void SetInterval(std::uint32_t value, TimerUnits units) override;
    void SetRepeat(std::uint32_t value) override;
    void SetUserValue(std::uint32_t value) override;
    void MarkElapsed(const MonotonicTime& now) override;
    std::int32_t GetElapsed() const override { return mElapsed; }

private:
    friend class EventTimerManager;

    const std::uint32_t mId;
    IEventTimerHandler* const mHandler;
    bool mRunning = false;
    std::uint32_t mInterval;
    std::uint32_t mRepeat;
    std::uint32_t mUserValue;
    MonotonicTime mDue;
    std::int32_t mElapsed = -1;
    /// The manager's pass in which the timer ran last.
    std::uint32_t mLastPass = 0;
};

/// What clients hold: every operation goes to the state inside.
class EventTimerProxy : public IEventTimer
{
public:
    EventTimerProxy(std::uint32_t id, IEventTimerHandler* handler, std::uint32_t interval, std::uint32_t repeat,
                    std::uint32_t userValue, TimerUnits units)
        : mImpl(id, handler, interval, repeat, userValue, units)
    {}

    std::uint32_t GetIntervalMs() const override { return mImpl.GetIntervalMs(); }
    std::uint32_t GetIntervalUs() const override { return mImpl.GetIntervalUs(); }
    std::uint32_t GetRepeat() const override { return mImpl.GetRepeat(); }
    std::uint32_t GetUserValue() const override { return mImpl.GetUserValue(); }
    std::uint32_t GetId() const override { return mImpl.GetId(); }
    bool IsRunning() const override { return mImpl.IsRunning(); }
    void SetInterval(std::uint32_t value, TimerUnits units) override { mImpl.SetInterval(value, units); }
    void SetRepeat(std::uint32_t value) override { mImpl.SetRepeat(value); }
    void SetUserValue(std::uint32_t value) override { mImpl.SetUserValue(value); }
    void MarkElapsed(const MonotonicTime& now) override { mImpl.MarkElapsed(now); }
    std::int32_t GetElapsed() const override { return mImpl.GetElapsed(); }

private:
    friend class EventTimerManager;

    EventTimerImpl mImpl;
};
