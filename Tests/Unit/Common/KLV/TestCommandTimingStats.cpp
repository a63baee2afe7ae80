#include "Common/KLV/CommandTimingStats.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

/// The statistics are one object for the process, and so is the list of timers: one test for the life of both.
TEST(CommandTimingStats, ReportsOnItsTimer)
{
    static MonotonicTime now{1000, 0};
    EventTimerManager& timers = EventTimerManager::Instance([](MonotonicTime& time) {
        time = now;
        return true;
    });
    LogRecorder log;
    CommandTimingStats& stats = CommandTimingStats::Instance();
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(30, 0));
    now.seconds += 30;
    timers.Service();
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
    EXPECT_EQ(timers.GetTimeToNext(), std::make_pair(900, 0));
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::TimingStatsDebug), 1);
    now.seconds += 900;
    timers.Service();
    EXPECT_EQ(log.Lines().size(), 6u);
    EXPECT_TRUE(log.Has("MaxEvents         1     [ Max value for N events in one pass ]\n"));

    // A report that is forced leaves the feature as it was.
    LogRecorder forced;
    for (const std::uint32_t count : {12345u, 3u})
        stats.RaiseMaxEvents(count);
    for (const auto& [key, time] :
         {std::pair(0x28400339u, 17u), {0x28400339u, 5u}, {0x0FC00005u, 4u}, {0x10041003u, 3u}})
        stats.RaiseCommandTime(key, time);
    stats.Report(true);
    EXPECT_THAT(forced.Lines(),
                testing::ElementsAre(
                    "[EVT:V31:E5] EVT:V0:E5, max time 4 mS\n", "[FEAT:F1:D2:I3] UNKNOWN, max time 3 mS\n",
                    "[CMD:V1:I825] ROUTER_INFO, max time 17 mS\n",
                    "MaxCommandTime    0 mS  [ Executing M received commands on a KLV Stream - CommsMgr.DoSelect() ]\n",
                    "MaxEventTime      0 mS  [ Processing N elapsed timers - EventTimerMgr.Service() ]\n",
                    "MaxLogTime        0 mS  [ Writing to log - RemoteCapableAudit::Output() ]\n",
                    "MaxActioned       0     [ Max value for M commands in one pass ]\n",
                    "MaxEvents      12345     [ Max value for N events in one pass ]\n",
                    "Log Stalls        0     [ Number of times writing to log has exceeded 100mS ]\n"));
    EXPECT_FALSE(Audit::IsOn(DebugFeature::TimingStatsDebug));
}
