#pragma once

#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

/// Lets the log's clock follow the time of the network; the operating system's clock stays. Main thread.
class HardwareManager
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// @param clock tells how far apart the changes are that are logged.
    explicit HardwareManager(std::function<TimePoint()> clock = std::chrono::steady_clock::now)
        : mClock(std::move(clock))
    {}

    void OnNetworkTimeMessage(std::shared_ptr<const NetworkTimeMessage> message);

    /// The offset that the log's clock needs to show the network's time; nothing if it is near enough as it is.
    /// @param system seconds of the system clock; @param offset the log's present offset; @param network the
    /// network's time. All in seconds, compared as unsigned 32-bit words.
    static std::optional<std::int32_t> ComputeOffset(std::uint32_t system, std::int32_t offset, std::uint32_t network);

private:
    /// @return whether the change is to be logged.
    bool CountChange(TimePoint now);

    const std::function<TimePoint()> mClock;
    TimePoint mSecondStart;
    std::uint32_t mChangesInSecond = 0;
};
