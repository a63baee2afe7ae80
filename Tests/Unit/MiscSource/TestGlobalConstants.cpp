#include "MiscSource/GlobalConstants.h"
#include "MiscSource/IoPort.h"
#include "MiscSource/LinkPatch.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

template <class T>
std::string Text(const T& value)
{
    std::ostringstream out;
    out << value;
    return out.str();
}

TEST(Texts, Hid)
{
    const std::pair<std::uint32_t, const char*> cases[] = {
        {0xFFFFFFFF, "INVALID_HID "}, {0, "LOCAL_DSP_HID "},     {1, "0x1(1) "},
        {0xFFE, "0xffe(4094) "},      {0xFFF, "0.0:fff "},       {0x1000, "0.0:1000 "},
        {0xC0028000, "192.2:8000 "},  {0x013F0500, "1.63:500 "}, {0xABCD0001, "171.205:1 "},
        {0xFFFFFFFE, "255.255:fffe "}};
    for (const auto& [hid, text] : cases)
        EXPECT_EQ(Text(Hid(hid)), text);
}

TEST(Texts, PortsRacksAndAddresses)
{
    EXPECT_EQ(PortText(0) + PortText(1) + PortText(2) + PortText(3), "ORB PORT Pri Korvo Sec Korvo UNKNOWN ");
    EXPECT_EQ(LinkPortText(0) + LinkPortText(0xFE) + LinkPortText(0xFF), "H0 H254 UNKNOWN_PORT ");
    EXPECT_EQ(AudioPortText(0) + AudioPortText(0xFFF) + AudioPortText(0x1000), "A0 UNKNOWN_PORT A4096 ");
    EXPECT_EQ(RackText(0) + RackText(0xFFFF) + RackText(0x013F), "LOCAL_RACK_ID INVALID_RACK_ID 1.63 ");
    EXPECT_EQ(AddressText(0xABCD0500), "171.205.5.0");
}

/// The first and the last text of each table, and what stands for a value past it.
TEST(Texts, EnumerationsEndWhereTheirTextsEnd)
{
    using namespace K2Heartbeat;
    using SampleRates::SystemSampleRate;
    LogRecorder log;
    const std::pair<std::string, const char*> cases[] = {
        {Text(StreamType{4}) + Text(StreamType{5}), "UPDATE_LINK Unknown(5)"},
        {Text(LinkType{0}) + Text(LinkType{1}) + Text(LinkType{7}) + Text(LinkType{8}),
         "Unknown(0)Router AoIPUnknown(8)"},
        {Text(SystemSampleRate{-1}) + Text(SystemSampleRate{0}) + Text(SystemSampleRate{3}) + Text(SystemSampleRate{4}),
         "UNKNOWN SAMPLE RATE48kHz88.2kHzUNKNOWN SAMPLE RATE"},
        {Text(Korvo::PatchState{0}) + Text(Korvo::PatchState{5}) + Text(Korvo::PatchState{6}),
         "Patch Not Sent Patch Reserved Invalid Patch State "},
        {Text(IOKorvoStatus{0}) + Text(IOKorvoStatus{5}) + Text(IOKorvoStatus{6}),
         "OfflineUnsupportedSampleRateUnknown"},
        {std::string(IoStyleText(1)) + IoStyleText(7) + IoStyleText(8), "InputKPOInvalid"},
        {std::string(IoCardTypeText(1)) + IoCardTypeText(16) + IoCardTypeText(17), "MicAoIPInvalidType"},
    };
    for (const auto& [texts, expected] : cases)
        EXPECT_EQ(texts, expected);
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Unknown IOKorvoStatus( 6 )\n", "Unexpected IOStyleCount( 8 )\n",
                                                  "Unexpected IOTypeID( 17 )\n"));
}

TEST(Texts, PatchRecords)
{
    EXPECT_EQ(Text(IoPort(Hid(0xC0028000), 1, 5)), "HID:3221389312(192.2:8000 ), Style:1(Input), Idx:5 ");
    EXPECT_EQ(Text(IoPort()), "HID:4294967295(INVALID_HID ), Style:0(Invalid), Idx:4095 ");
    EXPECT_EQ(Text(HidPort{Hid(0xC0028000), 5}), "Hid:Port 192.2:8000 :A5 ");
    EXPECT_EQ(Text(LinkPatch{{1, {0, 511}}, {3, {INVALID_TDM_SLOT}}}),
              "SrcLink GigE:TDM Pri Korvo 0 511  DstLink GigE:TDM UNKNOWN 3 INVALID_TDM_SLOT ");
}

TEST(Model, IoPortIgnoresTheUnusedBitsOfItsSecondWord)
{
    const IoPort port = IoPort::FromWords(7, 0xABCD2FFE);
    EXPECT_EQ(port.GetStyle(), 2u);
    EXPECT_EQ(port.GetIndex(), 0xFFE);
    EXPECT_EQ(port, IoPort(7, 2, 0xFFE));
    EXPECT_EQ(std::hash<IoPort>{}(port), std::hash<IoPort>{}(IoPort(7, 2, 0xFFE)));
    EXPECT_FALSE(port == IoPort(7, 3, 0xFFE));
}

