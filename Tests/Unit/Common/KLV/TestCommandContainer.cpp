#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/Commands.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/MemoryStream.h"

#include <gtest/gtest.h>

namespace {

/// The nested form of what a container holds, after the header of an item that declares no length.
std::vector<std::uint8_t> Nested(const CommandContainer& container)
{
    MemoryStream stream;
    {
        KLVCommandWriteSet set(stream, 0, 880, container.GetLength());
        container.Write(set);
    }
    return {stream.bytes.begin() + 8, stream.bytes.end()};
}

std::shared_ptr<CommandContainer> ReadNested(const std::string& value)
{
    MemoryStream stream(HexBytes("70030028 000000 00" + value));
    stream.bytes[4] = static_cast<std::uint8_t>(stream.bytes.size() - 8);
    KLVCommandReadSet set(stream);
    auto container = std::make_shared<CommandContainer>();
    container->Read(set);
    set.Skip();
    return container;
}

TEST(CommandContainer, HoldsOneCommand)
{
    LogRecorder log;
    CommandContainer container;
    EXPECT_EQ(Nested(container), HexBytes("00000000"));
    container.Store(ModIOCardFailure(1, 2));
    const auto bytes = HexBytes("10000000 67030028 08000000 01000000 02000000");
    EXPECT_EQ(Nested(container), bytes);
    EXPECT_EQ(container.GetLength(), 20u);
    EXPECT_TRUE(log.Lines().empty());

    container.Store(RouterMcsUpdate(3));
    EXPECT_TRUE(log.HasStart("Assert failed in file "));
    EXPECT_EQ(Nested(container), bytes);
    MemoryStream more(HexBytes("70030028 05000000 01000000 01"));
    KLVCommandReadSet set(more);
    container.Read(set);
    EXPECT_EQ(log.Lines().size(), 2u);
    EXPECT_EQ(Nested(container), bytes);
}

TEST(CommandContainer, OpensItsCommandInPlaceIfThereIsOne)
{
    LogRecorder log;
    const auto container = ReadNested("0D000000 66030028 05000000 78563412 01");
    const auto set = container->GetReadSet();
    ASSERT_TRUE(set);
    EXPECT_EQ(container->GetReadSet(), set);
    EXPECT_EQ(DanteConfigChange(*set).GetParam1(), 0x12345678u);
    EXPECT_TRUE(log.Lines().empty());

    CommandContainer empty;
    char byte = 0;
    EXPECT_FALSE(empty.GetReadSet());
    EXPECT_FALSE(empty.ReadData(&byte, 1) || container->ReadData(&byte, 1));
    EXPECT_EQ(log.Lines().size(), 3u) << "assertions and no more";
}

/// Inside, too, a length is believed no further than there are bytes.
TEST(CommandContainer, ANestedLengthThatLies)
{
    for (const char* value :
         {"12000000 70030028 F0FFFFFF FFFF 00000000 F0FFFFFF", "0C000000 3F030028 05000000 01020304",
          "08000000 3F030028 04000000", "05000000 3F030028 04"}) {
        SCOPED_TRACE(value);
        const auto container = ReadNested(value);
        const auto set = container->GetReadSet();
        ASSERT_TRUE(set);
        EXPECT_EQ(set->GetBytesLeft(), 0u);
        const ForwardToActiveCmd inner(*set);
        EXPECT_TRUE(set->IsBad());
        EXPECT_EQ(inner.GetCommand()->GetLength(), 4u);
    }
}

} // namespace
