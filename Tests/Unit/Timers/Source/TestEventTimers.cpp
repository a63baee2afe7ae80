#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"
#include "Timers/Source/EventTimerManager.h"

#include <chrono>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <sstream>
#include <vector>

namespace {

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
    /// timer again; "x1" stops it and asks whether it ran; "+5" moves the clock on; "n" is the time to the next timer;
    /// "p" is a pass, seen as the ids of the timers that it runs, with an r for one that still runs, the
    /// statistics, and the first letter of each line in the log.
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
            if (word[0] == 'x') seen << (timers.Stop(number) ? "yes " : "no ");
            if (word[0] == '+') Advance(static_cast<std::int32_t>(number));
            if (word[0] == 'n') seen << timers.GetTimeToNext().first << "." << timers.GetTimeToNext().second << " ";
            if (word[0] != 'p') continue;
            counted = 99;
            const std::size_t logged = log.Lines().size();
            seen << "( ";
            timers.Service();
            for (std::size_t i = logged; i < log.Lines().size(); ++i)
                seen << log.Lines()[i][0];
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
    void RaiseMaxEvents(std::uint32_t count) override { seen << counted << "/" << count << " "; }

    LogRecorder log{DebugFeature::TimingStatsDebug};
    MonotonicTime now{100, 900000};
    EventTimerManager::Clock clock = [this](MonotonicTime& time) {
        time = now;
        return true;
    };
    EventTimerManager timers{0, [this](MonotonicTime& time) { return clock(time); }};
    std::function<void(IEventTimer&)> onTimer;
    std::vector<Timer> held;
    std::ostringstream seen;
    std::uint32_t counted = 0;
};

TEST_F(EventTimers, IdsBeginAt1AndPassOver0)
{
    EXPECT_EQ(Play("t1 t1 +1 p"), "( 2 1 2/2 ) ");
    EventTimerManager late(0xFFFFFFFE);
    for (const std::uint32_t id : {0xFFFFFFFFu, 1u})
        EXPECT_EQ(late.CreateTimer("test", this, 1, 0, 0, TimerUnits::Seconds)->GetId(), id);
    EXPECT_EQ(EventTimerManager::Instance().CreateTimer("test", this, 1, 0, 0, TimerUnits::Seconds)->GetId(), 1u);
}

TEST_F(EventTimers, IntervalsInTheirUnits)
{
    const auto interval = [this](std::uint32_t value, TimerUnits units) {
        const Timer timer = timers.CreateTimer("", this, value, 0, 0, units);
        return Joined(timer->GetIntervalUs(), timer->GetIntervalMs());
    };
    EXPECT_EQ(interval(5, TimerUnits::Seconds), "5000000|5000|");
    EXPECT_EQ(interval(7, TimerUnits::Milliseconds), "7000|7|");
    EXPECT_EQ(interval(1999, TimerUnits::Microseconds), "1999|1|");
    EXPECT_EQ(interval(4295, TimerUnits::Seconds), "32704|32|") << "past 32 bits of microseconds";
}

TEST_F(EventTimers, ATimerTakesNewSettingsOnlyWhileItDoesNotRun)
{
    const Timer timer = timers.CreateTimer("", this, 1, 0, 0, TimerUnits::Seconds);
    const auto set = [&](std::uint32_t value) {
        timer->SetInterval(value, TimerUnits::Milliseconds);
        timer->SetRepeat(value);
        timer->SetUserValue(value);
        return Joined(timer->GetIntervalMs(), timer->GetRepeat(), timer->GetUserValue());
    };
    EXPECT_EQ(set(7), "7|7|7|");
    timers.Start(timer);
    EXPECT_EQ(set(8), "7|7|7|");
    timers.Stop(timer->GetId());
    EXPECT_EQ(set(9), "9|9|9|");
    EXPECT_EQ(timer->GetElapsed(), -1);
    timer->MarkElapsed({101, 0});
    EXPECT_EQ(timer->GetElapsed(), 93) << "7 ms after 100.9 s it was due";
}

