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
    bool HasLine(KLVTCPStream& stream, const std::string& text)
    {
        std::ostringstream line;
        line << static_cast<const void*>(static_cast<DataStream*>(&stream)) << " " << text << " messages)\r\n";
        return mLog.Has(line.str());
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
    EXPECT_TRUE(HasLine(stream, "10 bytes sent together (3"));
    EXPECT_TRUE(HasLine(stream, "10 bytes sent together (0"));
    stream.Commit();
    EXPECT_TRUE(HasLine(stream, "2 bytes sent on Commit (0"));

    stream.WriteData("wx", 2);
    mNow = {100, 19999};
    EventTimerManager::Instance().Service();
    stream.WriteData("yz", 2);
    mNow = {100, 39998};
    EventTimerManager::Instance().Service();
    EXPECT_EQ(stream.GetBytesSent(), 22u) << "the time runs from the last write";
    mNow = {100, 39999};
    EventTimerManager::Instance().Service();
    EXPECT_TRUE(HasLine(stream, "4 bytes sent on timer (2"));
    EXPECT_EQ(mPeer.Receive(26), "abcdefghijklmnopqrstuvwxyz");

    stream.SetCoalesce(20, TimerUnits::Milliseconds, 0);
    stream.OnConnect();
    EXPECT_TRUE(mLog.Has("Mtu=65535, Mss=65495\r\n")) << "those of loopback";
    EXPECT_TRUE(mLog.Has("Stream coalesce: 20 ms, BufferSize=65495, State:Fixed\r\n"));

    const auto others = EventTimerManager::Instance().GetTimeToNext();
    stream.WriteData("last", 4);
    EXPECT_EQ(EventTimerManager::Instance().GetTimeToNext(), (std::pair<std::int32_t, std::int32_t>(0, 20000)));
    stream.SetFlushBeforeClose(false);
    stream.ShutdownStreamViaHandler();
    ASSERT_TRUE(PassUntil([] { return !KeepingStream::sStream; }));
    EXPECT_EQ(EventTimerManager::Instance().GetTimeToNext(), others) << "no timer is left of a stream that is gone";
}
