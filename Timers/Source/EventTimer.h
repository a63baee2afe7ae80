#pragma once

#include "Timers/Source/IEventTimer.h"

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
    void SetRepeat(std::uint32_t value) override
    {
        if (!mRunning) mRepeat = value;
    }
    void SetUserValue(std::uint32_t value) override
    {
        if (!mRunning) mUserValue = value;
    }
    void MarkElapsed(const MonotonicTime& now) override
    {
        mElapsed = static_cast<std::int32_t>(MillisecondsBetween(now, mDue));
    }
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

/// What clients hold.
class EventTimerProxy : public EventTimerImpl
{
public:
    using EventTimerImpl::EventTimerImpl;
};
