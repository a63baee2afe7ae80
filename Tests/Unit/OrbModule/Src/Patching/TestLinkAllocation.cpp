#include "OrbModule/Inc/Patching/LinkAllocation.h"

#include <gmock/gmock.h>

#include <numeric>
#include <sstream>

using Routing::GigeAndSlots;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

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
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {9, 10}), 1, DestX, mOut), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {2, 3}));
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestX, mOut), FreedLast);
    EXPECT_EQ(mOut.source, Link(0, {7, 8}));
    EXPECT_EQ(mOut.destination, Link(1, {0, 1}));
    EXPECT_EQ(mAllocation.Allocate(SourceC, Link(0, {1, 2, 3}), 1, DestX, mOut), AllocatedNew);
    EXPECT_EQ(mOut.destination, Link(1, {0, 1, 4}));
}

TEST_F(LinkAllocationTest, DestinationsOfOneSourceShareItsSlots)
{
    mAllocation.Allocate(SourceA, Link(0, {5, 6}), 2, DestX, mOut);
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {5, 6}), 2, DestY, mOut), AlreadyCarrying);
    EXPECT_EQ(mOut.destination, Link(2, {0, 1}));
    EXPECT_EQ(Counts(), Counted(2, 4));

    EXPECT_EQ(mAllocation.Free(SourceA, 2, DestX, mOut), AlreadyCarrying);
    EXPECT_EQ(mOut.source, GigeAndSlots{});
    EXPECT_EQ(mOut.destination, Link(2, {0, 1}));
    EXPECT_EQ(mAllocation.Free(SourceA, 2, DestY, mOut), FreedLast);
    EXPECT_EQ(Counts(), Counted(0, 0));
    mOut = LinkPatch{Link(2, {99}), Link(2, {99})};
    EXPECT_EQ(mAllocation.Free(SourceA, 2, DestY, mOut), AllocationFailed) << "the table still knows the source";
    EXPECT_EQ(mOut.destination, Link(2, {99})) << "out was touched";
}

TEST_F(LinkAllocationTest, AStrangerFreesNothing)
{
    mAllocation.Allocate(SourceA, Link(0, {5}), 1, DestX, mOut);
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestY, mOut), AllocationFailed);
    EXPECT_THAT(mOut.destination.slots, IsEmpty());
    EXPECT_EQ(Counts(), Counted(1, 1));
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

TEST_F(LinkAllocationTest, LocalFormBooksTheSlotsItIsTold)
{
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {5, 6}), DestX, Link(1, {40, 44}), mOut), AllocatedNew);
    EXPECT_EQ(mOut.source, Link(0, {5, 6}));
    EXPECT_EQ(mOut.destination, Link(1, {40, 44}));
    EXPECT_THAT(Listing(), HasSubstr("Link 1\n\tSlot 40  Source192.1:1  Port 1ORB PORT 5\n\t\tDest 192.4:1  Port a\n"
                                     "\tSlot 44  Source192.1:1  Port 1ORB PORT 6\n"));
    EXPECT_EQ(mAllocation.Free(SourceA, Link(0, {5, 6}), Link(1, {40, 44}), mOut), AllocatedNew);
    EXPECT_EQ(Counts(), Counted(0, 0));
    EXPECT_EQ(mAllocation.Free(SourceA, 1, DestX, mOut), AllocationFailed) << "the table still knows the source";
}

TEST_F(LinkAllocationTest, SlotsAndPortsOutOfRangeTouchNothing)
{
    const Slots wild = {512, INVALID_TDM_SLOT, 7};
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {1, 2, 3}), DestX, Link(1, wild), mOut), AllocatedNew);
    EXPECT_EQ(Counts(), Counted(1, 1));
    EXPECT_THAT(Listing(), HasSubstr("\tSlot 7  Source192.1:1  Port 1ORB PORT 3\n")) << "the place in the list moved";
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

TEST_F(LinkAllocationTest, ASourceWithoutASlotOfItsOwnIsForgotten)
{
    mAllocation.Allocate(SourceA, Link(0, {1}), DestX, Link(1, {20}), mOut);
    mAllocation.Allocate(SourceB, Link(0, {2}), DestX, Link(1, {20}), mOut);
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(0, {1}), 1, DestY, mOut), AllocatedNew) << "A is not in slot 20 now";
    EXPECT_EQ(mAllocation.Free(SourceC, Link(0, {1}), Link(1, {20}), mOut), AllocatedNew);
    EXPECT_EQ(mAllocation.Allocate(SourceB, Link(0, {2}), 1, DestY, mOut), AllocatedNew);
}

TEST_F(LinkAllocationTest, ADeviceThatLeavesGivesUpItsDestinationsAndTheSourcesOfThatLink)
{
    // Source A arrives on link 1 and B on link 2, both for the internal port; C is sent out on link 1.
    mAllocation.Allocate(SourceA, Link(1, {3}), 0, {0x01000001, 1}, mOut);
    mAllocation.Allocate(SourceB, Link(2, {4, 5}), 0, {0x01000001, 2}, mOut);
    mAllocation.Allocate(SourceC, Link(0, {6}), 1, DestX, mOut);
    mAllocation.Allocate(SourceC, Link(0, {6}), 1, DestY, mOut);

    std::vector<LinkPatch> out;
    mAllocation.GetUnpatchesByHidAndPort(SourceB.hid, 1, out);
    EXPECT_THAT(out, IsEmpty()) << "B is heard over the other link";
    mAllocation.GetUnpatchesByHidAndPort(DestX.hid, 1, out);
    EXPECT_THAT(out, IsEmpty()) << "Y still listens";
    EXPECT_EQ(Counts(), Counted(4, 4));
    mAllocation.GetUnpatchesByHidAndPort(SourceA.hid, 1, out);
    mAllocation.GetUnpatchesByHidAndPort(DestY.hid, 1, out);
    mAllocation.GetUnpatchesByHidAndPort(SourceB.hid, 2, out);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(out[0].destination, Link(0, {0}));
    EXPECT_EQ(out[1].destination, Link(1, {0}));
    EXPECT_EQ(out[2].destination, Link(0, {1, 2}));
    for (const LinkPatch& patch : out)
        EXPECT_EQ(patch.source, GigeAndSlots{});
    EXPECT_EQ(Counts(), Counted(0, 0));
    EXPECT_EQ(mAllocation.Allocate(SourceA, Link(1, {3}), 0, DestX, mOut), AllocatedNew);
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
