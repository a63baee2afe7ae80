#include "Tests/Support/LogRecorder.h"
#include "Timers/Source/EventTimerManager.h"

#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <sstream>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Timer = EventTimerManager::Timer;

/// A manager on a clock that only the test moves, and a handler that writes down what runs.
class EventTimers : public testing::Test, public IEventTimerHandler, public IEventStatistics
{
protected:
    EventTimers() { timers.SetStatistics(this); }

    void Advance(std::int32_t ms)
    {
        now.seconds += (now.microseconds / 1000 + ms) / 1000;
        now.microseconds = (now.microseconds / 1000 + ms) % 1000 * 1000;
    }
    /// Plays a script and gives what was seen. "t5" starts a new timer of 5 ms, "r5" a repeating one, "s1" the first
    /// timer again; "+5" moves the clock on; "p" is a pass, seen as the ids of the timers that it runs, with an r for
    /// one that still runs; "n" is the time to the next timer.
    std::string Play(const std::string& script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            const auto number = static_cast<std::uint32_t>(std::atoi(word.c_str() + 1));
            if (word[0] == 't' || word[0] == 'r') {
                held.push_back(timers.CreateTimer("test", this, number, word[0] == 'r', 0, TimerUnits::Milliseconds));
                timers.Start(held.back());
            }
            EXPECT_TRUE(word[0] != 's' || timers.Start(held[number - 1]));
            if (word[0] == '+') Advance(static_cast<std::int32_t>(number));
            if (word[0] == 'n') seen << timers.GetTimeToNext().first << "." << timers.GetTimeToNext().second << " ";
            if (word[0] != 'p') continue;
            seen << "( ";
            timers.Service();
            seen << ") ";
        }
        std::string text = seen.str();
        seen.str("");
        return text;
    }
    void OnTimer(boost::shared_ptr<IEventTimer> timer) override
    {
        EXPECT_EQ(timer->IsRunning(), timers.IsRunning(timer->GetId()));
        seen << timer->GetId() << (timer->IsRunning() ? "r " : " ");
        if (onTimer) onTimer(*timer);
    }
    void SetEventCount(std::uint32_t count) override { counted = count; }
    void RaiseMaxEvents(std::uint32_t count) override { passes.push_back(count); }

    MonotonicTime now{100, 900000};
    bool clockFails = false;
    EventTimerManager::Clock clock = [this](MonotonicTime& time) {
        time = now;
        return !clockFails;
    };
    EventTimerManager timers{0, [this](MonotonicTime& time) { return clock(time); }};
    std::function<void(IEventTimer&)> onTimer;
    std::vector<Timer> held;
    std::ostringstream seen;
    std::uint32_t counted = 99;
    std::vector<std::uint32_t> passes;
};

TEST_F(EventTimers, IdsBeginAt1AndPassOver0)
{
    EXPECT_EQ(Play("t1 t1 +1 p"), "( 2 1 ) ");
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

TEST_F(EventTimers, RunWhenTheyAreDue)
{
    EXPECT_EQ(Play("n t100 +99 p +1 p +1000 p"), "1.0 ( ) ( 1 ) ( ) ") << "due exactly then, and a second is carried";
    EXPECT_EQ(Play("r100 +250 p n"), "( 2r ) 0.100000 ") << "lateness is not made up";
    EXPECT_EQ(held.back()->GetElapsed(), 150);
    EXPECT_THAT(passes, ElementsAre(0, 1, 1)) << "none of an empty list";
    timers.Stop(2);
    EXPECT_EQ(Play("t20 t10 t10 t5 +20 p"), "( 6 5 4 3 ) ") << "of equal times the latest armed first";
    EXPECT_EQ(counted, 4u);
    // A handler stops another one of the pass.
    onTimer = [&](IEventTimer&) { timers.Stop(7); };
    EXPECT_EQ(Play("t20 t10 +50 p"), "( 8 ) ");
    EXPECT_EQ(Play("t10 +5 s9 +9 p +1 p"), "( ) ( 9 ) ") << "a start moves a timer";
    EXPECT_FALSE(timers.Stop(9)) << "one entry, not two";
    timers.Start({200, 0}, held[8]);
    now = {100, 915000};
    EXPECT_EQ(Play("n +99195 n"), "99.95000 -1.900000 ") << "a tenth of a second late";
    // 920 ms and 80 are a second, no more and no less.
    now = {300, 920000};
    Play("p t80 t0");
    timers.Start({301, 0}, held.back());
    EXPECT_EQ(Play("+80 p"), "( 11 10 ) ");
}

TEST_F(EventTimers, WithoutAnIntervalOnceAPass)
{
    onTimer = [&](IEventTimer& timer) {
        if (timer.GetId() == 2) timers.Start(held[1]);
    };
    EXPECT_EQ(Play("r0 t0 p p"), "( 2 1r ) ( 1r 2 ) ") << "the clock has not moved";
    EXPECT_THAT(passes, ElementsAre(2, 2));
}

TEST_F(EventTimers, NoClock)
{
    LogRecorder log;
    Play("t1");
    clockFails = true;
    EXPECT_EQ(Play("p"), "( ) ");
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(100, 901000)) << "counts as time 0";
    EXPECT_FALSE(timers.Start(nullptr));
    EXPECT_TRUE(log.HasStart("Assert failed in file "));

    clock = [reads = 0](MonotonicTime& time) mutable {
        time = {5000, 0};
        return ++reads != 3;
    };
    EXPECT_EQ(Play("p"), "( 1 ) ");
    EXPECT_FALSE(log.HasStart("ProcessTimerEvent")) << "nobody knows when the handler began";
}

TEST_F(EventTimers, SlowHandlersAndBusyPassesAreReported)
{
    LogRecorder log({DebugFeature::TimingStatsDebug});
    const auto pass = [&](std::int32_t ms, std::uint32_t count) {
        onTimer = [this, ms](IEventTimer&) { Advance(ms); };
        while (count-- > 0)
            Play("t0");
        const auto before = static_cast<std::ptrdiff_t>(log.Lines().size());
        Play("p");
        const auto lines = log.Lines();
        return std::vector<std::string>(lines.begin() + before, lines.end());
    };
    EXPECT_THAT(pass(0, 5), IsEmpty());
    EXPECT_THAT(pass(2000, 1), IsEmpty());
    EXPECT_THAT(pass(0, 6), ElementsAre("NumEvents = 6\n"));
    EXPECT_THAT(pass(2001, 1), ElementsAre(testing::MatchesRegex(
                                               "ProcessTimerEvent Object .*EventTimers.* Ms in service call 2001\r\n"),
                                           "Timer manager Ms in service loop 2001\r\n"));
}

} // namespace
