#include "Tests/Unit/KLVStreams/source/StreamFixture.h"

#include "Timers/Source/EventTimerManager.h"

#include <sstream>

namespace {

class SendCoalescing : public StreamTest
{
protected:
    SendCoalescing()
    {
        EventTimerManager::Instance().SetClock([this](MonotonicTime& time) {
            time = mNow;
            return true;
        });
    }
    std::string Line(KLVTCPStream& stream, std::size_t bytes, const std::string& how, std::size_t messages)
    {
        std::ostringstream line;
        line << static_cast<const void*>(static_cast<DataStream*>(&stream)) << " " << bytes << " bytes " << how << " ("
             << messages << " messages)\r\n";
        return line.str();
    }

    MonotonicTime mNow{100, 0};
};

} // namespace

TEST_F(SendCoalescing, GathersUntilTheBufferIsFullUntilCommitOrUntilSilence)
{
    KeepingStream& stream = Accept();
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 10);
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=10, State:Fixed\r\n"));

    stream.WriteData("abcd", 4);
    stream.WriteData("efgh", 4);
    EXPECT_EQ(stream.GetBytesSent(), 0u);
    stream.WriteData("ijklmnopqrstuv", 14);
    EXPECT_EQ(stream.GetBytesSent(), 20u) << "two full buffers";
    EXPECT_TRUE(mLog.Has(Line(stream, 10, "sent together", 3)));
    EXPECT_TRUE(mLog.Has(Line(stream, 10, "sent together", 0)));
    stream.Commit();
    EXPECT_TRUE(mLog.Has(Line(stream, 2, "sent on Commit", 0)));

    stream.WriteData("wx", 2);
    mNow = {100, 19999};
    EventTimerManager::Instance().Service();
    stream.WriteData("yz", 2);
    mNow = {100, 39998};
    EventTimerManager::Instance().Service();
    EXPECT_EQ(stream.GetBytesSent(), 22u) << "the time runs from the last write";
    mNow = {100, 39999};
    EventTimerManager::Instance().Service();
    EXPECT_TRUE(mLog.Has(Line(stream, 4, "sent on timer", 2)));
    EXPECT_EQ(mPeer.Receive(26), "abcdefghijklmnopqrstuvwxyz");

    const auto others = EventTimerManager::Instance().GetTimeToNext();
    stream.WriteData("last", 4);
    EXPECT_EQ(EventTimerManager::Instance().GetTimeToNext(), (std::pair<std::int32_t, std::int32_t>(0, 20000)));
    stream.SetFlushBeforeClose(false);
    stream.ShutdownStreamViaHandler();
    ASSERT_TRUE(PassUntil([] { return !KeepingStream::sStream; }));
    EXPECT_EQ(EventTimerManager::Instance().GetTimeToNext(), others) << "no timer is left of a stream that is gone";
}

TEST_F(SendCoalescing, ItemsShareABuffer)
{
    KeepingStream& stream = Accept();
    stream.SetCoalesce(20, TimerUnits::Milliseconds, 1000);
    for (int i = 0; i < 3; ++i)
        KLVCommandWriteSet(stream, 0, 800, 0);
    EXPECT_EQ(stream.GetBytesSent(), 0u);
    stream.Commit();
    EXPECT_TRUE(mLog.Has(Line(stream, 24, "sent on Commit", 3)));
    EXPECT_EQ(mPeer.Receive(24).size(), 24u);
}

TEST_F(SendCoalescing, WithoutASizeThePathDecidesOnceTheStreamIsConnected)
{
    const LoopbackListener server;
    auto* const stream = new KeepingStream(mHandler);
    stream->SetDeleteByHandler();
    stream->SetCoalesce(1, TimerUnits::Seconds, 0);
    EXPECT_TRUE(mLog.Has("Stream coalesce: 1000 ms, BufferSize=0, State:Mtu\r\n"));
    stream->TcpConnect(mHandler, "127.0.0.1", server.GetPort());
    ASSERT_TRUE(PassUntil([&] { return stream->IsStreamConnected(); }));
    EXPECT_TRUE(mLog.HasStart("Mtu="));
    EXPECT_TRUE(mLog.HasStart("Stream coalesce: 1000 ms, BufferSize="));
    stream->WriteData("held", 4);
    EXPECT_EQ(stream->GetBytesSent(), 0u);
    mNow = {101, 0};
    EventTimerManager::Instance().Service();
    const LoopbackPeer peer = server.Accept();
    EXPECT_EQ(peer.Receive(4), "held");
}
