#include "FSI/Audio/ExternalClockManager.h"
#include "FSI/Audio/K2FsiLink.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using audio::ExternalClockManager;
using Clock = ExternalClockManager::Clock;

constexpr std::uint32_t Good = 1150000;
constexpr std::uint32_t Bad = 1200000;

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

class ClockManager : public testing::Test
{
protected:
    ClockManager()
        : mFsi(std::make_shared<audio::ExternalReferenceFsi>(mBoard.Open("0004"))),
          mManager(std::make_shared<ExternalClockManager>(mService, mFsi))
    {
        mManager->mClockLocked.connect([this](unsigned id) { mLocked.push_back(id); });
    }

    void Measure(std::uint32_t id, std::uint32_t value)
    {
        mBoard.Measure(id, value);
        mFsi->DispatchInterrupts();
    }
    void Event(std::uint32_t event)
    {
        mBoard.RaiseEvent("0004", static_cast<int>(event));
        mFsi->DispatchInterrupts();
    }
    void RunPosted()
    {
        mService.restart();
        mService.poll();
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
    std::shared_ptr<audio::ExternalReferenceFsi> mFsi;
    std::shared_ptr<ExternalClockManager> mManager;
    std::vector<unsigned> mLocked;
};

TEST_F(ClockManager, MeasurementsAreJudgedByTheRangeOfTheRateFamily)
{
    const std::tuple<std::uint32_t, std::uint32_t, bool> cases[] = {
        {1, 1128999, false}, {1, 1129000, true}, {1, 1175000, true}, {1, 1175001, false},
        {0, 1228875, false}, {0, 1228876, true}, {0, 1278876, true}, {0, 1278877, false}};
    for (const auto& [rate, value, isStable] : cases) {
        mManager->SetRateToCheck(rate);
        Measure(3, 1);
        EXPECT_EQ(mManager->GetSelected(), 0u);
        Measure(3, value);
        EXPECT_EQ(mManager->GetSelected(), isStable ? 3u : 0u) << value;
        Event(value % 10 == 0 ? 0 : 1);
        EXPECT_EQ(mManager->GetSelected(), 0u) << "either event of a loss";
    }
    Measure(9, Good);
    EXPECT_EQ(mManager->GetSelected(), 0u) << "an id that cannot be";
}

TEST_F(ClockManager, LockIsGivenUpWithTheThirdMeasurement)
{
    Measure(1, Good);
    Measure(2, Good);
    ASSERT_EQ(mManager->GetSelected(), 1u);
    Measure(1, Good);
    Measure(1, Good);
    EXPECT_EQ(mManager->GetSelected(), 1u);
    Measure(1, Good);
    EXPECT_EQ(mManager->GetSelected(), 2u);
    Measure(1, Good);
    EXPECT_EQ(mManager->GetSelected(), 1u) << "a good measurement makes it a candidate again";
    // An unchanged choice keeps its attempts.
    Measure(2, Bad);
    Measure(1, Good);
    Measure(1, Good);
    mManager->PrioritiseClockSource(audio::ExternalClockSource(1), 3, true);
    RunPosted();
    Event(3);
    Measure(1, Good);
    EXPECT_EQ(mManager->GetSelected(), 0u);
}

TEST_F(ClockManager, TheServoLockCountsMoreThanTheValueOnceAndTheValueAfterThat)
{
    Measure(4, Good);
    mBoard.SetServoLock(true);
    Measure(4, Bad);
    EXPECT_THAT(mLocked, testing::ElementsAre(4));
    Measure(4, Good);
    EXPECT_EQ(mLocked.size(), 1u);
    Measure(4, Bad);
    EXPECT_EQ(mManager->GetSelected(), 0u);
    Measure(0, Good);
    EXPECT_EQ(mLocked.size(), 1u) << "the internal clock has nothing to lock";
}

TEST_F(ClockManager, TheSettleEventIsHeardOnceForEachSelection)
{
    Measure(4, Good);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x30), 0x1Fu);
    Event(3);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x30), 0x17u);
    Measure(1, Good);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x30), 0x1Fu);
}

TEST_F(ClockManager, ALostClockHasNoMeasurementAndOneThatIsNotEnabledIsNotUsed)
{
    Measure(1, Good);
    Event(0);
    std::ostringstream listing;
    listing << *mManager;
    EXPECT_THAT(listing.str(), testing::HasSubstr("  1    true       0 unstable\n"));
    mManager->PrioritiseClockSource(audio::ExternalClockSource(1), 3, false);
    RunPosted();
    Measure(1, Good);
    EXPECT_EQ(mManager->GetSelected(), 0u);
}

TEST_F(ClockManager, WorkThatOutlivesTheManagerDoesNothing)
{
    Measure(4, Good);
    mManager->UseInternalClock();
    mManager.reset();
    RunPosted();
    Measure(4, Good);
    Event(0);
    EXPECT_EQ(mBoard.GetPllSource(), 4u);
}

} // namespace
