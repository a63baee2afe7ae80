#include "OrbModule/Inc/Patching/LinkAllocation.h"

#include "Tests/Support/Joined.h"
#include "Tests/Support/RecordingComms.h"

#include <gtest/gtest.h>

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

} // namespace

TEST(LinkAllocation, FirstFitFillsTheGapsOfASourceThatLeft)
{
    LinkAllocation allocation;
    const std::string unused = "Source Hid:Port INVALID_HID :UNKNOWN_PORT Link GigE:TDM UNKNOWN 255 Index 0 Next "
                               "INVALID_TDM_SLOT Dests |";
    const auto slots = [&] { return Joined(allocation.GetSlot(1, 0), allocation.GetSlot(1, 1)); };
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {7, 8}}, 1, DestX)), "new 0[7 8] to 1[0 1]");
    EXPECT_EQ(slots(), "Source Hid:Port 192.1:1 :A1 Link GigE:TDM ORB PORT 7 8 Index 0 Next 1 Dests "
                       "Hid:Port 192.4:1 :A10 |"
                       "Source Hid:Port 192.1:1 :A1 Link GigE:TDM ORB PORT 7 8 Index 1 Next INVALID_TDM_SLOT Dests "
                       "Hid:Port 192.4:1 :A10 |");
    EXPECT_EQ(Text(allocation.Allocate(SourceB, {0, {9, 10}}, 1, DestX)), "new 0[9 10] to 1[2 3]");
    EXPECT_EQ(Text(allocation.Free(SourceA, 1, DestY)), "failed 255[] to 1[]") << "a stranger frees nothing";
    EXPECT_EQ(Text(allocation.Free(SourceA, 1, DestX)), "last 0[7 8] to 1[0 1]");
    EXPECT_EQ(slots() + Joined(LinkSlot()), unused + unused + unused);
    EXPECT_EQ(Text(allocation.Allocate(SourceC, {0, {1, 2, 3}}, 1, DestX)), "new 0[1 2 3] to 1[0 1 4]");
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {}}, 1, DestX)), Nothing) << "a source without slots";
}

TEST(LinkAllocation, TheSlotsOfABoxAreBookedInTheirPlacesWhoeverHoldsThem)
{
    LinkAllocation allocation;
    allocation.Allocate(SourceA, {0, {1, 2, 3}}, 1, DestX);
    EXPECT_EQ(Text(allocation.Allocate(SourceB, {0, {4}}, DestY, {1, {9, 1}})), "new 0[4] to 1[9 1]");
    std::ostringstream listing;
    listing << std::hex;
    allocation.Print(listing);
    listing << 255;
    EXPECT_EQ(listing.str(), "Link 0\nLink 1\n"
                             "\tSlot 0  Source192.1:1  Port 1ORB PORT 1\n\t\tDest 192.4:1  Port a\n"
                             "\tSlot 1  Source192.2:1  Port 2ORB PORT 4294967295\n\t\tDest 192.5:1  Port b\n"
                             "\t\tDest 192.4:1  Port a\n"
                             "\tSlot 2  Source192.1:1  Port 1ORB PORT 3\n\t\tDest 192.4:1  Port a\n"
                             "\tSlot 9  Source192.2:1  Port 2ORB PORT 4\n\t\tDest 192.5:1  Port b\nLink 2\nff");
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {1}}, 1, DestY)), "carrying 0[1] to 1[0 1 2]") << "it has two left";
    allocation.Allocate(SourceC, {0, {5, 6, 7, 8}}, DestX, {1, {2, 9, 0, 1}});
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {1}}, 1, DestX)), "new 0[1] to 1[3]") << "it has none left";
    EXPECT_EQ(Text(allocation.Allocate(SourceB, {0, {4}}, 1, DestX)), "new 0[4] to 1[4]");
    EXPECT_EQ(Text(allocation.Free(SourceA, {0, {4}}, {1, {0, 1, 2}})), "new 0[4] to 1[0 1 2]");
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {1}}, 1, DestX)), "new 0[1] to 1[0]") << "its slots are given back";
    EXPECT_EQ(Text(allocation.Allocate(SourceC, {0, {1}}, 1, DestX)), "carrying 0[1] to 1[2 9 0 1]") << "9 is left";
    allocation.Free(SourceB, {0, {4}}, {1, {9, 2, 1, 0}});
    EXPECT_EQ(Text(allocation.Allocate(SourceC, {0, {1}}, 1, DestX)), "new 0[1] to 1[0]") << "nothing is left";
}

TEST(LinkAllocation, APortOutOfRangeTouchesNothing)
{
    LinkAllocation allocation;
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {1}}, 3, DestX)), Nothing);
    EXPECT_EQ(Text(allocation.Allocate(SourceA, {0, {1}}, DestX, {3, {1}})), Nothing);
    EXPECT_EQ(Text(allocation.Free(SourceA, 3, DestX)), Nothing);
    EXPECT_EQ(Text(allocation.Free(SourceA, {0, {1}}, {3, {1}})), Nothing);
    EXPECT_TRUE(allocation.GetUnpatchesByHidAndPort(SourceA.hid, 3).empty());
}
