#include "Tests/Unit/KLVStreams/source/StreamFixture.h"

using KLVTCPStreamTest = StreamTest;

namespace {

constexpr std::uint32_t Key = 0x28000347;

} // namespace

TEST_F(KLVTCPStreamTest, HundredsOfItemsInOneSegmentAreDeliveredInOneRead)
{
    KeepingStream& stream = Accept();
    std::string segment;
    for (int i = 0; i < 700; ++i)
        segment += Item(Key + static_cast<std::uint32_t>(i), std::to_string(i));
    ASSERT_TRUE(SendAndWaitForItems(segment, 700));
    EXPECT_EQ(stream.mReads, 1);
    EXPECT_EQ(stream.mItemsDone, 700);
    for (std::uint32_t i = 0; i < 700; ++i) {
        EXPECT_EQ(stream.mItems[i].key, Key + i);
        EXPECT_EQ(stream.mItems[i].value, std::to_string(i));
    }
}

TEST_F(KLVTCPStreamTest, ItemsOfOtherKeyTypesAreSkippedWholeAndCounted)
{
    KeepingStream& stream = Accept();
    ASSERT_TRUE(SendAndWaitForItems(Item(Key, "first") + Item(0x08000001, "an event") + Item(Key, "second"), 2));
    EXPECT_EQ(stream.mItems[1].value, "second");
    EXPECT_EQ(mLog.Count("KLVTCPStream::OnRead() (Length <= 262144): Could not process key type 0x1\n"), 1u);
    EXPECT_EQ(mLog.Count("Skipping 16 bytes of data\n"), 1u);
    EXPECT_EQ(stream.mItemsDone, 3);

    const std::string large = Item(0x48000000, std::string(300000, 'x'));
    ASSERT_TRUE(SendAndWaitForItems(large + Item(Key, "third"), 3));
    EXPECT_EQ(stream.mItems[2].value, "third");
    EXPECT_EQ(mLog.Count("KLVTCPStream::OnRead() (Length > 262144): Could not process key type 0x9\n"), 1u);
    EXPECT_EQ(mLog.Count("Skipping 300008 bytes of data\n"), 1u);
}

TEST_F(KLVTCPStreamTest, WhatAReaderLeavesIsSkippedAndTheNextItemParses)
{
    KeepingStream& stream = Accept();
    stream.mLeave = 3;
    for (const std::size_t size : {std::size_t{20}, std::size_t{300000}}) {
        stream.mItems.clear();
        ASSERT_TRUE(SendAndWaitForItems(Item(Key, std::string(size, 'x')) + Item(Key, "abcdef"), 2));
        EXPECT_EQ(stream.mItems[1].value, "abc") << size;
    }
    EXPECT_EQ(mLog.Count("Skipping 3 bytes of data\n"), 4u);
}

TEST_F(KLVTCPStreamTest, AHeaderThatPromisesTooMuchClosesTheStream)
{
    // 16 MiB and one byte, and 4 GiB less one byte.
    for (const std::string& length : {std::string("\x01\x00\x00\x01", 4), std::string("\xFF\xFF\xFF\xFF", 4)}) {
        KeepingStream& stream = Accept();
        mPeer.Send(Item(Key, "good") + Item(Key, "").substr(0, 4) + length + Item(Key, "never read"));
        ASSERT_TRUE(PassUntil([&] { return !stream.sStream; }));
        EXPECT_TRUE(mPeer.WaitForEnd());
    }
    EXPECT_EQ(mLog.Count("KLVTCPStream from 127.0.0.1 closed: an item of 16777217 bytes is announced\r\n"), 1u);
    EXPECT_EQ(mLog.Count("KLVTCPStream from 127.0.0.1 closed: an item of 4294967295 bytes is announced\r\n"), 1u);
}

TEST_F(KLVTCPStreamTest, EndsByThePeerAndByThisSide)
{
    for (const bool byPeer : {true, false}) {
        KeepingStream& stream = Accept();
        EXPECT_TRUE(stream.IsStreamConnected());
        stream.SetFlushBeforeClose(false);
        byPeer ? mPeer.Close() : stream.ShutdownStreamViaHandler();
        EXPECT_EQ(stream.WasShutdownLocally(), !byPeer);
        ASSERT_TRUE(PassUntil([] { return !KeepingStream::sStream; }));
        EXPECT_TRUE(mLog.HasStart("*** KLVTCPStream::OnDelete "));
        EXPECT_EQ(mLog.HasStart("*** KLVTCPStream::ShutdownStreamViaHandler "), !byPeer);
    }
}
