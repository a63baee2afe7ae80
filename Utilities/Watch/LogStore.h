#pragma once

#include "Utilities/Watch/ShellSession.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>

namespace watch {

/// Milliseconds since 1970.
using Milliseconds = std::int64_t;

struct LogEntry
{
    std::uint64_t number{};
    /// When it came here; the stamp is the module's own.
    Milliseconds time{};
    std::string stamp{};
    std::string_view feature{};
    std::string text{};
};

/// The last lines of the log, and how many there were of each debug feature.
class LogStore
{
public:
    static constexpr std::size_t MaxEntries = 2000;
    static constexpr std::size_t MaxBytes = 512 * 1024;
    static constexpr std::size_t MaxFaults = 200;

    /// @return whether it is a fault.
    bool Add(LogMessage message, Milliseconds now);

    const std::deque<LogEntry>& Entries() const { return mEntries; }
    const std::deque<LogEntry>& Faults() const { return mFaults; }
    const std::map<std::string_view, std::uint64_t>& Counts() const { return mCounts; }
    /// Number of the newest entry; the first has 1.
    std::uint64_t Newest() const { return mNewest; }

private:
    std::deque<LogEntry> mEntries;
    std::deque<LogEntry> mFaults;
    std::size_t mBytes = 0;
    std::uint64_t mNewest = 0;
    std::map<std::string_view, std::uint64_t> mCounts{{"Information", 0}, {"Fault", 0}, {"Assert", 0}};
};

} // namespace watch
