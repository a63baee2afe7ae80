#include "FSI/Audio/ExternalClockManager.h"

#include <gtest/gtest.h>

namespace {

using audio::ExternalClockManager;
using Clock = ExternalClockManager::Clock;

Clock MakeClock(std::uint32_t id, std::int32_t priority)
{
    Clock clock(id);
    clock.mPriority = priority;
    return clock;
}

TEST(ClockChoice, OrderIsByPriorityThenInternalLastThenId)
{
    const std::vector<Clock> ordered = {MakeClock(7, -1), MakeClock(2, 0), MakeClock(4, 0), MakeClock(0, 0),
                                        MakeClock(1, 5)};
    for (std::size_t i = 0; i < ordered.size(); ++i)
        for (std::size_t j = 0; j < ordered.size(); ++j)
            EXPECT_EQ(ExternalClockManager::ComesBefore(ordered[i], ordered[j]), i < j) << i << " " << j;
}

} // namespace
