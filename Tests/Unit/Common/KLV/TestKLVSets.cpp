#include "Common/KLV/KLVReadSet.h"
#include "Common/KLV/KLVWriteSet.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/MemoryStream.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A read set over an item with these bytes as its value.
struct Item
{
    explicit Item(const std::string& value, const std::string& header = {}) : stream(HexBytes(header))
    {
        const auto bytes = HexBytes(value);
        if (header.empty()) {
            stream.bytes = HexBytes("20030028 000000 00");
            stream.bytes[4] = static_cast<std::uint8_t>(bytes.size());
        }
        stream.bytes.insert(stream.bytes.end(), bytes.begin(), bytes.end());
    }

    MemoryStream stream;
};

/// The fields themselves are told by the bytes of all commands.
TEST(KLVSets, VersionAndIdAreCutToTheirBitsAndPartAgain)
{
    LogRecorder log({DebugFeature::KLVCommandReadSetDebug});
    MemoryStream stream;
    {
        const KLVCommandWriteSet command(stream, 33, 0x400320, 0);
    }
    {
        const KLVPanelEventWriteSet event(stream, 0xFFC00007, 0);
    }
    EXPECT_EQ(stream.bytes, HexBytes("20034028 00000000 07000008 00000000"));
    EXPECT_EQ(stream.events, "<><>");
    EXPECT_EQ(KLVCommandReadSet(stream).GetKey(), 0x28400320u);
    char line[64];
    std::snprintf(line, sizeof line, "KLVCommandReadSet: %p (800):IO_INFO_REQ\r\n", static_cast<void*>(&stream));
    EXPECT_THAT(log.Lines(), ElementsAre(line));
}

TEST(KLVWriteSet, WritesMoreThanItDeclared)
{
    LogRecorder log;
    MemoryStream stream;
    {
        KLVCommandWriteSet set(stream, 0, 800, 10);
        for (int i = 0; i < 3; ++i)
            set.WriteNative(std::uint32_t{7});
    }
    EXPECT_EQ(stream.bytes.size(), 20u);
    EXPECT_THAT(log.Lines(), ElementsAre("Error writing data for key 0x28000320 - Predefined data length 10 / write "
                                         "mismatch 12\n"));
}

TEST(KLVWriteSet, LongStringsAreReportedAndSent)
{
    LogRecorder log;
    for (const std::size_t size : {std::size_t{1024}, std::size_t{1025}}) {
        EXPECT_THAT(log.Lines(), IsEmpty());
        MemoryStream stream;
        KLVCommandWriteSet(stream, 0, 800, static_cast<std::uint32_t>(4 + size))
            .WriteString("\x01\xFF" + std::string(size - 2, 'a'));
        EXPECT_EQ(stream.bytes.size(), 12 + size);
    }
    std::string dump = "01 ff ";
    for (int i = 0; i < 30; ++i)
        dump += "61 ";
    EXPECT_THAT(log.Lines(), ElementsAre("---- WARNING: LARGE STRING LENGTH 1025 ----\n", dump + "\n"));
}

TEST(KLVWriteSet, AStreamThatTakesNothing)
{
    LogRecorder log;
    MemoryStream stream;
    stream.isBroken = true;
    KLVCommandWriteSet(stream, 0, 800, 4).WriteNative(std::uint32_t{1});
    EXPECT_EQ(stream.GetWriteCount(), 0u);
    EXPECT_TRUE(log.Has("ERROR in KLVWriteSet::WriteNative - some data was not written for data key 0x28000320 \n"));
}

TEST(KLVReadSet, WhatIsLeftUnreadIsSkippedWithALine)
{
    const std::pair<const char*, const char*> cases[] = {
        {"20030028",
         "Error reading data key = 0x28000320 - Data length read 13 is inconsistent with KLV header 10\r\n"},
        {"00000000", "Data key not recognised = 0x00000000 - Data length read 13 is inconsistent with KLV header 10\n"},
    };
    for (const auto& [key, line] : cases) {
        LogRecorder log;
        Item item("0102030405", std::string(key) + "05000000");
        {
            KLVCommandReadSet set(item.stream);
            std::uint16_t number = 0;
            set.ReadNative(number);
        }
        EXPECT_EQ(item.stream.position, 13u);
        EXPECT_THAT(log.Lines(), testing::UnorderedElementsAre(line, "Skipping 3 bytes of data\n"));
    }
}

TEST(KLVReadSet, AHeaderThatLiesOrEndsEarly)
{
    for (const char* header : {"20030028 F8FFFFFF", "20030028 FFFFFFFF", "200300"}) {
        Item item("", header);
        KLVCommandReadSet set(item.stream);
        EXPECT_TRUE(set.IsBad());
        EXPECT_EQ(set.GetBytesLeft(), 0u);
    }
}

TEST(KLVReadSet, LengthsOfStrings)
{
    const std::tuple<std::uint32_t, std::uint32_t, const char*> cases[] = {
        {262143, 262143, nullptr},
        {262144, 262144, "Length (262144), MAX_STRING_SIZE (262144)"},
        {4, 3, "Error Reading string data in KLVReadSet\n"}};
    for (const auto& [length, present, line] : cases) {
        LogRecorder log;
        MemoryStream stream;
        {
            KLVCommandWriteSet set(stream, 0, 800, 4 + present);
            set.WriteNative(length);
            set.WriteRaw(std::string(present, 's').data(), present);
        }
        KLVCommandReadSet set(stream);
        std::string text = "before";
        EXPECT_EQ(set.ReadString(text), !line);
        EXPECT_EQ(text, line ? "before" : std::string(length, 's'));
        EXPECT_EQ(set.IsBad(), line != nullptr);
        EXPECT_TRUE(!line || log.Has(line));
        set.Skip();
    }
}

} // namespace
