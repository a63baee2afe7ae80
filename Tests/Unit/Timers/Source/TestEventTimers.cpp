#include "Tests/Support/LogRecorder.h"
#include "Timers/Source/EventTimerManager.h"

#include <functional>
#include <gmock/gmock.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Timer = EventTimerManager::Timer;

/// A manager on a clock that stands still until the test moves it, and a handler that writes down what runs.
class EventTimers : public testing::Test, public IEventTimerHandler, public IEventStatistics
{
protected:
    EventTimers()
    {
        timers.SetClock([this](MonotonicTime& time) {
            if (clockFails) return false;
            time = now;
            return true;
        });
        timers.SetStatistics(this);
    }

    Timer Create(std::uint32_t ms, std::uint32_t repeat = 0)
    {
        return timers.CreateTimer("test", this, ms, repeat, 0, TimerUnits::Milliseconds);
    }
    Timer Started(std::uint32_t ms, std::uint32_t repeat = 0)
    {
        Timer timer = Create(ms, repeat);
        timers.Start(timer);
        return timer;
    }
    void Advance(std::int32_t ms)
    {
        now.seconds += (now.microseconds / 1000 + ms) / 1000;
        now.microseconds = (now.microseconds / 1000 + ms) % 1000 * 1000;
    }
    /// The ids of the timers that run in a pass.
    std::vector<std::uint32_t> Pass()
    {
        ran.clear();
        timers.Service();
        return ran;
    }
    void OnTimer(boost::shared_ptr<IEventTimer> timer) override
    {
        ran.push_back(timer->GetId());
        if (onTimer) onTimer(*timer);
    }
    void SetEventCount(std::uint32_t count) override { counted = count; }
    void RaiseMaxEvents(std::uint32_t count) override { passes.push_back(count); }

    MonotonicTime now{100, 900000};
    bool clockFails = false;
    EventTimerManager timers;
    std::function<void(IEventTimer&)> onTimer;
    std::vector<std::uint32_t> ran;
    std::uint32_t counted = 99;
    std::vector<std::uint32_t> passes;
};

TEST_F(EventTimers, IdsBeginAt1AndPassOver0)
{
    EXPECT_EQ(Create(1)->GetId(), 1u);
    EXPECT_EQ(Create(1)->GetId(), 2u);
    EventTimerManager late(0xFFFFFFFE);
    for (const std::uint32_t id : {0xFFFFFFFFu, 1u})
        EXPECT_EQ(late.CreateTimer("test", this, 1, 0, 0, TimerUnits::Seconds)->GetId(), id);
}

TEST_F(EventTimers, IntervalsInTheirUnits)
{
    const std::tuple<std::uint32_t, TimerUnits, std::uint32_t> cases[] = {
        {5, TimerUnits::Seconds, 5000000},
        {7, TimerUnits::Milliseconds, 7000},
        {1999, TimerUnits::Microseconds, 1999},
        {4295, TimerUnits::Seconds, 32704}, // past 32 bits of microseconds
    };
    for (const auto& [value, units, us] : cases) {
        const Timer timer = timers.CreateTimer("", this, value, 0, 0, units);
        EXPECT_EQ(timer->GetIntervalUs(), us);
        EXPECT_EQ(timer->GetIntervalMs(), us / 1000);
    }
}

TEST_F(EventTimers, AOneShotRunsOnceWhenItIsDue)
{
    bool wasRunning = true;
    onTimer = [&](IEventTimer& timer) { wasRunning = timer.IsRunning() || timers.IsRunning(timer.GetId()); };
    const Timer timer = Started(100);
    Advance(99);
    EXPECT_THAT(Pass(), IsEmpty());
    Advance(1); // due exactly now, and a second has been carried
    EXPECT_THAT(Pass(), ElementsAre(1));
    EXPECT_FALSE(wasRunning);
    Advance(1000);
    EXPECT_THAT(Pass(), IsEmpty());
}

