#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/MemoryStream.h"

#include <gmock/gmock.h>
#include <memory>
#include <set>

namespace {

using golden::AllCommands;
using golden::Golden;

std::vector<std::uint8_t> Written(const DeskCommand& command)
{
    MemoryStream stream;
    command.WriteTo(stream);
    return stream.bytes;
}

std::shared_ptr<DeskCommand> ReadBack(const Golden& golden, MemoryStream& stream, bool& isBad)
{
    KLVCommandReadSet set(stream);
    EXPECT_EQ(set.GetCommandId(), golden.id);
    auto command = golden.read(set);
    isBad = set.IsBad();
    return command;
}

const std::vector<std::uint8_t> NextItem = HexBytes("20030028 00000000");

TEST(CommandsOnTheWire, EveryClassHasItsBytesBothWays)
{
    LogRecorder log;
    std::set<CommandID> seen;
    for (const Golden& golden : AllCommands()) {
        SCOPED_TRACE(golden.name);
        seen.insert(golden.id);
        EXPECT_EQ(golden.command->GetCommandId(), golden.id);
        EXPECT_EQ(Written(*golden.command), golden.bytes);
        MemoryStream stream(golden.bytes);
        bool isBad = true;
        const auto command = ReadBack(golden, stream, isBad);
        EXPECT_FALSE(isBad);
        EXPECT_EQ(stream.position, golden.bytes.size());
        auto expected = golden.bytes;
        if (golden.id == ChainLengthCmd::ID) ++expected.back();
        EXPECT_EQ(Written(*command), expected);
    }
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
    std::set<CommandID> ids;
    Klv::VisitCommands([&](auto row) { ids.insert(decltype(row)::Command::ID); });
    EXPECT_EQ(ids.size(), 52u);
    EXPECT_EQ(seen, ids);
}

/// A damaged item costs its command: it is bad, reading it takes no byte of the next.
TEST(CommandsOnTheWire, CutAtEveryByte)
{
    LogRecorder log;
    for (const Golden& golden : AllCommands()) {
        for (std::size_t cut = 8; cut < golden.bytes.size(); ++cut) {
            SCOPED_TRACE(golden.name + " cut to " + std::to_string(cut));
            std::vector<std::uint8_t> bytes(golden.bytes.begin(), golden.bytes.begin() + static_cast<long>(cut));
            bytes[4] = static_cast<std::uint8_t>(cut - 8);
            bytes.insert(bytes.end(), NextItem.begin(), NextItem.end());
            MemoryStream stream(bytes);
            bool isBad = false;
            const auto command = ReadBack(golden, stream, isBad);
            EXPECT_TRUE(isBad);
            EXPECT_EQ(stream.position, cut);
            KLVCommandReadSet next(stream);
            EXPECT_EQ(next.GetKey(), 0x28000320u);
        }
    }
}

TEST(CommandsOnTheWire, AnyByteOfABoolIsTrueAndAChainOf255HopsWraps)
{
    MemoryStream stream(HexBytes("6D1B0028 01000000 80 5B030028 09000000 04030201 08070605 FF"));
    KLVCommandReadSet error(stream);
    EXPECT_EQ(Written(SornMixedHIDError(error)), HexBytes("6D1B0028 01000000 01"));
    KLVCommandReadSet set(stream);
    const ChainLengthCmd chain(set);
    EXPECT_EQ(chain.GetHops(), 0);
    EXPECT_EQ(chain.GetLength(), 9u);
}

} // namespace
