#include "Common/KLV/CommandTimingStats.h"

#include "Audit/Audit.h"
#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/KeyText.h"

#include <algorithm>
#include <string>

namespace {

constexpr std::uint32_t FirstReportMs = 30000;
constexpr std::uint32_t ReportMs = 900000;
constexpr unsigned LogStallMs = 100;
constexpr auto Feature = static_cast<std::uint32_t>(DebugFeature::TimingStatsDebug);

unsigned long ForPrintf(std::uint32_t value)
{
    return value;
}

/// What a key names, after the text of the key itself.
std::string SubjectText(std::uint32_t key)
{
    const std::uint32_t id = key & 0x3FFFFF;
    switch (key >> 27) {
    case 1:
        return "[" + KeyToText(key) + "] " + KeyToText(key & ~(31u << 22));
    case 5:
        return "[" + KeyToText(key) + "] " + CommandIdToText(id);
    default:
        return "[" + KeyToText(key) + "] UNKNOWN";
    }
}

} // namespace

CommandTimingStats& CommandTimingStats::Instance()
{
    static CommandTimingStats sStats;
    return sStats;
}

CommandTimingStats::CommandTimingStats()
    : mTimer(EventTimerManager::Instance().CreateTimer("CommandTimingStats", this, FirstReportMs, 0, 0,
                                                       TimerUnits::Milliseconds))
{
    EventTimerManager::Instance().SetStatistics(this);
    EventTimerManager::Instance().Start(mTimer);
}

CommandTimingStats::~CommandTimingStats()
{
    EventTimerManager::Instance().Stop(mTimer->GetId());
    EventTimerManager::Instance().SetStatistics(nullptr);
}

void CommandTimingStats::RaiseCommandTime(std::uint32_t key, std::uint32_t milliseconds)
{
    std::uint32_t& time = mCommandTimes[key];
    time = std::max(time, milliseconds);
}

void CommandTimingStats::OnTimer(boost::shared_ptr<IEventTimer>)
{
    mTimer->SetInterval(ReportMs, TimerUnits::Milliseconds);
    EventTimerManager::Instance().Start(mTimer);
    Report(false);
}

void CommandTimingStats::RaiseMaxEvents(std::uint32_t count)
{
    mMaxEvents = std::max(mMaxEvents, count);
}

void CommandTimingStats::Report(bool force)
{
    Audit* const audit = Audit::Instance();
    const bool wasOn = audit->IsEnabled(Feature);
    if (force) audit->SetEnabled(Feature, 1);
    if (audit->IsEnabled(Feature)) {
        for (const auto& [key, time] : mCommandTimes) {
            AUDIT_LOG(TimingStatsDebug, "%s, max time %lu mS\n", SubjectText(key).c_str(), ForPrintf(time));
        }
        AUDIT_LOG(TimingStatsDebug,
                  "MaxCommandTime %4lu mS  [ Executing M received commands on a KLV Stream - CommsMgr.DoSelect() ]\n",
                  ForPrintf(mMaxCommandTime));
        AUDIT_LOG(TimingStatsDebug,
                  "MaxEventTime   %4lu mS  [ Processing N elapsed timers - EventTimerMgr.Service() ]\n",
                  ForPrintf(mMaxEventTime));
        AUDIT_LOG(TimingStatsDebug, "MaxLogTime     %4lu mS  [ Writing to log - RemoteCapableAudit::Output() ]\n",
                  ForPrintf(mMaxLogTime));
        AUDIT_LOG(TimingStatsDebug, "MaxActioned    %4lu     [ Max value for M commands in one pass ]\n",
                  ForPrintf(mMaxActioned));
        AUDIT_LOG(TimingStatsDebug, "MaxEvents      %4lu     [ Max value for N events in one pass ]\n",
                  ForPrintf(mMaxEvents));
        AUDIT_LOG(TimingStatsDebug, "Log Stalls     %4lu     [ Number of times writing to log has exceeded %umS ]\n",
                  ForPrintf(mLogStalls), LogStallMs);
    }
    if (force) audit->SetEnabled(Feature, wasOn);
}
