#include "OrbModule/Inc/Patching/LinkAllocation.h"

#include <gmock/gmock.h>

#include <numeric>
#include <sstream>

using Routing::GigeAndSlots;
using testing::HasSubstr;

namespace {

using Slots = std::vector<std::uint32_t>;

constexpr HidPort SourceA{0xC0010001, 1};
constexpr HidPort SourceB{0xC0020001, 2};
constexpr HidPort SourceC{0xC0030001, 3};
constexpr HidPort DestX{0xC0040001, 10};
constexpr HidPort DestY{0xC0050001, 11};

GigeAndSlots Link(UINT8GIGEPORT port, Slots slots)
{
    return {port, std::move(slots)};
}

Slots CountUp(std::uint32_t count)
{
    Slots slots(count);
    std::iota(slots.begin(), slots.end(), 0u);
    return slots;
}

class LinkAllocationTest : public testing::Test
{
protected:
    /// Slots in use, then destinations.
    std::pair<std::uint32_t, std::uint32_t> Counts() const
    {
        std::pair<std::uint32_t, std::uint32_t> counts;
        mAllocation.GetCounts(counts.first, counts.second);
        return counts;
    }
    std::string Listing() const
    {
        std::ostringstream out;
        mAllocation.Print(out);
        return out.str();
    }

    LinkAllocation mAllocation;
    LinkPatch mOut;
};

using Counted = std::pair<std::uint32_t, std::uint32_t>;

} // namespace

TEST_F(LinkAllocationTest, FirstFitFillsTheGapsOfASourceThatLeft)
{
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {7, 8}), 1, DestX, mOut), AllocatedNew);
    EXPECT_EQ(mOut.source, Link(0, {7, 8}));
    EXPECT_EQ(mOut.destination, Link(1, {0, 1}));
    EXPECT_EQ(mAllocation.GetSlot(1, 0).mNextSlot, 1u);
    EXPECT_EQ(mAllocation.GetSlot(1, 1).mNextSlot, INVALID_TDM_SLOT);
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {9, 10}), 1, DestX, mOut), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {2, 3}));
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestY, mOut), AllocationFailed) << "a stranger frees nothing";
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestX, mOut), FreedLast);
    EXPECT_EQ(mOut.source, Link(0, {7, 8}));
    EXPECT_EQ(mOut.destination, Link(1, {0, 1}));
    EXPECT_EQ(mAllocation.Allocate(SourceC, Link(0, {1, 2, 3}), 1, DestX, mOut), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {0, 1, 4}));
}

TEST_F(LinkAllocationTest, AFullPortKeepsWhatWasTakenAndGrowsNoFurther)
{
    mAllocation.Allocate(SourceA, Link(0, CountUp(510)), 1, DestX, mOut);
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {1, 2, 3}), 1, DestX, mOut), AllocationFailed);
    EXPECT_EQ(mOut.destination, Link(1, {510, 511}));
    EXPECT_EQ(Counts(), Counted(512, 512));
    EXPECT_EQ(mAllocation.Allocate(SourceC, Link(0, {1}), 1, DestX, mOut), AllocationFailed);
    EXPECT_EQ(Counts(), Counted(512, 512));
    EXPECT_EQ(mAllocation.Free(SourceB, 1, DestX, mOut), FreedLast);
    EXPECT_EQ(Counts(), Counted(510, 510));
    EXPECT_EQ(mAllocation.Allocate(SourceC, Link(0, {}), 1, DestX, mOut), AllocationFailed);
    EXPECT_EQ(Counts(), Counted(510, 510)) << "a source without slots took some";
}

TEST_F(LinkAllocationTest, SlotsAndPortsOutOfRangeTouchNothing)
{
    const Slots wild = {512, INVALID_TDM_SLOT, 7};
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {1, 2, 3}), DestX, Link(1, wild), mOut), AllocatedNew);
    EXPECT_EQ(Counts(), Counted(1, 1));
    EXPECT_THAT(Listing(), HasSubstr("Link 1\n\tSlot 7  Source192.1:1  Port 1ORB PORT 3\n\t\tDest 192.4:1  Port a\n"))
        << "the place in the list moved";
    EXPECT_EQ(mAllocation.Free(SourceA, Link(0, {1, 2, 3}), Link(1, wild), mOut), AllocatedNew);
    EXPECT_EQ(Counts(), Counted(0, 0));
    for (const UINT8GIGEPORT port : {UINT8GIGEPORT{3}, UNKNOWN_GIGE_PORT}) {
        EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {1}), port, DestX, mOut), AllocationFailed);
        EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {1}), DestX, Link(port, {1}), mOut), AllocationFailed);
        EXPECT_EQ(mAllocation.Free(SourceA, port, DestX, mOut), AllocationFailed);
        EXPECT_EQ(mAllocation.Free(SourceA, Link(0, {1}), Link(port, {1}), mOut), AllocationFailed);
    }
    EXPECT_EQ(Counts(), Counted(0, 0));
}

TEST_F(LinkAllocationTest, ASlotThatAnotherSourceTookIsSkipped)
{
    mAllocation.Allocate(SourceA, Link(0, {1, 2, 3}), 1, DestX, mOut);
    mAllocation.Allocate(SourceB, Link(0, {9}), DestY, Link(1, {1}), mOut);
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestX, mOut), FreedLast);
    EXPECT_EQ(mOut.destination, Link(1, {0, 2}));
    EXPECT_THAT(Listing(), HasSubstr("\tSlot 1  Source192.2:1 "));
}

TEST_F(LinkAllocationTest, DestinationsHaveALimit)
{
    // Each destination of this source listens to all 512 slots.
    mAllocation.Allocate(SourceA, Link(0, CountUp(512)), 1, DestX, mOut);
    std::uint32_t joined = 1;
    while (mAllocation.Allocate(SourceA, Link(0, CountUp(512)), 1, HidPort{joined, 1}, mOut) == AlreadyCarrying)
        ++joined;
    EXPECT_EQ(joined, LinkAllocation::MaxDestinations / 512);
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {1}), DestX, Link(2, {1}), mOut), AllocationFailed);
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestX, mOut), AlreadyCarrying);
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {1}), DestX, Link(2, {1}), mOut), AllocatedNew);
}
