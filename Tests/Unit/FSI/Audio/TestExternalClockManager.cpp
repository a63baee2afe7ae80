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

TEST(ClockChoice, TheFirstThatIsEnabledAndStableWins)
{
    // A digit is the id of the next clock in order; 'e' after it is enabled, 's' stable.
    const std::pair<const char*, std::uint32_t> cases[] = {{"", 0},           {"4es1es", 4}, {"4e1es", 1},
                                                           {"4s1es", 1},      {"4e1s0e", 0}, {"0es4es", 0},
                                                           {"1e2s3es4es", 3}, {"7es", 7}};
    for (const auto& [text, chosen] : cases) {
        ExternalClockManager::Clocks clocks;
        for (const char* next = text; *next; ++next) {
            if (*next == 'e')
                clocks.back()->mEnabled = true;
            else if (*next == 's')
                clocks.back()->mStable = 1;
            else {
                clocks.push_back(std::make_shared<Clock>(static_cast<std::uint32_t>(*next - '0')));
                clocks.back()->mEnabled = false;
            }
        }
        EXPECT_EQ(ExternalClockManager::ChooseClock(clocks), chosen) << text;
    }
}

} // namespace
