#pragma once

#include "Timers/Source/EventTimerManager.h"

#include <cstdint>
#include <map>

/// High-water marks of the process's main loops, reported to the log under TimingStatsDebug: 30 s after the first use
/// and then every 15 minutes. The figures are kept until the process ends. Only the number of timers in one pass is
/// measured; the other lines of the report are 0.
///
/// Lives on the socket thread: the streams feed it there, and the timers are serviced there.
class CommandTimingStats : public IEventTimerHandler, public IEventStatistics
{
public:
    /// Made on first use, which is under the mutex of the loop that serves the timers.
    static CommandTimingStats& Instance();

    /// The command that a stream is about to hand over.
    void SetCurrentKey(std::uint32_t key)
    {
        mInCommand = true;
        mCurrentKey = key;
    }
    /// How long a command took: its line of the report shows the longest. Unused in this module.
    void RaiseCommandTime(std::uint32_t key, std::uint32_t milliseconds);
    /// @param force also while TimingStatsDebug is off.
    void Report(bool force);

    void OnTimer(boost::shared_ptr<IEventTimer> timer) override;
    void SetEventCount(std::uint32_t count) override { mEventCount = count; }
    void RaiseMaxEvents(std::uint32_t count) override;

private:
    CommandTimingStats();
    ~CommandTimingStats() override;

    std::uint32_t mMaxCommandTime = 0;
    std::uint32_t mMaxEventTime = 0;
    std::uint32_t mMaxLogTime = 0;
    std::uint32_t mLogStalls = 0;
    std::uint32_t mMaxActioned = 0;
    std::uint32_t mMaxEvents = 0;
    std::uint32_t mEventCount{};
    bool mInCommand{};
    std::uint32_t mCurrentKey{};
    std::map<std::uint32_t, std::uint32_t> mCommandTimes;
    EventTimerManager::Timer mTimer;
};
