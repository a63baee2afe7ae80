#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/MemoryStream.h"

#include <gmock/gmock.h>
#include <optional>
#include <set>

namespace {

std::vector<std::uint8_t> Written(const DeskCommand& command)
{
    MemoryStream stream;
    command.WriteTo(stream);
    return stream.bytes;
}

/// A damaged item costs its command: it is bad, and reading it takes no byte of the next.
TEST(CommandsOnTheWire, EveryClassHasItsBytesBothWaysAndIsBadIfCut)
{
    const std::vector<std::uint8_t> next = HexBytes("20030028 00000000");
    std::set<CommandID> ids, seen;
    for (const auto& golden : golden::AllCommands()) {
        seen.insert(golden.id);
        EXPECT_EQ(golden.command->GetCommandId(), golden.id);
        EXPECT_EQ(Written(*golden.command), golden.bytes) << golden.name;
        for (std::size_t size = golden.bytes.size(); size >= 8; --size) {
            SCOPED_TRACE(golden.name + " of " + std::to_string(size));
            const bool isWhole = size == golden.bytes.size();
            const LogRecorder log;
            std::vector<std::uint8_t> bytes(golden.bytes.begin(), golden.bytes.begin() + static_cast<long>(size));
            bytes[4] = static_cast<std::uint8_t>(size - 8);
            bytes.insert(bytes.end(), next.begin(), next.end());
            MemoryStream stream(bytes);
            std::optional<KLVCommandReadSet> set(std::in_place, stream);
            EXPECT_EQ(set->GetCommandId(), golden.id);
            const auto command = golden.read(*set);
            EXPECT_EQ(set->IsBad(), !isWhole);
            set.reset();
            EXPECT_EQ(stream.position, size);
            EXPECT_EQ(KLVCommandReadSet(stream).GetKey(), 0x28000320u);
            if (!isWhole) continue;
            EXPECT_THAT(log.Lines(), testing::IsEmpty());
            bytes.resize(size);
            if (golden.id == ChainLengthCmd::ID) ++bytes.back();
            EXPECT_EQ(Written(*command), bytes);
        }
    }
    Klv::VisitCommands([&](auto row) { ids.insert(decltype(row)::Command::ID); });
    EXPECT_EQ(ids.size(), 52u);
    EXPECT_EQ(seen, ids);
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
