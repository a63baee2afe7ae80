#include "KLVStreams/source/ItemFramer.h"
#include "Tests/Unit/KLVStreams/source/StreamFixture.h"

#include <algorithm>
#include <random>

namespace {

using Result = ItemFramer::Result;

constexpr std::uint32_t Key = 0x28000347;

std::string Bytes(std::size_t size, unsigned seed = 1)
{
    std::minstd_rand random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

class ItemFramerTest : public testing::Test
{
protected:
    /// Feeds bytes in pieces, as far as the ring has room, and takes each item whole, header included.
    std::vector<Received> Feed(const std::string& bytes, std::size_t pieceSize = 16400)
    {
        std::vector<Received> items;
        for (std::size_t fed = 0; fed < bytes.size();) {
            const std::size_t piece = std::min({pieceSize, bytes.size() - fed, mRing.GetSpace()});
            EXPECT_TRUE(mRing.Write(bytes.data() + fed, piece));
            fed += piece;
            while ((mLast = mFramer.Next()) == Result::Item) {
                std::string item(mFramer.GetLength() + 8, '\0');
                IOStream* const overflow = mFramer.GetOverflow();
                const auto size = static_cast<std::uint32_t>(item.size());
                EXPECT_TRUE(overflow ? overflow->ReadData(item.data(), size) : mFramer.Read(item.data(), size));
                items.push_back({mFramer.GetKey(), item, overflow != nullptr});
                mFramer.Finish();
            }
            if (mLast == Result::TooLong) break;
        }
        return items;
    }

    InputRing mRing{0x40000};
    ItemFramer mFramer{mRing};
    Result mLast = Result::NeedsBytes;
};

} // namespace

TEST_F(ItemFramerTest, AnItemSplitAtAnyByteIsWholeWithItsLastByte)
{
    const std::string item = Item(Key, "value of the item");
    for (std::size_t split = 1; split < item.size(); ++split) {
        EXPECT_TRUE(Feed(item.substr(0, split)).empty()) << split;
        const auto items = Feed(item.substr(split));
        ASSERT_EQ(items.size(), 1u) << split;
        EXPECT_EQ(items[0].value, item);
    }
    EXPECT_EQ(Feed(item + item + item, 1).size(), 3u);
}

TEST_F(ItemFramerTest, TheLengthDecidesBetweenTheRingAndTheOverflowStore)
{
    // Three rounds, so that items lie across the end of the ring and the store is used again.
    const std::size_t sizes[] = {0, 1, 241648, 241649, 5, 1000000, 0};
    for (unsigned round = 1; round <= 3; ++round) {
        std::string bytes;
        for (const std::size_t size : sizes)
            bytes += Item(Key, Bytes(size, round));
        const auto items = Feed(bytes);
        ASSERT_EQ(items.size(), 7u);
        for (std::size_t i = 0; i < 7; ++i) {
            EXPECT_TRUE(items[i].value == Item(Key, Bytes(sizes[i], round))) << sizes[i];
            EXPECT_EQ(items[i].overflow, sizes[i] > 241648) << sizes[i];
        }
    }
}

TEST_F(ItemFramerTest, AReaderMayStopAnywhereAndIgnoreTheRest)
{
    const std::string item = Item(Key, "value");
    for (std::uint32_t read = 0; read <= item.size(); ++read) {
        ASSERT_TRUE(mRing.Write(item.data(), item.size()));
        ASSERT_EQ(mFramer.Next(), Result::Item);
        std::string bytes(read, '\0');
        EXPECT_TRUE(mFramer.Read(bytes.data(), read));
        EXPECT_EQ(bytes, item.substr(0, read));
        mFramer.Ignore(static_cast<std::uint32_t>(item.size()) - read);
        mFramer.Finish();
        EXPECT_EQ(mRing.GetLength(), 0u) << read;
    }
}

TEST_F(ItemFramerTest, NothingIsTakenAfterAHeaderThatPromisesTooMuch)
{
    const std::string largest("\x00\x00\x00\x01", 4);
    EXPECT_TRUE(Feed(Item(Key, "").substr(0, 4) + largest).empty());
    EXPECT_EQ(mLast, Result::NeedsBytes) << "16 MiB";
    EXPECT_EQ(Feed(Bytes(16u << 20)).size(), 1u);
    EXPECT_EQ(Feed(Item(Key, "good") + Item(Key, "").substr(0, 4) + "\x01" + largest.substr(1) + "never read").size(),
              1u);
    EXPECT_EQ(mLast, Result::TooLong);
}
