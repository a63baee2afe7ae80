#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/Commands/Commands.h"
#include "Common/KLV/KeyText.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <sstream>
#include <utility>

namespace {

template <class Value>
std::string Text(const Value& value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

TEST(CommandTexts, OfIds)
{
    const std::pair<CommandID, const char*> cases[] = {
        {0, "PANEL_USE_TEMPLATES"},      {4, "Unknown"},
        {841, "PATCH_WAS_SUCESSFUL"},    {846, "REEQUEST_ACTIVE_MCS"},
        {8001, "MC_HOST_OVERALLOCATED"}, {0xFFFFFFFF, "Unknown"},
    };
    for (const auto& [id, text] : cases)
        EXPECT_STREQ(CommandIdToText(id), text) << id;
}

TEST(CommandTexts, OfKeys)
{
    const std::pair<std::uint32_t, const char*> cases[] = {
        {0x00041003, "MEM:F1:D2:I3"},   {0x07FFFFFF, "MEM:F511:D127:I2047"}, {0x08400005, "EVT:V1:E5"},
        {0x10041003, "FEAT:F1:D2:I3"},  {0x18041003, "PATH:F1:D2:I3"},       {0x20041003, "FS:F1:D2:I3"},
        {0x28000320, "CMD:V0:I800"},    {0x2FFFFFFF, "CMD:V31:I4194303"},    {0x30041003, "PAN:F1:D2:I3"},
        {0x3FFF0009, "DSP_MESSAGE:M9"}, {0x48000000, "UNKNOWN 9"},           {0xFFFFFFFF, "UNKNOWN 31"},
    };
    for (const auto& [key, text] : cases)
        EXPECT_EQ(KeyToText(key), text);
}

TEST(CommandTexts, OfCommands)
{
    EXPECT_EQ(Text(RemoteIoUpdate(RemoteDeviceType::AoIP, 0xC0020001, 0x0A000001, 0x00AB8001, SampleRates::RATE_96K,
                                  {SampleRates::RATE_48K, SampleRates::RATE_88K2})),
              "Hid=192.2:1 Type=AoIP10.0.0.1RouterHid=0.171:8001 96kHzSupported Rates\r\n48kHz\n88.2kHz\n");
    const IoPort box(0xC0020001, 1, 5);
    const IoPort other(0xC0020002, 2, 6);
    EXPECT_EQ(Text(RouterPatchAudio(PatchSource(Hid{0x00AB8001}, 1, {20, 21}), other, box, true, false)),
              "Patch Make Src 0.171:8001 20Pri Korvo  Slots 20 21  Dest " + Text(other) + " Orig " + Text(box) +
                  " UseMe false");
    EXPECT_EQ(Text(RouterPatchAudio(PatchSource(box, 255, {7}), other, box, false, true)),
              "Patch Break Src " + Text(box) + " Slot 7  Dest " + Text(other) + " Orig " + Text(box) + " UseMe true");
    EXPECT_STREQ(DeviceCheckResultsCmd("", 5).GetResultText(), "Unknown");
}

TEST(AtomicUpdate, WhatAnAddressSaysOfADevice)
{
    const std::tuple<const char*, bool, int, int> cases[] = {
        {"1.63.1.0", true, 9, 3},  {"1.63.2.0", false, 2, 2}, {"1.63.3.0", true, 3, 0},   {"1.63.4.0", true, 3, 1},
        {"1.63.5.0", true, 10, 3}, {"1.63.6.0", false, 4, 2}, {"1.63.7.0", true, 5, 0},   {"1.63.8.0", true, 5, 1},
        {"1.63.9.0", true, 12, 0}, {"1.63.0.0", true, 12, 1}, {"1.63.0.0", false, 12, 2}, {"1..63...5.0", true, 10, 3},
        {"1.63.5", true, 12, 2},   {"", true, 12, 2},         {"1.2.3.4.5", true, 12, 2},
    };
    LogRecorder log;
    const auto expect = [](const char* address, bool selfTest, int kind, int side) {
        const auto device = AtomicUpdate::AddressToDevice(address, selfTest);
        EXPECT_EQ(std::make_pair(int{device.kind}, int{device.side}), std::make_pair(kind, side)) << address;
    };
    for (const auto& row : cases)
        std::apply(expect, row);
    EXPECT_TRUE(log.Lines().empty());
    for (const char* address : {"1.63.x.0", "1.63.-5.0", "1.63.4294967301.0"})
        expect(address, true, 12, 2);
    EXPECT_EQ(log.Count("AtomicUpdate::AddressToDevice Well that went very wrong\r\n"), 3u);
}

} // namespace
