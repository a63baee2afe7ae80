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

TEST(KLVWriteSet, EveryNativeTypeAndTheListsOfThem)
{
    LogRecorder log;
    MemoryStream stream;
    {
        KLVCommandWriteSet set(stream, 33, 0x400320, 38);
        set.WriteNative(true);
        set.WriteNative('A');
        set.WriteNative(std::int8_t{-1});
        set.WriteNative(std::uint8_t{254});
        set.WriteNative(std::int16_t{-2});
        set.WriteNative(std::uint16_t{0xABCD});
        set.WriteNative(std::int32_t{-3});
        set.WriteNative(std::uint32_t{0x89ABCDEF});
        set.WriteString("");
        set.WriteString("xyz");
        set.WriteVector(std::vector<std::uint16_t>{});
        set.WriteVector(std::vector<bool>{true});
        set.WriteRaw("q", 1);
        set.WriteNative(false);
    }
    // The version and the id are cut to 5 and 22 bits.
    EXPECT_EQ(stream.bytes, HexBytes("20034028 26000000 01 41 FF FE FEFF CDAB FDFFFFFF EFCDAB89"
                                     "00000000 03000000 78797A 00000000 01000000 01 71 00"));
    EXPECT_EQ(stream.events, "<>");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(KLVWriteSet, PanelEventKey)
{
    MemoryStream stream;
    {
        KLVPanelEventWriteSet set(stream, 0xFFC00007, 0);
    }
    EXPECT_EQ(stream.bytes, HexBytes("07000008 00000000"));
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
    for (const std::size_t size : {std::size_t{1024}, std::size_t{1025}}) {
        LogRecorder log;
        MemoryStream stream;
        {
            KLVCommandWriteSet set(stream, 0, 800, static_cast<std::uint32_t>(4 + size));
            set.WriteString("\x01\xFF" + std::string(size - 2, 'a'));
        }
        EXPECT_EQ(stream.bytes.size(), 12 + size);
        if (size == 1024) {
            EXPECT_THAT(log.Lines(), IsEmpty());
            continue;
        }
        std::string dump = "01 ff ";
        for (int i = 0; i < 30; ++i)
            dump += "61 ";
        EXPECT_THAT(log.Lines(), ElementsAre("---- WARNING: LARGE STRING LENGTH 1025 ----\n", dump + "\n"));
    }
}

TEST(KLVWriteSet, AStreamThatTakesNothing)
{
    LogRecorder log;
    MemoryStream stream;
    stream.isBroken = true;
    {
        KLVCommandWriteSet set(stream, 0, 800, 4);
        set.WriteNative(std::uint32_t{1});
    }
    EXPECT_EQ(stream.GetWriteCount(), 0u);
    EXPECT_TRUE(log.Has("ERROR in KLVWriteSet::WriteNative - some data was not written for data key 0x28000320 \n"));
    stream.isBroken = false;
    stream.ResetForWrite(false);
    EXPECT_FALSE(stream.Write("x", 1));
    EXPECT_EQ(stream.GetWriteCount(), 0u);
}

TEST(KLVReadSet, EveryNativeTypeAndTheListsOfThem)
{
    LogRecorder log({DebugFeature::KLVCommandReadSetDebug});
    Item item("02 41 FF FEFF CDAB FDFFFFFF EFCDAB89 03000000 78797A 02000000 0100 FFFF");
    {
        KLVCommandReadSet set(item.stream);
        bool flag = false;
        char letter = 0;
        std::int8_t signedByte = 0;
        std::int16_t signedShort = 0;
        std::uint16_t unsignedShort = 0;
        std::int32_t signedWord = 0;
        std::uint32_t word = 0;
        std::string text = "before";
        std::vector<std::int16_t> list = {9};
        EXPECT_TRUE(set.ReadNative(flag) && set.ReadNative(letter) && set.ReadNative(signedByte) &&
                    set.ReadNative(signedShort) && set.ReadNative(unsignedShort) && set.ReadNative(signedWord) &&
                    set.ReadNative(word) && set.ReadString(text));
        set.ReadVector(list);
        EXPECT_TRUE(flag);
        EXPECT_EQ(letter, 'A');
        EXPECT_EQ(signedByte, -1);
        EXPECT_EQ(signedShort, -2);
        EXPECT_EQ(unsignedShort, 0xABCD);
        EXPECT_EQ(signedWord, -3);
        EXPECT_EQ(word, 0x89ABCDEF);
        EXPECT_EQ(text, "xyz");
        EXPECT_THAT(list, ElementsAre(1, -1));
        EXPECT_FALSE(set.IsBad());
    }
    char line[64];
    std::snprintf(line, sizeof line, "KLVCommandReadSet: %p (800):IO_INFO_REQ\r\n", static_cast<void*>(&item.stream));
    EXPECT_THAT(log.Lines(), ElementsAre(line));
}

TEST(KLVReadSet, TheVersionIsNoPartOfTheId)
{
    Item item("", "20034028 00000000");
    KLVCommandReadSet set(item.stream);
    EXPECT_EQ(set.GetCommandId(), 800u);
    EXPECT_EQ(set.GetKey(), 0x28400320u);
}

TEST(KLVReadSet, WhatIsLeftUnreadIsSkippedWithALine)
{
    const struct
    {
        const char* key;
        const char* line;
    } cases[] = {
        {"20030028",
         "Error reading data key = 0x28000320 - Data length read 13 is inconsistent with KLV header 10\r\n"},
        {"00000000", "Data key not recognised = 0x0        - Data length read 13 is inconsistent with KLV header 10\n"},
    };
    for (const auto& one : cases) {
        LogRecorder log;
        Item item("0102030405", std::string(one.key) + "05000000");
        {
            KLVCommandReadSet set(item.stream);
            std::uint16_t number = 0;
            set.ReadNative(number);
        }
        EXPECT_EQ(item.stream.position, 13u);
        EXPECT_EQ(log.Lines().size(), 2u);
        EXPECT_TRUE(log.Has("Skipping 3 bytes of data\n"));
    }
    LogRecorder log;
    Item item("0102030405");
    {
        KLVCommandReadSet set(item.stream);
        set.Skip();
    }
    EXPECT_EQ(item.stream.position, 13u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

/// The bytes behind the item are there to be read, but they are the next item's.
TEST(KLVReadSet, NothingIsReadPastTheEnd)
{
    LogRecorder log;
    Item item("0102 03040506", "20030028 02000000");
    {
        KLVCommandReadSet set(item.stream);
        std::uint32_t word = 77;
        std::uint8_t byte = 78;
        EXPECT_FALSE(set.ReadNative(word));
        EXPECT_EQ(word, 77u);
        EXPECT_TRUE(set.IsBad());
        // What stands behind a field that does not fit has no known place.
        EXPECT_FALSE(set.ReadNative(byte));
        EXPECT_EQ(byte, 78);
    }
    EXPECT_EQ(item.stream.position, 10u);
}

TEST(KLVReadSet, ALengthThatRunsOverTheCounter)
{
    for (const char* header : {"20030028 F8FFFFFF", "20030028 FFFFFFFF"}) {
        Item item("00", header);
        KLVCommandReadSet set(item.stream);
        EXPECT_TRUE(set.IsBad());
        EXPECT_EQ(set.GetBytesLeft(), 0u);
    }
    Item half("", "200300");
    KLVCommandReadSet set(half.stream);
    EXPECT_TRUE(set.IsBad());
    EXPECT_EQ(set.GetBytesLeft(), 0u);
}

TEST(KLVReadSet, LengthsOfStrings)
{
    for (const std::uint32_t length : {262143u, 262144u}) {
        LogRecorder log;
        MemoryStream stream;
        {
            KLVCommandWriteSet set(stream, 0, 800, 4 + length);
            set.WriteNative(length);
            set.WriteRaw(std::string(length, 's').data(), length);
        }
        KLVCommandReadSet set(stream);
        std::string text = "before";
        EXPECT_EQ(set.ReadString(text), length == 262143);
        EXPECT_EQ(text, length == 262143 ? std::string(length, 's') : "before");
        EXPECT_EQ(set.IsBad(), length == 262144);
        EXPECT_EQ(log.Has("Length (262144), MAX_STRING_SIZE (262144)"), length == 262144);
        EXPECT_EQ(log.HasStart("Assert failed in file "), length == 262144);
        set.Skip();
    }
    LogRecorder log;
    Item item("04000000 616263");
    KLVCommandReadSet set(item.stream);
    std::string text = "before";
    EXPECT_FALSE(set.ReadString(text));
    EXPECT_EQ(text, "before");
    EXPECT_THAT(log.Lines(), ElementsAre("Error Reading string data in KLVReadSet\n"));
    set.Skip();
}

/// A length that only the first pass finds out: nothing goes out in that pass.
TEST(DataStream, TwoPasses)
{
    MemoryStream stream;
    std::uint32_t index = 9;
    std::uint32_t start = 9;
    stream.ResetForWrite(false);
    stream.BeginKey(0x28000320, index, start, -1);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(start, 0u);
    stream.EndKey(index, start, 0x28000320);
    EXPECT_TRUE(stream.bytes.empty());
    EXPECT_EQ(stream.GetWriteCount(), 8u);
    stream.ResetForWrite(true);
    stream.BeginKey(0x28000320, index, start, -1);
    stream.EndKey(index, start, 0x28000320);
    EXPECT_EQ(stream.bytes, HexBytes("20030028 00000000"));
}

} // namespace