TEST(Model, Identities)
{
    EXPECT_TRUE(IsIoHid(0xFFFF0FFF));
    EXPECT_FALSE(IsIoHid(0x00001000));
    EXPECT_TRUE(IsSecondClassIoHid(0xFFFFF2FF));
    EXPECT_FALSE(IsSecondClassIoHid(0x00000300));
    EXPECT_EQ(MakeNodeHid(0xABCDFFFF), 0xABCD4000u);
    EXPECT_EQ(MakeLinkHid(0xABCDFFFF), 0xABCD8000u);
    EXPECT_EQ(MakeHubHid(0xABCD1234, true), 0xABCD8000u);
    EXPECT_EQ(MakeHubHid(0xABCD1234, false), 0xABCD8001u);
}

TEST(Model, DeviceTypesAndTheirUpdateCommands)
{
    // By link type: routing device, I/O device, the type in update commands.
    const std::tuple<bool, bool, std::uint8_t> rows[] = {{false, false, 8}, {true, false, 3}, {false, true, 1},
                                                         {false, true, 0},  {false, true, 4}, {true, false, 5},
                                                         {true, false, 6},  {false, true, 7}, {false, true, 8}};
    for (std::uint8_t i = 0; i < 9; ++i) {
        const auto type = static_cast<K2Heartbeat::LinkType>(i);
        EXPECT_EQ(std::make_tuple(IsRoutingDevice(type), IsIoDevice(type),
                                  static_cast<std::uint8_t>(ToRemoteDeviceType(type))),
                  rows[i])
            << int{i};
    }
    // Modular, fixed format, none, router, module, hub, Orb, AoIP, and what has no row.
    const int links[] = {3, 2, 0, 1, 4, 5, 6, 7, 0, 0};
    for (std::uint8_t i = 0; i < 10; ++i) {
        EXPECT_EQ(ToLinkType(RemoteDeviceType{i}), links[i]) << int{i};
        EXPECT_EQ(IsRoutingRemoteType(RemoteDeviceType{i}), i == 3 || i == 5 || i == 6) << int{i};
    }
}

TEST(Model, SampleRates)
{
    using namespace SampleRates;
    const int base[] = {0, 0, 0, 2, 2, 0};
    for (int i = -1; i < 5; ++i) {
        const auto rate = static_cast<SystemSampleRate>(i);
        EXPECT_EQ(GetBaseRate(rate), base[i + 1]) << i;
        EXPECT_EQ(IsDoubleRate(rate), i == 1 || i == 3) << i;
        EXPECT_EQ(Is44k1Family(rate), i == 2 || i == 3) << i;
    }
}

TEST(Addresses, OfAPortSide)
{
    EXPECT_EQ(AddressText(GetPortAddress(0xABCD8000, 1)), "171.205.5.0");
    EXPECT_EQ(AddressText(GetPortAddress(0xABCD8000, 2)), "171.205.6.0");
    EXPECT_EQ(GetPortAddress(INVALID_HID, 1), 0u);
    EXPECT_EQ(ToPort(LinkIndex{1}), 2);
    EXPECT_EQ(ToLinkIndex(1), LinkIndex{0});
    EXPECT_EQ(ToLinkIndex(0), LinkIndex{0xFF});
}

TEST(Addresses, OfALinkFollowFromTheTwoIdentities)
{
    const std::tuple<std::uint32_t, std::uint8_t, std::uint32_t, std::uint8_t, const char*, const char*> cases[] = {
        {0x12, 0, 0x50, 0, "0.10.0.1", "0.10.0.254"},
        {0x12, 1, 0x50, 1, "0.10.33.2", "0.10.33.254"},
        {0x28, 0, 0x24, 1, "0.10.0.254", "0.10.0.2"},
        // Just above, at and just below twice our rack: only above it does the far end own the network.
        {0x12, 0, 0x25, 0, "0.4.160.1", "0.4.160.254"},
        {0x12, 0, 0x24, 0, "0.4.128.254", "0.4.128.1"},
        {0x12, 1, 0x23, 0, "0.4.161.254", "0.4.161.1"},
        {0xFFFF, 0, 0x1FFFE, 2, "63.255.192.254", "63.255.192.3"},
        // No rack of our own yet, or no neighbour.
        {0xFFFFFFFF, 0, 0x50, 0, "0.0.0.0", "0.0.0.0"},
        {0x12, 0, 0xFFFFFFFF, 0, "0.0.0.0", "0.0.0.0"},
        {0x12, 1, 0xFFFFFFFF, 0, "0.0.0.0", "0.0.0.0"},
    };
    for (const auto& [rack, port, remoteId, remotePort, local, remote] : cases) {
        EXPECT_EQ(AddressText(GetLinkLocalAddress(rack, port, remoteId, remotePort, port == 0)), local);
        EXPECT_EQ(AddressText(GetLinkRemoteAddress(rack, port, remoteId, remotePort, port == 0)), remote);
    }
}

} // namespace
