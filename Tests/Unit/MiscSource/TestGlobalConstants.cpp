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
    EXPECT_EQ(Joined(UNIT_MASTER_CONTROL, UNIT_MODULE, Hid(0xFFFFFFFE)), "1.63:100 |1.63:500 |255.255:fffe |");
    EXPECT_EQ(Joined(PortText(0), PortText(1), PortText(2), PortText(3)), "ORB PORT |Pri Korvo |Sec Korvo |UNKNOWN |");
    EXPECT_EQ(Joined(LinkPortText(0), LinkPortText(0xFE), LinkPortText(0xFF)), "H0 |H254 |UNKNOWN_PORT |");
    EXPECT_EQ(Joined(AudioPortText(0), AudioPortText(0xFFF), AudioPortText(0x1000)), "A0 |UNKNOWN_PORT |A4096 |");
    EXPECT_EQ(Joined(RackText(0), RackText(0xFFFF), RackText(0x013F)), "LOCAL_RACK_ID |INVALID_RACK_ID |1.63 |");
    EXPECT_EQ(AddressText(0xABCD0500), "171.205.5.0");
}

TEST(Texts, OfEnumerationsEndWhereTheirTextsEnd)
{
    using namespace K2Heartbeat;
    using namespace Korvo;
    using Rate = SampleRates::SystemSampleRate;
    using Status = IOKorvoStatus;
    using Type = StreamType;
    LogRecorder log;
    EXPECT_EQ(Joined(Type::UNKNOWN_STREAM, Type::LOCAL_LINK, Type::MASTER_LINK, Type::SLAVE_LINK, Type::UPDATE_LINK),
              "UNKNOWN_STREAM |LOCAL_LINK |MASTER_LINK |SLAVE_LINK |UPDATE_LINK |");
    EXPECT_EQ(Joined(Type{5}, LinkType{0}, LinkType{1}, LinkType{7}, LinkType{8}),
              "Unknown(5)|Unknown(0)|Router |AoIP|Unknown(8)|");
    EXPECT_EQ(Joined(Rate{-1}, Rate{0}, Rate{3}, Rate{4}), "UNKNOWN SAMPLE RATE|48kHz|88.2kHz|UNKNOWN SAMPLE RATE|");
    EXPECT_EQ(Joined(PatchNotSent, PatchSent, PatchAwaitingReply, PatchRetrySent, PatchSuccess, PatchReserved),
              "Patch Not Sent |Patch Sent |Patch Awaiting Reply |Patch Retry Sent |Patch Success |Patch Reserved |");
    EXPECT_EQ(Joined(PatchState{6}, Status{6}), "Invalid Patch State |Unknown|");
    EXPECT_EQ(Joined(Status::Offline, Status::Online, Status::AccessDenied, Status::PatchNotValid,
                     Status::PatchConflict, Status::UnsupportedSampleRate),
              "Offline|Online|AccessDenied|PatchNotValid|PatchConflict|UnsupportedSampleRate|");
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

TEST(Model, PortsAndSlots)
{
    const IoPort port = IoPort::FromWords(7, 0xABCD2FFE);
    EXPECT_EQ(Joined(port.GetStyle(), port.GetIndex()), "2|4094|");
    EXPECT_EQ(port, IoPort(7, 2, 0xFFE)) << "the unused bits are ignored";
    EXPECT_EQ(std::hash<IoPort>{}(port), std::hash<IoPort>{}(IoPort(7, 2, 0xFFE)));
    EXPECT_FALSE(port == IoPort(7, 3, 0xFFE));
    EXPECT_EQ(Joined(Routing::IsSlot(511), Routing::IsSlot(512)), "1|0|");
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
    std::string rates;
    for (int i = -1; i < 5; ++i) {
        const auto rate = static_cast<SampleRates::SystemSampleRate>(i);
        rates +=
            std::to_string(GetBaseRate(rate)) + (IsDoubleRate(rate) ? "D" : "") + (Is44k1Family(rate) ? "F " : " ");
    }
    EXPECT_EQ(rates, "0 0 0D 2F 2DF 0 ") << "the base rate, whether double, whether of the 44.1 kHz family";
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

} // namespace
