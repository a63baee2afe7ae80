#include "MiscSource/GlobalConstants.h"
#include "MiscSource/IoPort.h"
#include "MiscSource/LinkPatch.h"
#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

namespace {

TEST(Texts, OfHidsPortsRacksAndAddresses)
{
    EXPECT_EQ(Joined(Hid(0xFFFFFFFF), Hid(0), Hid(1), Hid(0xFFE), Hid(0xFFF), Hid(0x1000), Hid(0xC0028000)),
              "INVALID_HID |LOCAL_DSP_HID |0x1(1) |0xffe(4094) |0.0:fff |0.0:1000 |192.2:8000 |");
    EXPECT_EQ(Joined(Hid(0x013F0500), Hid(0xABCD0001), Hid(0xFFFFFFFE)), "1.63:500 |171.205:1 |255.255:fffe |");
    EXPECT_EQ(Joined(PortText(0), PortText(1), PortText(2), PortText(3)), "ORB PORT |Pri Korvo |Sec Korvo |UNKNOWN |");
    EXPECT_EQ(Joined(LinkPortText(0), LinkPortText(0xFE), LinkPortText(0xFF)), "H0 |H254 |UNKNOWN_PORT |");
    EXPECT_EQ(Joined(AudioPortText(0), AudioPortText(0xFFF), AudioPortText(0x1000)), "A0 |UNKNOWN_PORT |A4096 |");
    EXPECT_EQ(Joined(RackText(0), RackText(0xFFFF), RackText(0x013F)), "LOCAL_RACK_ID |INVALID_RACK_ID |1.63 |");
    EXPECT_EQ(AddressText(0xABCD0500), "171.205.5.0");
}

/// The first and the last text of each table, and what is said for a value past it.
TEST(Texts, OfEnumerationsEndWhereTheirTextsEnd)
{
    using namespace K2Heartbeat;
    using Rate = SampleRates::SystemSampleRate;
    using Korvo::PatchState;
    LogRecorder log;
    EXPECT_EQ(Joined(StreamType{4}, StreamType{5}), "UPDATE_LINK |Unknown(5)|");
    EXPECT_EQ(Joined(LinkType{0}, LinkType{1}, LinkType{7}, LinkType{8}), "Unknown(0)|Router |AoIP|Unknown(8)|");
    EXPECT_EQ(Joined(Rate{-1}, Rate{0}, Rate{3}, Rate{4}), "UNKNOWN SAMPLE RATE|48kHz|88.2kHz|UNKNOWN SAMPLE RATE|");
    EXPECT_EQ(Joined(PatchState{0}, PatchState{5}, PatchState{6}),
              "Patch Not Sent |Patch Reserved |Invalid Patch State |");
    EXPECT_EQ(Joined(IOKorvoStatus{0}, IOKorvoStatus{5}, IOKorvoStatus{6}), "Offline|UnsupportedSampleRate|Unknown|");
    EXPECT_EQ(Joined(IoStyleText(1), IoStyleText(7), IoStyleText(8)), "Input|KPO|Invalid|");
    EXPECT_EQ(Joined(IoCardTypeText(1), IoCardTypeText(16), IoCardTypeText(17)), "Mic|AoIP|InvalidType|");
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Unknown IOKorvoStatus( 6 )\n", "Unexpected IOStyleCount( 8 )\n",
                                                  "Unexpected IOTypeID( 17 )\n"));
}

TEST(Texts, OfPatchRecords)
{
    EXPECT_EQ(Joined(IoPort(Hid(0xC0028000), 1, 5), IoPort()),
              "HID:3221389312(192.2:8000 ), Style:1(Input), Idx:5 |"
              "HID:4294967295(INVALID_HID ), Style:0(Invalid), Idx:4095 |");
    EXPECT_EQ(Joined(HidPort{Hid(0xC0028000), 5}), "Hid:Port 192.2:8000 :A5 |");
    EXPECT_EQ(Joined(LinkPatch{{1, {0, 511}}, {3, {INVALID_TDM_SLOT}}}),
              "SrcLink GigE:TDM Pri Korvo 0 511  DstLink GigE:TDM UNKNOWN 3 INVALID_TDM_SLOT |");
}

TEST(Model, IoPortIgnoresTheUnusedBitsOfItsSecondWord)
{
    const IoPort port = IoPort::FromWords(7, 0xABCD2FFE);
    EXPECT_EQ(Joined(port.GetStyle(), port.GetIndex()), Joined(2, 0xFFE));
    EXPECT_EQ(port, IoPort(7, 2, 0xFFE));
    EXPECT_EQ(std::hash<IoPort>{}(port), std::hash<IoPort>{}(IoPort(7, 2, 0xFFE)));
    EXPECT_FALSE(port == IoPort(7, 3, 0xFFE));
}