TEST_F(EventTimers, RunWhenTheyAreDue)
{
    EXPECT_EQ(Play("n t100 +99 p +1 n p +1000 p"), "1.0 ( 0/0 ) 0.0 ( 1 1/1 ) ( ) ")
        << "due exactly then, and a second is carried";
    EXPECT_EQ(Play("r1100 +1250 p n"), "( 2r 1/1 ) 1.100000 ") << "lateness is not made up";
    EXPECT_EQ(held.back()->GetElapsed(), 150);
    EXPECT_EQ(Play("x2 t20 t10 n t10 t5 +20 p"), "yes 0.10000 ( 6 5 4 3 4/4 ) ")
        << "of equal times the latest armed first";
    // A handler stops another one of the pass.
    onTimer = [&](IEventTimer&) { timers.Stop(7); };
    EXPECT_EQ(Play("t20 t10 +50 p"), "( 8 1/1 ) ");
    EXPECT_EQ(Play("t10 +5 s9 +9 p +1 p x9"), "( 0/0 ) ( 9 1/1 ) no ") << "a start moves a timer, one entry, not two";
    timers.Start({200, 0}, held[8]);
    now = {100, 915000};
    EXPECT_EQ(Play("n +99195 n"), "99.95000 -1.900000 ") << "a tenth of a second late";
    // 920 ms and 80 are a second, no more and no less.
    now = {300, 920000};
    Play("p t80 t0");
    timers.Start({301, 0}, held.back());
    EXPECT_EQ(Play("+80 p"), "( 11 10 2/2 ) ");
}

TEST_F(EventTimers, WithoutAnIntervalOnceAPass)
{
    onTimer = [&](IEventTimer& timer) {
        if (timer.GetId() == 2) timers.Start(held[1]);
    };
    EXPECT_EQ(Play("r0 t0 p p"), "( 2 1r 2/2 ) ( 1r 2 2/2 ) ") << "the clock has not moved";
}

TEST_F(EventTimers, WithoutAClockThereIsNoPassAndNothingIsKnownOfAHandlersTime)
{
    const auto good = clock;
    // Of the reads of a pass, 5000 s apart, one fails. Seen with the lateness.
    const auto passWithout = [&](int failing) {
        clock = good;
        Play("t1");
        clock = [failing, read = 0](MonotonicTime& time) mutable {
            time = {5000 * ++read, 0};
            return read != failing;
        };
        std::string text = Play("p");
        text += std::to_string(held.back()->GetElapsed());
        timers.Stop(held.back()->GetId());
        return text;
    };
    const char* const seenWithout[] = {
        "( 1 1/1 PT) 14899099", "( ) -1", "( ) -1", "( 4 1/1 T) -1", "( 5 1/1 T) 14899099", "( 6 1/1 P) 14899099"};
    for (int read = 0; read < 6; ++read)
        EXPECT_EQ(passWithout(read), seenWithout[read]) << read;

    clock = [this](MonotonicTime& time) {
        time = now;
        return false;
    };
    timers.Start({100, 900000}, held.back());
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(100, 901000)) << "counts as time 0";
    EXPECT_FALSE(timers.Start(nullptr));
    EXPECT_TRUE(log.HasStart("Assert failed in file "));
}

TEST(SystemClock, IsTheMonotonicOne)
{
    using std::chrono::microseconds;
    using std::chrono::steady_clock;
    MonotonicTime time;
    const auto before = std::chrono::floor<microseconds>(steady_clock::now().time_since_epoch());
    EXPECT_TRUE(EventTimerManager::ReadClock(time));
    const microseconds read = std::chrono::seconds(time.seconds) + microseconds(time.microseconds);
    EXPECT_LE(before, read);
    EXPECT_LE(read, steady_clock::now().time_since_epoch());
}

TEST_F(EventTimers, SlowHandlersAndBusyPassesAreReported)
{
    int ms = 0;
    onTimer = [&](IEventTimer&) { Advance(ms); };
    EXPECT_EQ(Play("t0 t0 t0 t0 t0 p"), "( 5 4 3 2 1 5/5 ) ");
    EXPECT_EQ(Play("t0 t0 t0 t0 t0 t0 p"), "( 11 10 9 8 7 6 6/6 N) ");
    EXPECT_EQ(log.Lines().back(), "NumEvents = 6\n");
    ms = 2000;
    EXPECT_EQ(Play("t0 p"), "( 12 1/1 ) ");
    ms = 2001;
    EXPECT_EQ(Play("t0 p"), "( 13 1/1 PT) ");
    const auto lines = log.Lines();
    EXPECT_THAT(lines.end()[-2],
                testing::MatchesRegex("ProcessTimerEvent Object .*EventTimers.* Ms in service call 2001\r\n"));
    EXPECT_EQ(lines.back(), "Timer manager Ms in service loop 2001\r\n");
}

} // namespace
