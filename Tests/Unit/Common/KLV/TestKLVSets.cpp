#include "Common/KLV/KLVReadSet.h"
#include "Common/KLV/KLVWriteSet.h"
#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/MemoryStream.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The bytes of all commands test the fields themselves.
TEST(KLVSets, VersionAndIdAreCutToTheirBitsAndPartAgain)
{
    LogRecorder log({DebugFeature::KLVCommandReadSetDebug, DebugFeature::KLVCommandWriteSetDebug});
    MemoryStream stream;
    KLVCommandWriteSet(stream, 33, 0x400320, 0).Commit();
    static_cast<void>(KLVPanelEventWriteSet(stream, 0xFFC00006, 0));
    EXPECT_EQ(stream.bytes, HexBytes("20034028 00000000 06000008 00000000"));
    EXPECT_EQ(stream.events, "<!><>");
    EXPECT_EQ(KLVCommandReadSet(stream).GetKey(), 0x28400320u);
    char line[64];
    std::snprintf(line, sizeof line, "Set: %p (800):IO_INFO_REQ\r\n", static_cast<void*>(&stream));
    EXPECT_THAT(log.Lines(), ElementsAre(std::string("KLVCommandWrite") + line, std::string("KLVCommandRead") + line));
}

TEST(KLVSets, ListsOfNumbers)
{
    MemoryStream stream;
    KLVCommandWriteSet(stream, 0, 800, 8).WriteVector(std::vector<std::uint16_t>{1, 0x203});
    EXPECT_EQ(stream.bytes, HexBytes("20030028 08000000 02000000 0100 0302"));
    std::vector<std::uint16_t> list{9};
    KLVCommandReadSet set(stream);
    set.ReadVector(list);
    EXPECT_TRUE(!set.IsBad() && list == std::vector<std::uint16_t>({1, 0x203}));
}

/// No set passes a negative length.
TEST(DataStream, ThePassWithoutLengthsNotesThoseOfTheNext)
{
    struct CountingStream : MemoryStream
    {
        using DataStream::AddWriteCount;
    } stream;
    std::uint32_t index = 0;
    std::uint32_t start = 0;
    stream.ResetForWrite(false);
    for (const std::uint32_t key : {7u, 8u}) {
        stream.BeginKey(key, index, start, -1);
        stream.AddWriteCount(key - 4);
        stream.EndKey(index, start, key);
    }
    EXPECT_TRUE(!stream.Write("", 1) && stream.bytes.empty());
    stream.ResetForWrite(true);
    for (const std::uint32_t key : {7u, 8u, 9u})
        stream.BeginKey(key, index, start, -1);
    EXPECT_EQ(stream.bytes, HexBytes("07000000 03000000 08000000 04000000 09000000 00000000"));
    EXPECT_EQ(stream.GetWriteCount(), 47u);
    stream.ResetForWrite(false);
    stream.ResetForWrite(true);
    stream.BeginKey(7, index, start, -1);
    EXPECT_EQ(stream.bytes[28], 0) << "forgotten";
}

TEST(KLVWriteSet, ReportsWhatItDidNotDeclareOrTheStreamDidNotTake)
{
    const std::string error =
        "ERROR in KLVWriteSet::WriteNative - some data was not written for data key 0x28000320 \n";
    const std::string mismatch = "Error writing data for key 0x28000320 - Predefined data length 0 / write mismatch ";
    for (const bool isBroken : {false, true}) {
        LogRecorder log;
        MemoryStream stream;
        stream.isBroken = isBroken;
        {
            KLVCommandWriteSet set(stream, 0, 800, 0);
            for (int i = 0; i < 3; ++i)
                set.WriteNative(std::uint32_t{7});
        }
        EXPECT_EQ(stream.GetWriteCount(), isBroken ? 0u : 20u);
        EXPECT_EQ(log.Count(error), isBroken ? 3u : 0u);
        EXPECT_EQ(log.Lines().back(), mismatch + (isBroken ? "-8\n" : "12\n"));
    }
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

/// The stream's test has the line for other keys.
TEST(KLVReadSet, WhatIsLeftUnreadIsSkippedWithALine)
{
    LogRecorder log;
    MemoryStream stream(HexBytes("00000000 05000000 0102030405"));
    std::uint16_t number = 0;
    KLVCommandReadSet(stream).ReadNative(number);
    EXPECT_EQ(stream.position, 13u);
    EXPECT_THAT(log.Lines(), ElementsAre("Data key not recognised = 0x00000000 - Data length read 13 is inconsistent "
                                         "with KLV header 10\n",
                                         "Skipping 3 bytes of data\n"));
}

TEST(KLVReadSet, AHeaderThatLiesOrEndsEarly)
{
    for (const auto& [header, id] : {std::pair("20030028 F8FFFFFF", 800), {"20030028 FFFFFFFF", 800}, {"200300", 0}}) {
        MemoryStream stream(HexBytes(header));
        KLVCommandReadSet set(stream);
        std::uint32_t number = 7;
        std::string text;
        EXPECT_TRUE(set.IsBad());
        EXPECT_FALSE(set.ReadNative(number) || set.ReadString(text));
        EXPECT_EQ(Joined(set.GetCommandId(), set.GetBytesLeft(), set.ReadCount(1), number), Joined(id, 0, 0, 7));
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
        KLVCommandWriteSet(stream, 0, 800, 4 + present).WriteString(std::string(present, 's'));
        StoreLittleEndian(length, &stream.bytes[8]);
        KLVCommandReadSet set(stream);
        std::string text = "before";
        EXPECT_EQ(set.ReadString(text), !line);
        EXPECT_EQ(text, line ? "before" : std::string(length, 's'));
        EXPECT_EQ(set.IsBad(), line != nullptr);
        set.Skip();
        EXPECT_TRUE(!log.HasStart("Skipping") && (!line || log.Has(line)));
    }
}

} // namespace