TEST(Model, Identities)
{
    EXPECT_EQ(Joined(IsIoHid(0xFFFF0FFF), IsIoHid(0x1000)), "1|0|");
    EXPECT_EQ(Joined(IsSecondClassIoHid(0xFFFFF2FF), IsSecondClassIoHid(0x300)), "1|0|");
    EXPECT_EQ(Joined(MakeNodeHid(0xABCDFFFF), MakeLinkHid(0xABCDFFFF)), "171.205:4000 |171.205:8000 |");
    EXPECT_EQ(Joined(MakeHubHid(0xABCD1234, true), MakeHubHid(0xABCD1234, false)), "171.205:8000 |171.205:8001 |");
}

TEST(Model, DeviceTypesAndTheirUpdateCommands)
{
    std::string types;
    for (std::uint8_t i = 0; i < 9; ++i) {
        const auto type = static_cast<K2Heartbeat::LinkType>(i);
        types += IsRoutingDevice(type) ? "R" : IsIoDevice(type) ? "I" : "-";
        types += std::to_string(static_cast<int>(ToRemoteDeviceType(type))) + " ";
    }
    EXPECT_EQ(types, "-8 R3 I1 I0 I4 R5 R6 I7 I8 ") << "by link type: routing or I/O, the type in update commands";
    types.clear();
    for (std::uint8_t i = 0; i < 10; ++i) {
        const RemoteDeviceType type{i};
        types += (IsRoutingRemoteType(type) ? "R" : "-") + std::to_string(ToLinkType(type)) + " ";
    }
    EXPECT_EQ(types, "-3 -2 -0 R1 -4 R5 R6 -7 -0 -0 ") << "and back";
}

TEST(Model, SampleRates)
{
    const int base[] = {0, 0, 0, 2, 2, 0};
    for (int i = -1; i < 5; ++i) {
        const auto rate = static_cast<SampleRates::SystemSampleRate>(i);
        EXPECT_EQ(GetBaseRate(rate), base[i + 1]) << i;
        EXPECT_EQ(IsDoubleRate(rate), i == 1 || i == 3) << i;
        EXPECT_EQ(Is44k1Family(rate), i == 2 || i == 3) << i;
    }
}

TEST(Addresses, OfAPortSide)
{
    EXPECT_EQ(AddressText(GetPortAddress(0xABCD8000, Routing::PRIMARY_PORT)), "171.205.5.0");
    EXPECT_EQ(AddressText(GetPortAddress(0xABCD8000, Routing::SECONDARY_PORT)), "171.205.6.0");
    EXPECT_EQ(GetPortAddress(INVALID_HID, Routing::PRIMARY_PORT), 0u);
    EXPECT_EQ(ToPort(LinkIndex{1}), 2);
    EXPECT_EQ(ToLinkIndex(1), LinkIndex{0});
    EXPECT_EQ(ToLinkIndex(0), LinkIndex{0xFF});
}

TEST(Addresses, OfALinkFollowFromTheTwoIdentities)
{
    const std::tuple<std::uint32_t, std::uint8_t, std::uint32_t, std::uint8_t, const char*> cases[] = {
        {0x12, 0, 0x50, 0, "0.10.0.1|0.10.0.254|"},
        {0x12, 1, 0x50, 1, "0.10.33.2|0.10.33.254|"},
        {0x28, 0, 0x24, 1, "0.10.0.254|0.10.0.2|"},
        // Just above, at and just below twice our rack: only above it does the far end own the network.
        {0x12, 0, 0x25, 0, "0.4.160.1|0.4.160.254|"},
        {0x12, 0, 0x24, 0, "0.4.128.254|0.4.128.1|"},
        {0x12, 1, 0x23, 0, "0.4.161.254|0.4.161.1|"},
        {0xFFFF, 0, 0x1FFFE, 2, "63.255.192.254|63.255.192.3|"},
        // No rack of our own yet, or no neighbour.
        {0xFFFFFFFF, 0, 0x50, 0, "0.0.0.0|0.0.0.0|"},
        {0x12, 0, 0xFFFFFFFF, 0, "0.0.0.0|0.0.0.0|"},
        {0x12, 1, 0xFFFFFFFF, 0, "0.0.0.0|0.0.0.0|"},
    };
    for (const auto& [rack, port, remoteId, remotePort, addresses] : cases)
        EXPECT_EQ(Joined(AddressText(GetLinkLocalAddress(rack, port, remoteId, remotePort, port == 0)),
                         AddressText(GetLinkRemoteAddress(rack, port, remoteId, remotePort, port == 0))),
                  addresses);
}

} // namespace
