#include "OrbModule/Inc/Patching/LinkAllocation.h"

#include "Tests/Support/RecordingComms.h"

#include <gmock/gmock.h>

#include <numeric>

using testing::HasSubstr;

namespace {

constexpr HidPort SourceA{0xC0010001, 1};
constexpr HidPort SourceB{0xC0020001, 2};
constexpr HidPort SourceC{0xC0030001, 3};
constexpr HidPort DestX{0xC0040001, 10};
constexpr HidPort DestY{0xC0050001, 11};
constexpr const char* Nothing = "failed 255[] to 255[]";

/// "new 0[7 8] to 1[0 1]"
std::string Text(const Allocation& allocation)
{
    static const std::string results[] = {"new ", "carrying ", "failed ", "last "};
    return results[allocation.result] + LinkText(allocation.patch.source) + " to " +
           LinkText(allocation.patch.destination);
}

Routing::GigeAndSlots CountUp(std::uint32_t count)
{
    std::vector<std::uint32_t> slots(count);
    std::iota(slots.begin(), slots.end(), 0u);
    return {0, slots};
}

class LinkAllocationTest : public testing::Test
{
protected:
    /// Of slots in use, each with one destination.
    void ExpectCount(std::uint32_t count) const
    {
        EXPECT_EQ(mAllocation.GetCounts().slotsInUse, count);
        EXPECT_EQ(mAllocation.GetCounts().destinations, count);
    }

    LinkAllocation mAllocation;
};

} // namespace

TEST_F(LinkAllocationTest, FirstFitFillsTheGapsOfASourceThatLeft)
{
    EXPECT_EQ(Text(mAllocation.Allocate(SourceA, {0, {7, 8}}, 1, DestX)), "new 0[7 8] to 1[0 1]");
    EXPECT_EQ(mAllocation.GetSlot(1, 0).mNextSlot, 1u);
    EXPECT_EQ(mAllocation.GetSlot(1, 1).mNextSlot, INVALID_TDM_SLOT);
    EXPECT_EQ(Text(mAllocation.Allocate(SourceB, {0, {9, 10}}, 1, DestX)), "new 0[9 10] to 1[2 3]");
    EXPECT_EQ(Text(mAllocation.Free(SourceA, 1, DestY)), "failed 255[] to 1[]") << "a stranger frees nothing";
    EXPECT_EQ(Text(mAllocation.Free(SourceA, 1, DestX)), "last 0[7 8] to 1[0 1]");
    EXPECT_EQ(Text(mAllocation.Allocate(SourceC, {0, {1, 2, 3}}, 1, DestX)), "new 0[1 2 3] to 1[0 1 4]");
}

TEST_F(LinkAllocationTest, AFullPortKeepsWhatWasTakenAndGrowsNoFurther)
{
    mAllocation.Allocate(SourceA, CountUp(510), 1, DestX);
    EXPECT_EQ(Text(mAllocation.Allocate(SourceB, {0, {1, 2, 3}}, 1, DestX)), "failed 0[1 2 3] to 1[510 511]");
    EXPECT_EQ(Text(mAllocation.Allocate(SourceC, {0, {1}}, 1, DestX)), "failed 0[1] to 1[]");
    ExpectCount(512);
    EXPECT_EQ(Text(mAllocation.Free(SourceB, 1, DestX)), "last 0[1 2 3] to 1[510 511]");
    EXPECT_EQ(Text(mAllocation.Allocate(SourceC, {0, {}}, 1, DestX)), Nothing) << "a source without slots";
    ExpectCount(510);
}

TEST_F(LinkAllocationTest, TheSlotsOfABoxAreBookedInTheirPlacesWhoeverHoldsThemAndAPortOutOfRangeTouchesNothing)
{
    mAllocation.Allocate(SourceA, {0, {1, 2, 3}}, 1, DestX);
    EXPECT_EQ(Text(mAllocation.Allocate(SourceB, {0, {4, 5}}, DestY, {1, {9, 1}})), "new 0[4 5] to 1[9 1]");
    std::ostringstream listing;
    mAllocation.Print(listing);
    EXPECT_THAT(listing.str(), HasSubstr("Link 1\n\tSlot 0  Source192.1:1  Port 1ORB PORT 1\n\t\tDest 192.4:1  Port a\n"
                                         "\tSlot 1  Source192.2:1  Port 2ORB PORT 5\n"));
    for (const UINT8GIGEPORT port : {UINT8GIGEPORT{3}, UNKNOWN_GIGE_PORT}) {
        EXPECT_EQ(Text(mAllocation.Allocate(SourceA, {0, {1}}, port, DestX)), Nothing);
        EXPECT_EQ(Text(mAllocation.Allocate(SourceA, {0, {1}}, DestX, {port, {1}})), Nothing);
        EXPECT_EQ(Text(mAllocation.Free(SourceA, port, DestX)), Nothing);
        EXPECT_EQ(Text(mAllocation.Free(SourceA, {0, {1}}, {port, {1}})), Nothing);
    }
    EXPECT_EQ(Text(mAllocation.Free(SourceA, 1, DestX)), "last 0[1 2 3] to 1[0 2]");
    EXPECT_EQ(Text(mAllocation.Free(SourceB, {0, {4, 5}}, {1, {9, 1}})), "new 0[4 5] to 1[9 1]");
    ExpectCount(0);
}

TEST_F(LinkAllocationTest, DestinationsHaveALimit)
{
    // Each destination of this source listens to all 512 slots.
    std::uint32_t joined = 0;
    while (mAllocation.Allocate(SourceA, CountUp(512), 1, HidPort{joined, 1}).result != AllocationFailed)
        ++joined;
    EXPECT_EQ(joined, LinkAllocation::MaxDestinations / 512);
    EXPECT_EQ(Text(mAllocation.Allocate(SourceB, {0, {1}}, DestX, {2, {1}})), Nothing);
    EXPECT_EQ(mAllocation.Free(SourceA, 1, HidPort{0, 1}).result, AlreadyCarrying);
    EXPECT_EQ(Text(mAllocation.Allocate(SourceB, {0, {1}}, DestX, {2, {1}})), "new 0[1] to 2[1]");
}