TEST_F(EventTimers, ARepeatingTimerCountsFromThePassThatRanIt)
{
    bool wasRunning = false;
    onTimer = [&](IEventTimer& timer) { wasRunning = timer.IsRunning() && timers.IsRunning(timer.GetId()); };
    const Timer timer = Started(100, 1);
    Advance(250);
    EXPECT_THAT(Pass(), ElementsAre(1)) << "lateness is not made up";
    EXPECT_TRUE(wasRunning);
    EXPECT_EQ(timer->GetElapsed(), 150);
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(0, 100000));
    EXPECT_THAT(passes, ElementsAre(1));
}

TEST_F(EventTimers, EqualTimesRunTheLatestArmedFirst)
{
    Started(20);
    Started(10);
    Started(10);
    Started(5);
    Advance(20);
    EXPECT_THAT(Pass(), ElementsAre(4, 3, 2, 1));
    EXPECT_EQ(counted, 4u);
    // 920 ms and 80 are a second, no more and no less.
    Started(80);
    timers.Start({101, 0}, Create(0));
    Advance(80);
    EXPECT_THAT(Pass(), ElementsAre(6, 5));
    // A handler stops another one of the pass.
    Started(20);
    Started(10);
    onTimer = [&](IEventTimer&) { timers.Stop(7); };
    Advance(50);
    EXPECT_THAT(Pass(), ElementsAre(8));
}

TEST_F(EventTimers, StartMovesARunningTimer)
{
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(1, 0)) << "no timer";
    const Timer timer = Started(10);
    Advance(5);
    EXPECT_TRUE(timers.Start(timer));
    Advance(9);
    EXPECT_THAT(Pass(), IsEmpty());
    Advance(1);
    EXPECT_THAT(Pass(), ElementsAre(1));
    EXPECT_FALSE(timers.Stop(1)) << "one entry, not two";
    timers.Start({200, 0}, timer);
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(99, 95000));
    Advance(99195);
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(-1, 900000)) << "a tenth of a second late";
}

TEST_F(EventTimers, WithoutAnIntervalOnceAPass)
{
    Started(0, 1);
    const Timer again = Started(0);
    onTimer = [&](IEventTimer& timer) {
        if (timer.GetId() == 2) timers.Start(again);
    };
    EXPECT_THAT(Pass(), ElementsAre(2, 1));
    EXPECT_THAT(Pass(), ElementsAre(1, 2)) << "the clock has not moved";
    EXPECT_THAT(passes, ElementsAre(2, 2));
}

TEST_F(EventTimers, NoClock)
{
    LogRecorder log;
    Started(1);
    clockFails = true;
    EXPECT_THAT(Pass(), IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(100, 901000)) << "counts as time 0";
    EXPECT_FALSE(timers.Start(nullptr));
    EXPECT_TRUE(log.HasStart("Assert failed in file "));

    timers.SetClock([reads = 0](MonotonicTime& time) mutable {
        if (++reads == 3) return false;
        time = {5000, 0};
        return true;
    });
    EXPECT_THAT(Pass(), ElementsAre(1));
    EXPECT_FALSE(log.HasStart("ProcessTimerEvent")) << "nobody knows when the handler began";
}

TEST_F(EventTimers, SlowHandlersAndBusyPassesAreTold)
{
    LogRecorder log({DebugFeature::TimingStatsDebug});
    const auto lines = [&](std::int32_t ms, std::uint32_t count) {
        onTimer = [this, ms](IEventTimer&) { Advance(ms); };
        std::vector<Timer> held;
        for (std::uint32_t i = 0; i < count; ++i)
            held.push_back(Started(0));
        const std::size_t before = log.Lines().size();
        Pass();
        const auto all = log.Lines();
        return std::vector<std::string>(all.begin() + static_cast<long>(before), all.end());
    };
    EXPECT_THAT(lines(2000, 1), IsEmpty());
    const auto slow = lines(2001, 1);
    ASSERT_EQ(slow.size(), 2u);
    EXPECT_THAT(slow[0], testing::MatchesRegex("ProcessTimerEvent Object .*EventTimers.* Ms in service call 2001\r\n"));
    EXPECT_EQ(slow[1], "Timer manager Ms in service loop 2001\r\n");
    EXPECT_THAT(lines(0, 5), IsEmpty());
    EXPECT_THAT(lines(0, 6), ElementsAre("NumEvents = 6\n"));
}

} // namespace
