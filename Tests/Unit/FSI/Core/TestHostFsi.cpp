#include "FSI/Core/HostFsi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::Pair;

struct Journal
{
    std::map<std::uint32_t, std::uint32_t> values;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> writes;
};

/// Gives what the test put in, whatever is written to it.
class StubbornBlock : public fsi::RegisterBlock
{
public:
    explicit StubbornBlock(Journal& journal) : mJournal(journal) {}

    std::uint8_t Read8(std::uint32_t offset) const override
    {
        return static_cast<std::uint8_t>(mJournal.values[offset]);
    }
    std::uint32_t Read32(std::uint32_t offset) const override { return mJournal.values[offset]; }
    void Write32(std::uint32_t offset, std::uint32_t value) override { mJournal.writes.push_back({offset, value}); }
    void WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count) override
    {
        for (std::size_t i = 0; i < count; ++i)
            Write32(offset, words[i]);
    }
    int GetFileDescriptor() const override { return -1; }
    const volatile void* GetMappedAddress() const override { return nullptr; }
    std::uint32_t GetSize() const override { return 0x40; }

private:
    Journal& mJournal;
};

TEST(HostFsi, EachRegisterIsReachedAtItsOffset)
{
    Journal journal;
    journal.values = {{0x04, 0x1A5}, {0x06, 42}, {0x18, 7}, {0x20, 99}, {0x3C, 0x80000000}, {0x34, 0x10}};
    fsi::HostFsi block("0004", std::make_unique<StubbornBlock>(journal));
    EXPECT_EQ(block.GetName(), "0004");
    EXPECT_EQ(block.GetBlockId(), 0xA5);
    EXPECT_EQ(block.GetFirmwareBuild(), 42);
    EXPECT_EQ(block.ReadInterruptPending(), 7u);
    EXPECT_EQ(block.ReadIndirectData(), 99u);
    EXPECT_TRUE(block.TestStatusBit(31));
    EXPECT_FALSE(block.TestStatusBit(3));

    block.SetInterruptEnables(0x1F);
    block.AcknowledgeInterrupt(31);
    block.SetIndirectAddress(0xC0000);
    block.WriteIndirectData(5);
    EXPECT_THAT(journal.writes,
                ElementsAre(Pair(0x30, 0x1F), Pair(0x34, 0x80000010), Pair(0x24, 0xC0000), Pair(0x20, 5)));
}

TEST(HostFsi, ControlBitsFollowTheShadowAndNotTheRegister)
{
    Journal journal;
    journal.values = {{0x38, 0xFFFFFFFF}};
    fsi::HostFsi block("0003", std::make_unique<StubbornBlock>(journal));
    block.SetControlBit(3);
    block.SetControlBit(31);
    block.ClearControlBit(3);
    block.ClearControlBit(4);
    EXPECT_THAT(journal.writes,
                ElementsAre(Pair(0x38, 0x8), Pair(0x38, 0x80000008), Pair(0x38, 0x80000000), Pair(0x38, 0x80000000)));
}

TEST(HostFsi, NoControlBitIsLostBetweenTwoThreads)
{
    Journal journal;
    fsi::HostFsi block("0003", std::make_unique<StubbornBlock>(journal));
    const auto toggle = [&block](int bit) {
        for (int i = 0; i < 1000; ++i) {
            block.SetControlBit(bit);
            block.ClearControlBit(bit);
        }
        block.SetControlBit(bit);
    };
    std::thread other(toggle, 5);
    toggle(4);
    other.join();
    EXPECT_EQ(journal.writes.back().second, 0x30u);
    EXPECT_EQ(journal.writes.size(), 4002u);
}

} // namespace
