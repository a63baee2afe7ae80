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
    AllocationResult Take(const Allocation& allocation)
    {
        mOut = allocation.patch;
        return allocation.result;
    }
    /// Slots in use, then destinations.
    std::pair<std::uint32_t, std::uint32_t> Counts() const
    {
        const LinkAllocation::Counts counts = mAllocation.GetCounts();
        return {counts.slotsInUse, counts.destinations};
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
    EXPECT_EQ(Take(mAllocation.Allocate(SourceA, Link(0, {7, 8}), 1, DestX)), AllocatedNew);
    EXPECT_EQ(mOut.source, Link(0, {7, 8}));
    EXPECT_EQ(mOut.destination, Link(1, {0, 1}));
    EXPECT_EQ(mAllocation.GetSlot(1, 0).mNextSlot, 1u);
    EXPECT_EQ(mAllocation.GetSlot(1, 1).mNextSlot, INVALID_TDM_SLOT);
    EXPECT_EQ(Take(mAllocation.Allocate(SourceB, Link(0, {9, 10}), 1, DestX)), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {2, 3}));
    EXPECT_EQ(Take(mAllocation.Free(SourceA, 1, DestY)), AllocationFailed) << "a stranger frees nothing";
    EXPECT_EQ(Take(mAllocation.Free(SourceA, 1, DestX)), FreedLast);
    EXPECT_EQ(mOut.source, Link(0, {7, 8}));
    EXPECT_EQ(mOut.destination, Link(1, {0, 1}));
    EXPECT_EQ(Take(mAllocation.Allocate(SourceC, Link(0, {1, 2, 3}), 1, DestX)), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {0, 1, 4}));
}

TEST_F(LinkAllocationTest, AFullPortKeepsWhatWasTakenAndGrowsNoFurther)
{
    mAllocation.Allocate(SourceA, Link(0, CountUp(510)), 1, DestX);
    EXPECT_EQ(Take(mAllocation.Allocate(SourceB, Link(0, {1, 2, 3}), 1, DestX)), AllocationFailed);
    EXPECT_EQ(mOut.destination, Link(1, {510, 511}));
    EXPECT_EQ(Counts(), Counted(512, 512));
    EXPECT_EQ(Take(mAllocation.Allocate(SourceC, Link(0, {1}), 1, DestX)), AllocationFailed);
    EXPECT_EQ(Counts(), Counted(512, 512));
    EXPECT_EQ(Take(mAllocation.Free(SourceB, 1, DestX)), FreedLast);
    EXPECT_EQ(Counts(), Counted(510, 510));
    EXPECT_EQ(Take(mAllocation.Allocate(SourceC, Link(0, {}), 1, DestX)), AllocationFailed);
    EXPECT_EQ(Counts(), Counted(510, 510)) << "a source without slots took some";
}

TEST_F(LinkAllocationTest, TheSlotsOfABoxAreBookedInTheirPlacesAndAPortOutOfRangeTouchesNothing)
{
    EXPECT_EQ(Take(mAllocation.Allocate(SourceA, Link(0, {1, 3}), DestX, Link(1, {9, 7}))), AllocatedNew);
    EXPECT_THAT(Listing(), HasSubstr("Link 1\n\tSlot 7  Source192.1:1  Port 1ORB PORT 3\n\t\tDest 192.4:1  Port a\n"));
    EXPECT_EQ(Take(mAllocation.Free(SourceA, Link(0, {1, 3}), Link(1, {9, 7}))), AllocatedNew);
    EXPECT_EQ(Counts(), Counted(0, 0));
    for (const UINT8GIGEPORT port : {UINT8GIGEPORT{3}, UNKNOWN_GIGE_PORT}) {
        EXPECT_EQ(Take(mAllocation.Allocate(SourceA, Link(0, {1}), port, DestX)), AllocationFailed);
        EXPECT_EQ(Take(mAllocation.Allocate(SourceA, Link(0, {1}), DestX, Link(port, {1}))), AllocationFailed);
        EXPECT_EQ(Take(mAllocation.Free(SourceA, port, DestX)), AllocationFailed);
        EXPECT_EQ(Take(mAllocation.Free(SourceA, Link(0, {1}), Link(port, {1}))), AllocationFailed);
    }
    EXPECT_EQ(Counts(), Counted(0, 0));
}

TEST_F(LinkAllocationTest, ASlotThatAnotherSourceTookIsSkipped)
{
    mAllocation.Allocate(SourceA, Link(0, {1, 2, 3}), 1, DestX);
    mAllocation.Allocate(SourceB, Link(0, {9}), DestY, Link(1, {1}));
    EXPECT_EQ(Take(mAllocation.Free(SourceA, 1, DestX)), FreedLast);
    EXPECT_EQ(mOut.destination, Link(1, {0, 2}));
    EXPECT_THAT(Listing(), HasSubstr("\tSlot 1  Source192.2:1 "));
}

TEST_F(LinkAllocationTest, DestinationsHaveALimit)
{
    // Each destination of this source listens to all 512 slots.
    mAllocation.Allocate(SourceA, Link(0, CountUp(512)), 1, DestX);
    std::uint32_t joined = 1;
    while (mAllocation.Allocate(SourceA, Link(0, CountUp(512)), 1, HidPort{joined, 1}).result == AlreadyCarrying)
        ++joined;
    EXPECT_EQ(joined, LinkAllocation::MaxDestinations / 512);
    EXPECT_EQ(Take(mAllocation.Allocate(SourceB, Link(0, {1}), DestX, Link(2, {1}))), AllocationFailed);
    EXPECT_EQ(Take(mAllocation.Free(SourceA, 1, DestX)), AlreadyCarrying);
    EXPECT_EQ(Take(mAllocation.Allocate(SourceB, Link(0, {1}), DestX, Link(2, {1}))), AllocatedNew);
}
