#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "MiscSource/GlobalConstants.h"
#include "MiscSource/IoPort.h"
#include "MiscSource/LinkPatch.h"
#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

namespace {

/// What is made of each of the values from the first to before the end.
template <class Value, class Text>
std::string Each(int first, int end, Text text)
{
    std::string texts;
    for (int i = first; i < end; ++i)
        texts += Joined(text(static_cast<Value>(i)));
    return texts;
}

TEST(Texts, OfHidsPortsRacksAndAddresses)
{
    EXPECT_EQ(Joined(Hid(0xFFFFFFFF), Hid(0), Hid(1), Hid(0xFFE), Hid(0xFFF), Hid(0xC0028000), Hid(0xFFFFFFFE)),
              "INVALID_HID |LOCAL_DSP_HID |0x1(1) |0xffe(4094) |0.0:fff |192.2:8000 |255.255:fffe |");
    EXPECT_EQ(Joined(UNIT_MASTER_CONTROL, UNIT_MODULE, AddressText(0xABCD0500)), "1.63:100 |1.63:500 |171.205.5.0|");
    EXPECT_EQ(Joined(PortText(0), PortText(1), PortText(2), PortText(3)), "ORB PORT |Pri Korvo |Sec Korvo |UNKNOWN |");
    EXPECT_EQ(Joined(LinkPortText(0), LinkPortText(0xFE), LinkPortText(0xFF)), "H0 |H254 |UNKNOWN_PORT |");
    EXPECT_EQ(Joined(AudioPortText(0), AudioPortText(0xFFF), AudioPortText(0x1000)), "A0 |UNKNOWN_PORT |A4096 |");
    EXPECT_EQ(Joined(RackText(0), RackText(0xFFFF), RackText(0x013F)), "LOCAL_RACK_ID |INVALID_RACK_ID |1.63 |");
}

TEST(Texts, OfEnumerationsEndWhereTheirTextsEnd)
{
    const auto itself = [](auto value) { return value; };
    LogRecorder log;
    EXPECT_EQ(Each<StreamType>(0, 6, itself),
              "UNKNOWN_STREAM |LOCAL_LINK |MASTER_LINK |SLAVE_LINK |UPDATE_LINK |Unknown(5)|");
    EXPECT_EQ(Each<K2Heartbeat::LinkType>(0, 9, itself),
              "Unknown(0)|Router |FixedFormat |Modular |KorvoModule |KorvoHub|OrbDsp|AoIP|Unknown(8)|");
    EXPECT_EQ(Each<SampleRates::SystemSampleRate>(-1, 5, itself),
              "UNKNOWN SAMPLE RATE|48kHz|96kHz|44.1kHz|88.2kHz|UNKNOWN SAMPLE RATE|");
    EXPECT_EQ(Each<Korvo::PatchState>(0, 7, itself),
              "Patch Not Sent |Patch Sent |Patch Awaiting Reply |Patch Retry Sent |Patch Success |Patch Reserved |"
              "Invalid Patch State |");
    EXPECT_EQ(Each<IOKorvoStatus>(0, 7, itself),
              "Offline|Online|AccessDenied|PatchNotValid|PatchConflict|UnsupportedSampleRate|Unknown|");
    EXPECT_EQ(Each<int>(0, 9, IoStyleText), "Invalid|Input|Output|GPI|GPO|DeskOutput|KPI|KPO|Invalid|");
    EXPECT_EQ(Joined(IoCardTypeText(1), IoCardTypeText(16), IoCardTypeText(17)), "Mic|AoIP|InvalidType|");
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Unknown IOKorvoStatus( 6 )\n", "Unexpected IOStyleCount( 8 )\n",
                                                  "Unexpected IOTypeID( 17 )\n"));
}

