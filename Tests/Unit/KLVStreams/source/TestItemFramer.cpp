#include "KLVStreams/source/ItemFramer.h"
#include "Tests/Unit/KLVStreams/source/StreamFixture.h"

#include <random>

namespace {

using Result = ItemFramer::Result;

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
    Lines Feed(const std::string& bytes, std::size_t pieceSize = 16400)
    {
        Lines items;
        for (std::size_t fed = 0; fed < bytes.size() && mLast != Result::TooLong;) {
            const std::size_t piece = std::min({pieceSize, bytes.size() - fed, mRing.GetSpace()});
            EXPECT_TRUE(mRing.Write(bytes.data() + fed, piece));
            fed += piece;
            while ((mLast = mFramer.Next()) == Result::Item) {
                std::string item(mFramer.GetLength() + 8, '\0');
                const auto size = static_cast<std::uint32_t>(item.size());
                IOStream* const overflow = mFramer.GetOverflow();
                EXPECT_EQ(overflow != nullptr, size > 241656) << size;
                EXPECT_TRUE(overflow ? overflow->ReadData(item.data(), size) : mFramer.Read(item.data(), size));
                items.push_back(item);
                mFramer.Finish();
            }
        }
        return items;
    }

    InputRing mRing{0x40000};
    ItemFramer mFramer{mRing};
    Result mLast = Result::NeedsBytes;
};

} // namespace

TEST_F(ItemFramerTest, TheLengthDecidesBetweenTheRingAndTheOverflowStoreHoweverItIsSplit)
{
    // Three rounds, so that items lie across the end of the ring and the store is used again.
    for (unsigned round = 1; round <= 3; ++round) {
        std::string bytes;
        Lines items;
        for (const std::size_t size : {0, 1, 241648, 241649, 5, 1000000, 0}) {
            items.push_back(Item(Key, Bytes(size, round)));
            bytes += items.back();
        }
        EXPECT_TRUE(Feed(bytes) == items) << round;
    }
    const std::string item = Item(Key, "value of the item");
    EXPECT_EQ(Feed(item + item, 1), (Lines{item, item}));
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
    EXPECT_EQ(Feed(Item(Key, Bytes(16u << 20))).size(), 1u) << "16 MiB";
    const std::string tooMuch("\x01\x00\x00\x01", 4);
    EXPECT_EQ(Feed(Item(Key, "good") + Item(Key, "").substr(0, 4) + tooMuch + "never read").size(), 1u);
    EXPECT_EQ(mLast, Result::TooLong);
}
