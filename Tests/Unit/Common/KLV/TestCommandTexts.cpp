#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/Commands/Commands.h"
#include "Common/KLV/KeyText.h"
#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

namespace {

TEST(CommandTexts, OfIdsAndKeys)
{
    EXPECT_EQ(Joined(CommandIdToText(0), CommandIdToText(4), CommandIdToText(841), CommandIdToText(846)),
              "PANEL_USE_TEMPLATES|Unknown|PATCH_WAS_SUCESSFUL|REEQUEST_ACTIVE_MCS|");
    EXPECT_EQ(Joined(CommandIdToText(8001), CommandIdToText(0xFFFFFFFF)), "MC_HOST_OVERALLOCATED|Unknown|");
    EXPECT_EQ(Joined(KeyToText(0x00041003), KeyToText(0x07FFFFFF), KeyToText(0x08400005), KeyToText(0x10041003)),
              "MEM:F1:D2:I3|MEM:F511:D127:I2047|EVT:V1:E5|FEAT:F1:D2:I3|");
    EXPECT_EQ(Joined(KeyToText(0x18041003), KeyToText(0x20041003), KeyToText(0x28000320), KeyToText(0x2FFFFFFF)),
              "PATH:F1:D2:I3|FS:F1:D2:I3|CMD:V0:I800|CMD:V31:I4194303|");
    EXPECT_EQ(Joined(KeyToText(0x30041003), KeyToText(0x3FFF0009), KeyToText(0x40000000), KeyToText(0xFFFFFFFF)),
              "PAN:F1:D2:I3|DSP_MESSAGE:M9|UNKNOWN 8|UNKNOWN 31|");
}

TEST(CommandTexts, OfLocations)
{
    std::string texts;
    for (const std::uint32_t kind : {0u, 7u, 8u, 15u, 16u, 17u, 24u, 25u, 65535u})
        texts += LocationToText({kind, 3}) + ' ';
    EXPECT_EQ(texts, "MCS.3 DESK_PC.3 MASTER ROUTER PATCH LINK3 MCS_AWACS_LINK3 <MISSING STRING>.3 "
                     "REMOTE_MASTER_ROUTER3 OSTREL_TENDER3 <MISSING STRING>.3 UNKNOWN.3 ");
}

TEST(CommandTexts, OfCommands)
{
    EXPECT_EQ(Joined(RemoteIoUpdate(RemoteDeviceType::AoIP, 0xC0020001, 0x0A000001, 0x00AB8001, SampleRates::RATE_96K,
                                    {SampleRates::RATE_48K, SampleRates::RATE_88K2})),
              "Hid=192.2:1 Type=AoIP10.0.0.1RouterHid=0.171:8001 96kHzSupported Rates\r\n48kHz\n88.2kHz\n|");
    const IoPort box(0xC0020001, 1, 5);
    const IoPort other(0xC0020002, 2, 6);
    std::ostringstream make, end, ports;
    ports << "  Dest " << other << " Orig " << box << " UseMe ";
    make << RouterPatchAudio(PatchSource(Hid{0x00AB8001}, 1, {20, 21}), other, box, true, false);
    EXPECT_EQ(make.str(), "Patch Make Src 0.171:8001 20Pri Korvo  Slots 20 21" + ports.str() + "false");
    end << RouterPatchAudio(PatchSource(box, 255, {7}), other, box, false, true);
    ports << "true";
    EXPECT_EQ(end.str(), "Patch Break Src HID:3221356545(192.2:1 ), Style:1(Input), Idx:5  Slot 7" + ports.str());
    EXPECT_STREQ(DeviceCheckResultsCmd("", 5).GetResultText(), "Unknown");
    using Sorn = SornMasterRouterNotification;
    EXPECT_EQ(Sorn::Command(3).GetMessage(), "Korvo2 master router lost.|Korvo2 master router lost.");
    EXPECT_EQ(Sorn::Command(5).GetMessage(), "Unknown Korvo2 master router notification.");
    EXPECT_EQ(Joined(+Sorn::SAMPLE_RATE, +Sorn::DEFAULT_ID, +Sorn::DETECTED, +Sorn::UNKNOWN), "0|1|2|4|");
}

TEST(AtomicUpdate, WhatAnAddressSaysOfADevice)
{
    const std::tuple<const char*, bool, int, int> cases[] = {
        {"1.63.1.0", true, 9, 3},  {"1.63.2.0", false, 2, 2},  {"1.63.3.0", true, 3, 0},
        {"1.63.4.0", true, 3, 1},  {"1.63.5.0", true, 10, 3},  {"1.63.6.0", false, 4, 2},
        {"1.63.7.0", true, 5, 0},  {"1.63.8.0", true, 5, 1},   {"1.63.9.0", true, 12, 0},
        {"1.63.0.0", true, 12, 1}, {"1.63.0.0", false, 12, 2}, {"1..63...5.0", true, 10, 3},
        {"1.63.5", true, 12, 2},   {"", true, 12, 2},          {"1.2.3.4.5", true, 12, 2},
        {"1.63.x.0", true, 12, 2}, {"1.63.-5.0", true, 12, 2}, {"1.63.4294967301.0", true, 12, 2},
    };
    LogRecorder log;
    for (const auto& [address, selfTest, kind, side] : cases) {
        const auto device = AtomicUpdate::AddressToDevice(address, selfTest);
        EXPECT_EQ(Joined(int{device.kind}, int{device.side}), Joined(kind, side)) << address;
    }
    EXPECT_EQ(log.Lines(), std::vector<std::string>(3, "AtomicUpdate::AddressToDevice Well that went very wrong\r\n"));
}

} // namespace
