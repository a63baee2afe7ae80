// Listings as the module's shell gives them, byte for byte.

#include "Utilities/Watch/Listings.h"

#include <gmock/gmock.h>

using namespace watch;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

TEST(Listings, DevicesOnALinkAndBeyondIt)
{
    const auto box = ParseDevice("FixedFormat  0.32:1 \n\tPri Rem Address: 0.8.0.254Pri Link true\n"
                                 "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:48kHz 96kHz \n");
    ASSERT_TRUE(box);
    EXPECT_TRUE(box->local);
    EXPECT_EQ(box->hid + "|" + box->type + "|" + box->rate, "0.32:1|FixedFormat|48kHz");
    EXPECT_THAT(box->rates, ElementsAre("48kHz", "96kHz"));
    EXPECT_TRUE(box->primary.online);
    EXPECT_EQ(box->primary.address, "0.8.0.254");
    EXPECT_FALSE(box->secondary.online);

    const auto remote = ParseDevice("Hid: 0.48:2 , Type: FixedFormat \n\tPri Rem GigE: ORB PORT  Pri Rem Address: "
                                    "0.48.9.1 Link true\n\tSec Rem GigE: UNKNOWN  Sec Rem Address: 0.0.0.0 Link "
                                    "false\n\tOwning ROuter 0.48:8000  SR 44.1kHz:\n");
    ASSERT_TRUE(remote);
    EXPECT_FALSE(remote->local);
    EXPECT_EQ(remote->hid + "|" + remote->owner + "|" + remote->rate, "0.48:2|0.48:8000|44.1kHz");
    EXPECT_TRUE(remote->primary.online);
    EXPECT_FALSE(remote->secondary.online);
}

TEST(Listings, APatchWithItsTwoLinks)
{
    const auto patch = ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n"
                                  "\t\t\tDst HID:18(0x12(18) ), Style:2(Output), Idx:5 \n\t\t\tPri Patch Reserved \n"
                                  "\t\t\tSec Patch Success \n\t\t\tPri  GigE:TDM Pri Korvo 3 4 INVALID_TDM_SLOT 7 \n"
                                  "\t\t\tSec  GigE:TDM UNKNOWN 255 \n\t\t\tSwap GigE:TDM ORB PORT 0 \r\n");
    ASSERT_TRUE(patch);
    EXPECT_EQ(patch->source.hid, "0.32:1");
    EXPECT_EQ(patch->source.index, 3u);
    EXPECT_EQ(patch->destination.hid, "0x12(18)");
    EXPECT_EQ(patch->destination.style, "Output");
    EXPECT_EQ(patch->primary, PatchState::Reserved);
    EXPECT_EQ(patch->secondary, PatchState::Success);
    EXPECT_EQ(patch->Best(), PatchState::Success);
    EXPECT_EQ(patch->primaryLink.port, Port::Primary);
    EXPECT_THAT(patch->primaryLink.slots, ElementsAre(3, 4, 7));
    EXPECT_EQ(patch->secondaryLink.port, Port::Unknown);
    EXPECT_THAT(patch->secondaryLink.slots, IsEmpty());
    EXPECT_THAT(patch->swap.slots, ElementsAre(0));
}

TEST(Listings, SlotsInUse)
{
    const SlotTable table =
        ParseSlots("Link 0\n\tSlot 0  Source0.32:1  Port 3Sec Korvo 3\n\t\tDest 0.18:1  Port 5\n"
                   "\t\tDest 0.18:1  Port 6\nLink 1\n\tSlot 511  Source0.18:1  Port fffORB PORT 9\n"
                   "\t\tDest 0.32:1  Port 4\nLink 2\nLink 3\n\tSlot 1  Source0.1:1  Port 1ORB PORT 1\n");
    ASSERT_THAT(table[0], SizeIs(1));
    EXPECT_EQ(table[0][0].sourceHid, "0.32:1");
    EXPECT_EQ(table[0][0].from.port, Port::Secondary);
    EXPECT_EQ(table[0][0].destinations, 2u);
    ASSERT_THAT(table[1], SizeIs(1));
    EXPECT_EQ(table[1][0].number, 511u);
    EXPECT_EQ(table[1][0].sourcePort, 0xFFFu);
    EXPECT_THAT(table[1][0].from.slots, ElementsAre(9));
    EXPECT_THAT(table[2], IsEmpty());
}

TEST(Listings, RoutesOfTheFpga)
{
    const auto sinks =
        ParseRoutes("Sources          Sinks\n0:    0       >> k0:   0-3    \nbulk: 9-10    >> k0:   4-5    \n"
                    "0:    0       >> k0:   6-511  \n\nk1:   3       >> bulk: 0      \n"
                    "0:    0       >> bulk: 1-511  \n");
    ASSERT_THAT(sinks, SizeIs(2));
    EXPECT_EQ(sinks[0].name, "bulk");
    EXPECT_EQ(sinks[0].runs[0].source, "k1");
    EXPECT_EQ(sinks[0].runs[0].sourceFirst, 3u);
    EXPECT_TRUE(sinks[0].runs[1].IsSilence());
    ASSERT_THAT(sinks[1].runs, SizeIs(3));
    EXPECT_EQ(sinks[1].runs[1].sourceLast, 10u);
    EXPECT_EQ(sinks[1].runs[1].Length(), 2u);
}

TEST(Listings, ClockSources)
{
    const ClockTable table = ParseClocks("Clock Ids: bulk (4) k0 (1) Internal (0)\n\n Id Enabled Measure    State\n"
                                         "  4    true    1365   stable locked [selected, auto-select off]\n"
                                         "  1   false       0 unstable\n  0    true       0   stable locking\n");
    ASSERT_THAT(table.sources, SizeIs(3));
    EXPECT_EQ(table.sources[0].name + table.sources[0].lock, "bulklocked");
    EXPECT_TRUE(table.sources[0].selected && table.sources[0].stable && table.autoSelectOff);
    EXPECT_EQ(table.sources[0].measure, 1365u);
    EXPECT_FALSE(table.sources[1].enabled || table.sources[1].stable || table.sources[1].selected);
    EXPECT_EQ(table.sources[2].name + table.sources[2].lock, "Internallocking");
}

/// A listing may be cut anywhere by the module's log; what is left is understood or left out.
TEST(Listings, WhatIsNoListingGivesNothing)
{
    EXPECT_FALSE(ParseDevice("Hid changed"));
    EXPECT_FALSE(ParseDevice("DeviceManager::OnDeviceChanged Hid 0.32:1  Port Pri Korvo "));
    EXPECT_FALSE(ParseDevice("Hid: 0.48:2 , Type: Modular \n\tPri Rem GigE: ORB PORT  Pri Rem Address: 0.48.9.1 Li"));
    EXPECT_FALSE(ParsePatch("PI  Src HID:99999999999(0.32:1 ), Style:1(Input), Idx:3 \n"));
    EXPECT_FALSE(ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n\t\t\tDst HID:1(0.1:1 )"));
    EXPECT_THAT(ParseRoutes("Error: >> : \n: 1 >> k0: 9-2\nk0: x >> k1: 3\n"), IsEmpty());
    EXPECT_THAT(ParseClocks("Clock Ids: \n 1 maybe 3 stable\n 99999999999 true 0 stable\n").sources, IsEmpty());
}

} // namespace
