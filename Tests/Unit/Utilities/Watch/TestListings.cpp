// Listings as the module's shell gives them, byte for byte.

#include "Tests/Support/Joined.h"
#include "Utilities/Watch/Listings.h"

#include <gmock/gmock.h>

using namespace watch;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(Listings, DevicesOnALinkAndBeyondIt)
{
    const auto text = [](const char* listing) {
        const auto device = ParseDevice(listing);
        if (!device) return std::string("none");
        return Joined(device->local ? "local" : "remote", device->hid, device->owner, device->type, device->rate,
                      testing::PrintToString(device->rates), device->primary.online, device->primary.address,
                      device->secondary.online);
    };
    EXPECT_EQ(text("FixedFormat  0.32:1 \n\tPri Rem Address: 0.8.0.254Pri Link true\n"
                   "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:48kHz 96kHz \n"),
              R"(local|0.32:1||FixedFormat|48kHz|{ "48kHz", "96kHz" }|1|0.8.0.254|0|)");
    EXPECT_EQ(text("Hid: 0.48:2 , Type: FixedFormat \n\tPri Rem GigE: ORB PORT  Pri Rem Address: "
                   "0.48.9.1 Link true\n\tSec Rem GigE: UNKNOWN  Sec Rem Address: 0.0.0.0 Link "
                   "false\n\tOwning ROuter 0.48:8000  SR 44.1kHz:\n"),
              "remote|0.48:2|0.48:8000|FixedFormat|44.1kHz|{}|1|0.48.9.1|0|");
    // A listing may be cut anywhere by the module's log.
    for (const char* const cut :
         {"Hid changed", "DeviceManager::OnDeviceChanged Hid 0.32:1  Port Pri Korvo ",
          "Hid: 0.48:2 , Type: Modular \n\tPri Rem GigE: ORB PORT  Pri Rem Address: 0.48.9.1 Li"})
        EXPECT_EQ(text(cut), "none") << cut;
}

TEST(Listings, APatchWithItsTwoLinks)
{
    const auto patch = ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n"
                                  "\t\t\tDst HID:18(0x12(18) ), Style:2(Output), Idx:5 \n\t\t\tPri Patch Reserved \n"
                                  "\t\t\tSec Patch Success \n\t\t\tPri  GigE:TDM Pri Korvo 3 4 INVALID_TDM_SLOT 7 \n"
                                  "\t\t\tSec  GigE:TDM UNKNOWN 255 \n\t\t\tSwap GigE:TDM ORB PORT 0 \r\n");
    ASSERT_TRUE(patch);
    EXPECT_EQ(Joined(patch->source.hid, patch->source.index, patch->destination.hid, patch->destination.style),
              "0.32:1|3|0x12(18)|Output|");
    EXPECT_EQ(patch->primary, PatchState::Reserved);
    EXPECT_EQ(patch->secondary, PatchState::Success);
    EXPECT_EQ(patch->Best(), PatchState::Success);
    EXPECT_EQ(patch->primaryLink.port, Port::Primary);
    EXPECT_THAT(patch->primaryLink.slots, ElementsAre(3, 4, 7));
    EXPECT_EQ(patch->secondaryLink.port, Port::Unknown);
    EXPECT_THAT(patch->secondaryLink.slots, IsEmpty());
    EXPECT_THAT(patch->swap.slots, ElementsAre(0));
    EXPECT_FALSE(ParsePatch("PI  Src HID:99999999999(0.32:1 ), Style:1(Input), Idx:3 \n"));
    EXPECT_FALSE(ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n\t\t\tDst HID:1(0.1:1 )"));
}

TEST(Listings, SlotsInUse)
{
    const SlotTable table =
        ParseSlots("Link 0\n\tSlot 0  Source0.32:1  Port 3Sec Korvo 3\n\t\tDest 0.18:1  Port 5\n"
                   "\t\tDest 0.18:1  Port 6\nLink 1\n\tSlot 511  Source0.18:1  Port fffORB PORT 9\n"
                   "\t\tDest 0.32:1  Port 4\nLink 2\nLink 3\n\tSlot 1  Source0.1:1  Port 1ORB PORT 1\n");
    ASSERT_TRUE(table[0].size() == 1 && table[1].size() == 1 && table[2].empty());
    EXPECT_EQ(Joined(table[0][0].sourceHid, table[0][0].destinations, table[1][0].number, table[1][0].sourcePort),
              "0.32:1|2|511|4095|");
    EXPECT_EQ(table[0][0].from.port, Port::Secondary);
    EXPECT_THAT(table[1][0].from.slots, ElementsAre(9));
}

TEST(Listings, RoutesOfTheFpga)
{
    std::string routes;
    for (const auto& sink :
         ParseRoutes("Sources          Sinks\n0:    0       >> k0:   0-3    \nbulk: 9-10    >> k0:   4-5    \n"
                     "0:    0       >> k0:   6-511  \n\nk1:   3       >> bulk: 0      \n"
                     "0:    0       >> bulk: 1-511  \n"))
        for (const auto& run : sink.runs)
            routes += run.IsSilence() ? Joined(sink.name, "silence", run.Length())
                                      : Joined(sink.name, run.source, run.sourceFirst, run.sourceLast, run.Length());
    EXPECT_EQ(routes, "bulk|k1|3|3|1|bulk|silence|511|k0|silence|4|k0|bulk|9|10|2|k0|silence|506|");
    EXPECT_THAT(ParseRoutes("Error: >> : \n: 1 >> k0: 9-2\nk0: x >> k1: 3\n"), IsEmpty());
}

TEST(Listings, ClockSources)
{
    const ClockTable table = ParseClocks("Clock Ids: bulk (4) k0 (1) Internal (0)\n\n Id Enabled Measure    State\n"
                                         "  4    true    1365   stable locked [selected, auto-select off]\n"
                                         "  1   false       0 unstable\n  0    true       0   stable locking\n");
    std::string sources;
    for (const auto& source : table.sources)
        sources += Joined(source.name, source.measure, source.enabled, source.stable, source.selected, source.lock);
    EXPECT_EQ(sources, "bulk|1365|1|1|1|locked|k0|0|0|0|0||Internal|0|1|1|0|locking|");
    EXPECT_TRUE(table.autoSelectOff);
    EXPECT_THAT(ParseClocks("Clock Ids: \n 1 maybe 3 stable\n 99999999999 true 0 stable\n").sources, IsEmpty());
}

} // namespace
