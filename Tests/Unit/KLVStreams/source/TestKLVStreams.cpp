#include "Common/KLV/KLVReadSet.h"
#include "KLVStreams/source/KLVTCPStream.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Sockets/SocketFixture.h"
#include "Timers/Source/EventTimerManager.h"

#include <random>
#include <sstream>
#include <thread>

namespace {

constexpr std::uint32_t Key = 0x28000347;

std::string Bytes(std::size_t size, unsigned seed = 1)
{
    std::minstd_rand random(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

/// The bytes of one item.
std::string Item(std::uint32_t key, const std::string& value)
{
    std::string bytes;
    for (const std::uint64_t header = key | std::uint64_t{value.size()} << 32; bytes.size() < 8;)
        bytes += static_cast<char>(header >> 8 * bytes.size());
    return bytes + value;
}

/// A stream that takes items of key type 5 and keeps them.
class KeepingStream : public KLVTCPStream
{
public:
    explicit KeepingStream(ISocketHandler& handler) : KLVTCPStream(handler) { sStream = this; }

    bool HandleKey(std::uint32_t keyType) override { return HandleKey(keyType, this); }
    bool HandleKey(std::uint32_t keyType, DataStream* stream) override
    {
        if (keyType != 5) return false;
        mOverflows += stream == this ? 0 : 1;
        KLVCommandReadSet set(*stream);
        std::string value(set.GetBytesLeft() - mLeave, '\0');
        EXPECT_TRUE(set.ReadRaw(value.data(), static_cast<std::uint32_t>(value.size())));
        mKeys.push_back(set.GetKey());
        mValues.push_back(value);
        return true;
    }
    void OnReadStart() override { mReceived = GetBytesReceived(); }
    void OnItemDone() override { ++mItemsDone; }
    void OnDelete() override
    {
        KLVTCPStream::OnDelete();
        EXPECT_FALSE(IsStreamConnected() || WasShutdownLocally());
        if (sStream == this) sStream = nullptr;
    }

    std::vector<std::uint32_t> mKeys;
    Lines mValues;
    int mOverflows = 0;
    std::uint64_t mReceived = 0;
    int mItemsDone = 0;
    /// Bytes of each value that the reader leaves.
    std::uint32_t mLeave = 0;
    /// The one that was made last, until it is deleted.
    static inline KeepingStream* sStream = nullptr;
};

class KLVTCPStreamTest : public SocketTest
{
protected:
    /// Accepts a connection from source at host, both addresses of loopback.
    KeepingStream& AcceptStream(const std::string& host = "127.0.0.1", const std::string& source = "127.0.0.1")
    {
        KeepingStream::sStream = nullptr;
        mPeer = LoopbackPeer::ConnectTo(Listen<KeepingStream>().GetPort(), host, source);
        EXPECT_TRUE(PassUntil([&] { return KeepingStream::sStream && mHandler.Valid(KeepingStream::sStream); }));
        return *KeepingStream::sStream;
    }
    bool PassUntilGone()
    {
        return PassUntil([] { return !KeepingStream::sStream; });
    }
    /// Sends, even more than the kernel holds, until the stream has this many items.
    bool SendAndWaitForItems(const std::string& bytes, std::size_t count)
    {
        std::thread sender([&] { mPeer.Send(bytes); });
        const bool done =
            PassUntil([&] { return KeepingStream::sStream && KeepingStream::sStream->mValues.size() >= count; });
        sender.join();
        return done;
    }

    LogRecorder mLog{DebugFeature::CommsDebug};
};

MonotonicTime sNow{100, 0};

/// Of the whole process, so made before any stream asks for them.
EventTimerManager& sTimers = EventTimerManager::Instance([](MonotonicTime& time) {
    time = sNow;
    return true;
});

} // namespace

TEST_F(KLVTCPStreamTest, ItemsOfEveryLengthArriveWholeHoweverTheyAreSplit)
{
    KeepingStream& stream = AcceptStream();
    for (const char byte : Item(Key + 9, "value")) {
        mPeer.Send({byte});
        LoopbackPeer::WaitFor(stream.GetSocket(), POLLIN);
        EXPECT_TRUE(stream.mValues.empty());
        Pass();
    }
    // Three rounds, so that items lie across the end of the ring and the overflow store is used again.
    std::string bytes;
    Lines values{"value"};
    for (unsigned round = 1; round <= 3; ++round)
        for (const std::size_t size : {0u, 1u, 241648u, 241649u, 5u, 1000000u, 0u}) {
            values.push_back(Bytes(size, round));
            bytes += Item(Key, values.back());
        }
    ASSERT_TRUE(SendAndWaitForItems(bytes, values.size()));
    EXPECT_TRUE(stream.mValues == values);
    EXPECT_EQ(stream.mKeys.front(), Key + 9);
    EXPECT_EQ(stream.mOverflows, 6);
    EXPECT_EQ(stream.mReceived, 13 + bytes.size());
    mPeer.Close();
    EXPECT_TRUE(PassUntilGone());
}

TEST_F(KLVTCPStreamTest, ItemsOfOtherKeyTypesAndWhatAReaderLeavesAreSkippedWholeAndCounted)
{
    KeepingStream& stream = AcceptStream();
    stream.mLeave = 1;
    const std::string large(300000, 'x');
    ASSERT_TRUE(SendAndWaitForItems(Item(Key, "first") + Item(0x08000001, "an event") + Item(Key, large) +
                                        Item(0x48000000, large) + Item(Key, "third"),
                                    3));
    EXPECT_EQ(stream.mValues, (Lines{"firs", large.substr(1), "thir"}));
    EXPECT_EQ(stream.mItemsDone, 5);
    const std::string inconsistent = "Error reading data key = 0x28000347 - Data length read ";
    const Lines left = {inconsistent + "13 is inconsistent with KLV header 12\r\n", "Skipping 1 bytes of data\n"};
    Lines lines = mLog.Lines();
    lines.erase(lines.begin(), lines.begin() + 2);
    EXPECT_EQ(lines,
              (Lines{left[0], left[1], "KLVTCPStream::OnRead() (Length <= 262144): Could not process key type 0x1\n",
                     "Skipping 16 bytes of data\n", inconsistent + "300008 is inconsistent with KLV header 300007\r\n",
                     left[1], "KLVTCPStream::OnRead() (Length > 262144): Could not process key type 0x9\n",
                     "Skipping 300008 bytes of data\n", "Skipping 300000 bytes of data\n", left[0], left[1]}));
}

TEST_F(KLVTCPStreamTest, AHeaderThatPromisesMoreThan16MiBClosesTheStream)
{
    AcceptStream();
    ASSERT_TRUE(SendAndWaitForItems(Item(Key, Bytes(16u << 20)), 1));
    mPeer.Send(Item(Key, "").substr(0, 4) + std::string("\x01\0\0\x01", 4) + Item(Key, "never read"));
    ASSERT_TRUE(PassUntilGone());
    EXPECT_TRUE(mPeer.WaitForEnd());
    EXPECT_EQ(mLog.Count("KLVTCPStream from 127.0.0.1 closed: an item of 16777217 bytes is announced\r\n"), 1u);
}

TEST_F(KLVTCPStreamTest, TheLocalAddressTellsNodeAndRoleOfThePeer)
{
    const std::tuple<std::string, std::string, unsigned, std::string> cases[] = {
        {"127.0.0.1", "127.0.0.9", 0, "Primary router: 0127.0.0.9\r\n"},
        {"127.0.0.17", "127.0.0.9", 0, "Primary expander: 16127.0.0.9\r\n"},
        {"127.0.0.48", "127.0.0.9", 0x1F, "Primary expander: 47127.0.0.9\r\n"},
        {"127.0.0.49", "127.0.0.9", 0x10, "Secondary router: 48127.0.0.9\r\n"},
        {"127.0.0.64", "127.0.0.9", 0x1F, "Secondary router: 63127.0.0.9\r\n"},
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

TEST_F(KLVTCPStreamTest, AConnectionWithoutDescriptorIsReported)
{
    KeepingStream stream(mHandler);
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 0);
    stream.TcpConnect(mHandler, "no address", 7);
    stream.OnConnect();
    std::ostringstream line;
    line << "*** KLVTCPStream::OnConnect RemoteIP 0.0.0.0Local 255Local Port 255 Remote Port 7 this "
         << static_cast<const void*>(&stream) << " ***\r\n";
    EXPECT_EQ(mLog.Lines(), (Lines{"Stream coalesce: 20 ms, BufferSize=0, State:Mtu\r\n",
                                   "KLVTCPStream FAILED TO GET LOCAL PORT (Errno=9:Bad file descriptor)\r\n",
                                   "KLVTCPStream FAILED TO GET REMOTE PORT (Errno=9:Bad file descriptor)\r\n",
                                   "setsockopt(IPPROTO_IP, IP_MTU):9 Bad file descriptor\r\n", "Mtu=100, Mss=60\r\n",
                                   "Stream coalesce: 20 ms, BufferSize=60, State:Fixed\r\n", line.str()}));
}

TEST_F(KLVTCPStreamTest, GathersUntilTheBufferIsFullUntilCommitOrUntilSilence)
{
    KeepingStream& stream = AcceptStream();
    const auto expectLine = [&](const std::string& text) {
        std::ostringstream line;
        line << static_cast<const void*>(static_cast<DataStream*>(&stream)) << " " << text << " messages)\r\n";
        EXPECT_TRUE(mLog.Has(line.str())) << text;
    };
    stream.BeginItem();
    stream.WriteData("begun ", 6);
    EXPECT_EQ(stream.GetBytesSent(), 0u);
    stream.EndItem();
    EXPECT_EQ(mPeer.Receive(6), "begun ");
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 10);
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=10, State:Fixed\r\n"));
    stream.BeginItem();
    EXPECT_TRUE(stream.WriteData("abcd", 4));
    stream.WriteData("efgh", 4);
    EXPECT_EQ(stream.GetBytesSent(), 6u);
    Expect("");
    stream.WriteData("ijklmnopqrstu", 13);
    EXPECT_EQ(stream.GetBytesSent(), 26u) << "two full buffers";
    expectLine("10 bytes sent together (3");
    expectLine("10 bytes sent together (0");
    const auto start = std::chrono::steady_clock::now();
    mHandler.Select(10, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5))
        << "it must not sleep through the time";
    stream.Commit();
    stream.Commit();
    expectLine("1 bytes sent on Commit (0");

    stream.WriteData("v", 1);
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 10);
    EXPECT_EQ(stream.GetBytesSent(), 28u) << "what the old buffer holds goes first";
    stream.WriteData("wx", 2);
    sNow = {100, 19999};
    sTimers.Service();
    stream.WriteData("yz", 2);
    sNow = {100, 39998};
    sTimers.Service();
    EXPECT_EQ(stream.GetBytesSent(), 28u) << "the time runs from the last write";
    sNow = {100, 39999};
    sTimers.Service();
    expectLine("4 bytes sent on timer (2");
    EXPECT_EQ(mPeer.Receive(26), "abcdefghijklmnopqrstuvwxyz");

    stream.SetCoalesce(20, TimerUnits::Milliseconds, 0);
    stream.WriteData("at once", 7);
    EXPECT_EQ(mPeer.Receive(7), "at once") << "there is no buffer yet";
    stream.OnConnect();
    EXPECT_TRUE(mLog.Has("Mtu=65535, Mss=65495\r\n")) << "those of loopback";
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=65495, State:Fixed\r\n"));
    const auto others = sTimers.GetTimeToNext();
    stream.WriteData("last", 4);
    EXPECT_EQ(sTimers.GetTimeToNext(), (std::pair<std::int32_t, std::int32_t>(0, 20000)));
    stream.SetFlushBeforeClose(false);
    stream.ShutdownStreamViaHandler();
    EXPECT_TRUE(stream.WasShutdownLocally());
    EXPECT_TRUE(mLog.HasStart("*** KLVTCPStream::ShutdownStreamViaHandler "));
    ASSERT_TRUE(PassUntilGone());
    EXPECT_EQ(sTimers.GetTimeToNext(), others) << "no timer is left of a stream that is gone";
}