TEST(Texts, OfPatchRecords)
{
    EXPECT_EQ(Joined(IoPort(Hid(0xC0028000), 1, 5), IoPort()),
              "HID:3221389312(192.2:8000 ), Style:1(Input), Idx:5 |"
              "HID:4294967295(INVALID_HID ), Style:0(Invalid), Idx:4095 |");
    EXPECT_EQ(
        Joined(HidPort{Hid(0xC0028000), 5}, LinkPatch{{1, {0, 511}}, {3, {INVALID_TDM_SLOT}}}),
        "Hid:Port 192.2:8000 :A5 |SrcLink GigE:TDM Pri Korvo 0 511  DstLink GigE:TDM UNKNOWN 3 INVALID_TDM_SLOT |");
}

TEST(Model, PortsSlotsAndIdentities)
{
    const IoPort port = IoPort::FromWords(7, 0xABCD2FFE);
    EXPECT_EQ(Joined(port.GetStyle(), port.GetIndex()), "2|4094|");
    EXPECT_EQ(port, IoPort(7, 2, 0xFFE)) << "the unused bits are ignored";
    EXPECT_EQ(std::hash<IoPort>{}(port), std::hash<IoPort>{}(IoPort(7, 2, 0xFFE)));
    EXPECT_FALSE(port == IoPort(7, 3, 0xFFE));
    EXPECT_EQ(Joined(Routing::IsSlot(511), Routing::IsSlot(512)), "1|0|");
    EXPECT_EQ(Joined(IsIoHid(0xFFFF0FFF), IsIoHid(0x1000)), "1|0|");
    EXPECT_EQ(Joined(IsSecondClassIoHid(0xFFFFF2FF), IsSecondClassIoHid(0x300)), "1|0|");
    EXPECT_EQ(Joined(MakeNodeHid(0xABCDFFFF), MakeLinkHid(0xABCDFFFF)), "171.205:4000 |171.205:8000 |");
    EXPECT_EQ(Joined(MakeHubHid(0xABCDFFFF, true), MakeHubHid(0xABCDFFFF, false)), "171.205:8000 |171.205:8001 |");
    EXPECT_EQ(Joined(Hid(GetPortAddress(0xABCD8000, Routing::PRIMARY_PORT)),
                     Hid(GetPortAddress(0xABCD8000, Routing::SECONDARY_PORT)),
                     GetPortAddress(INVALID_HID, Routing::PRIMARY_PORT)),
              "171.205:500 |171.205:600 |0|");
    EXPECT_EQ(Joined(ToPort(LinkIndex{1}), +ToNumber(ToLinkIndex(1)), +ToNumber(ToLinkIndex(0))), "Sec Korvo |0|255|");
}

TEST(Model, DeviceTypesTheirUpdateCommandsAndSampleRates)
{
    const auto linkType = [](K2Heartbeat::LinkType type) {
        const std::string kind = IsRoutingDevice(type) ? "R" : IsIoDevice(type) ? "I" : "-";
        return kind + std::to_string(static_cast<int>(ToRemoteDeviceType(type)));
    };
    EXPECT_EQ(Each<K2Heartbeat::LinkType>(0, 9, linkType), "-8|R3|I1|I0|I4|R5|R6|I7|I8|")
        << "routing or I/O, the type in update commands";
    const auto remoteType = [](RemoteDeviceType type) {
        const std::string kind = IsRoutingRemoteType(type) ? "R" : IoUpdate::IsIoType(type) ? "I" : "-";
        return kind + std::to_string(ToLinkType(type));
    };
    EXPECT_EQ(Each<RemoteDeviceType>(0, 10, remoteType), "I3|I2|I0|R1|I4|R5|R6|I7|-0|-0|") << "and back";
    const auto sampleRate = [](SampleRates::SystemSampleRate rate) {
        return std::to_string(GetBaseRate(rate)) + (IsDoubleRate(rate) ? "D" : "") + (Is44k1Family(rate) ? "F" : "");
    };
    EXPECT_EQ(Each<SampleRates::SystemSampleRate>(-1, 5, sampleRate), "0|0|0D|2F|2DF|0|")
        << "the base rate, whether double, whether of the 44.1 kHz family";
}

} // namespace
