#include "Tests/Unit/KLVStreams/source/StreamFixture.h"
#include "Timers/Source/EventTimerManager.h"

#include <sstream>

using KLVTCPStreamTest = StreamTest;

namespace {

MonotonicTime sNow{100, 0};

/// Of the whole process, so made before any stream asks for them.
EventTimerManager& sTimers = EventTimerManager::Instance([](MonotonicTime& time) {
    time = sNow;
    return true;
});

} // namespace

TEST_F(KLVTCPStreamTest, HundredsOfItemsInOneSegmentAreDeliveredInOneRead)
{
    KeepingStream& stream = AcceptStream();
    std::string segment;
    Lines values;
    for (std::uint32_t i = 0; i < 700; ++i) {
        values.push_back(std::to_string(i));
        segment += Item(Key + i, values.back());
    }
    ASSERT_TRUE(SendAndWaitForItems(segment, 700));
    EXPECT_EQ(stream.mReads, 1);
    EXPECT_EQ(stream.mValues, values);
    EXPECT_EQ(stream.mKeys.back(), Key + 699);
}

TEST_F(KLVTCPStreamTest, ItemsOfOtherKeyTypesAndWhatAReaderLeavesAreSkippedWholeAndCounted)
{
    KeepingStream& stream = AcceptStream();
    stream.mLeave = 3;
    const std::string large(300000, 'x');
    ASSERT_TRUE(SendAndWaitForItems(Item(Key, "first") + Item(0x08000001, "an event") + Item(Key, large) +
                                        Item(0x48000000, large) + Item(Key, "third"),
                                    3));
    EXPECT_EQ(stream.mValues, (Lines{"fi", large.substr(3), "th"}));
    EXPECT_EQ(stream.mItemsDone, 5);
    EXPECT_EQ(mLog.Count("Skipping 3 bytes of data\n"), 3u);
    for (const std::string line :
         {"KLVTCPStream::OnRead() (Length <= 262144): Could not process key type 0x1\n", "Skipping 16 bytes of data\n",
          "KLVTCPStream::OnRead() (Length > 262144): Could not process key type 0x9\n",
          "Skipping 300008 bytes of data\n"})
        EXPECT_EQ(mLog.Count(line), 1u) << line;
}

TEST_F(KLVTCPStreamTest, AHeaderThatPromisesTooMuchClosesTheStream)
{
    AcceptStream();
    mPeer.Send(Item(Key, "good") + Item(Key, "").substr(0, 4) + "\xFF\xFF\xFF\xFF" + Item(Key, "never read"));
    ASSERT_TRUE(PassUntilGone());
    EXPECT_TRUE(mPeer.WaitForEnd());
    EXPECT_EQ(mLog.Count("KLVTCPStream from 127.0.0.1 closed: an item of 4294967295 bytes is announced\r\n"), 1u);
}

TEST_F(KLVTCPStreamTest, EndsByThePeerAndByThisSide)
{
    for (const bool byPeer : {true, false}) {
        KeepingStream& stream = AcceptStream();
        EXPECT_TRUE(stream.IsStreamConnected());
        stream.SetFlushBeforeClose(false);
        byPeer ? mPeer.Close() : stream.ShutdownStreamViaHandler();
        EXPECT_EQ(stream.WasShutdownLocally(), !byPeer);
        ASSERT_TRUE(PassUntilGone());
        EXPECT_TRUE(mLog.HasStart("*** KLVTCPStream::OnDelete "));
        EXPECT_EQ(mLog.HasStart("*** KLVTCPStream::ShutdownStreamViaHandler "), !byPeer);
    }
}

TEST_F(KLVTCPStreamTest, TheLocalAddressTellsNodeAndRoleOfThePeer)
{
    const std::tuple<std::string, std::string, unsigned, std::string> cases[] = {
        {"127.0.0.1", "127.0.0.9", 0, "Primary router: 0127.0.0.9\r\n"},
        {"127.0.0.17", "127.0.0.9", 0, "Primary expander: 16127.0.0.9\r\n"},
        {"127.0.0.48", "127.0.0.9", 0x1F, "Primary expander: 47127.0.0.9\r\n"},
        {"127.0.0.49", "127.0.0.9", 0x10, "Secondary router: 48127.0.0.9\r\n"},
        {"127.0.0.65", "127.0.0.9", 0x10, "Secondary expander: 64127.0.0.9\r\n"},
        {"127.0.0.80", "127.0.0.9", 0x1F, "Secondary expander: 79127.0.0.9\r\n"},
        {"127.0.0.81", "127.0.0.9", 0x50, "Primary router: 80127.0.0.9\r\n"},
        {"127.0.0.254", "127.0.35.7", 3, "Primary router: 3127.0.35.7\r\n"},
    };
    for (const auto& [local, remote, node, role] : cases) {
        KeepingStream& stream = AcceptStream(local, remote);
        EXPECT_TRUE(mLog.Has(role)) << role;
        std::ostringstream line;
        line << "*** KLVTCPStream::OnAccept RemoteIP " << remote << "Local " << node << "Local Port "
             << stream.GetLocalPort() << " Remote Port " << mPeer.GetPort() << " this "
             << static_cast<const void*>(&stream) << " ***\r\n";
        EXPECT_TRUE(mLog.Has(line.str())) << line.str();
        EXPECT_EQ(stream.GetRemotePort(), mPeer.GetPort());
    }
}

TEST_F(KLVTCPStreamTest, GathersUntilTheBufferIsFullUntilCommitOrUntilSilence)
{
    KeepingStream& stream = AcceptStream();
    const auto expectLine = [&](const std::string& text) {
        std::ostringstream line;
        line << static_cast<const void*>(static_cast<DataStream*>(&stream)) << " " << text << " messages)\r\n";
        EXPECT_TRUE(mLog.Has(line.str())) << text;
    };
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 10);
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=10, State:Fixed\r\n"));
    stream.WriteData("abcd", 4);
    stream.WriteData("efgh", 4);
    EXPECT_EQ(stream.GetBytesSent(), 0u);
    stream.WriteData("ijklmnopqrstuv", 14);
    EXPECT_EQ(stream.GetBytesSent(), 20u) << "two full buffers";
    expectLine("10 bytes sent together (3");
    expectLine("10 bytes sent together (0");
    stream.Commit();
    expectLine("2 bytes sent on Commit (0");

    stream.WriteData("wx", 2);
    sNow = {100, 19999};
    sTimers.Service();
    stream.WriteData("yz", 2);
    sNow = {100, 39998};
    sTimers.Service();
    EXPECT_EQ(stream.GetBytesSent(), 22u) << "the time runs from the last write";
    sNow = {100, 39999};
    sTimers.Service();
    expectLine("4 bytes sent on timer (2");
    EXPECT_EQ(mPeer.Receive(26), "abcdefghijklmnopqrstuvwxyz");

    stream.SetCoalesce(20, TimerUnits::Milliseconds, 0);
    stream.OnConnect();
    EXPECT_TRUE(mLog.Has("Mtu=65535, Mss=65495\r\n")) << "those of loopback";
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=65495, State:Fixed\r\n"));
    const auto others = sTimers.GetTimeToNext();
    stream.WriteData("last", 4);
    EXPECT_EQ(sTimers.GetTimeToNext(), (std::pair<std::int32_t, std::int32_t>(0, 20000)));
    stream.SetFlushBeforeClose(false);
    stream.ShutdownStreamViaHandler();
    ASSERT_TRUE(PassUntilGone());
    EXPECT_EQ(sTimers.GetTimeToNext(), others) << "no timer is left of a stream that is gone";
}
