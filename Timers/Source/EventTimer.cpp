#include "Timers/Source/EventTimer.h"

namespace {

/// An interval that does not fit 32 bits of microseconds wraps.
std::uint32_t ToMicroseconds(std::uint32_t value, TimerUnits units)
{
    switch (units) {
    case TimerUnits::Milliseconds:
        return value * 1000u;
    case TimerUnits::Seconds:
        return value * 1000000u;
    case TimerUnits::Microseconds:
        break;
    }
    return value;
}

} // namespace

EventTimerImpl::EventTimerImpl(std::uint32_t id, IEventTimerHandler* handler, std::uint32_t interval,
                               std::uint32_t repeat, std::uint32_t userValue, TimerUnits units)
    : mId(id), mHandler(handler), mInterval(ToMicroseconds(interval, units)), mRepeat(repeat), mUserValue(userValue)
{}

void EventTimerImpl::SetInterval(std::uint32_t value, TimerUnits units)
{
    if (!mRunning) mInterval = ToMicroseconds(value, units);
}
