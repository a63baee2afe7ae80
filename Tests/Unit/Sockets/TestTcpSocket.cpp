#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Sockets/SocketFixture.h"

#include <cerrno>
#include <cstring>

#include <linux/tcp.h>

using TcpSocketTest = SocketTest;

TEST_F(TcpSocketTest, ARefusedConnectIsRetriedOnTheSameDescriptorUntilThePeerListens)
{
    const std::string timeout = "connect: -1 connect timeout";
    const std::uint16_t port = LoopbackListener().GetPort();
    Probe& probe = Connect(port);
    ASSERT_TRUE(PassUntilErrors("tcp: connect failed"));
    const int fd = probe.GetSocket();
    for (std::size_t tries = 1; tries <= 3; ++tries) {
        Pass(5);
        EXPECT_EQ(mErrors.Count(timeout), tries - 1);
        Pass(1);
        EXPECT_EQ(mErrors.Count(timeout), tries);
        ASSERT_TRUE(PassUntilErrors("tcp: connect failed", tries + 1));
        EXPECT_EQ(probe.GetSocket(), fd) << "the case in which the old entry and the new socket share a number";
        EXPECT_EQ(mHandler.GetCount(), 1u);
    }
    const LoopbackListener server(port);
    Pass(6);
    mPeer = server.Accept();
    probe.SetRetryClientConnect(); // too late: the connection is there
    ASSERT_TRUE(PassUntil("connect"));
    int alive = 0;
    socklen_t size = sizeof alive;
    EXPECT_EQ(getsockopt(probe.GetSocket(), SOL_SOCKET, SO_KEEPALIVE, &alive, &size), 0);
    EXPECT_NE(alive, 0);
    mPeer.Send("hello");
    EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 5; }));
    Pass(60);
    EXPECT_EQ(mErrors.Count(timeout), 4u) << "the last before the connect, which ended them";
}

// On such a socket no error is pending, and select calls it writable.
TEST_F(TcpSocketTest, AConnectThatFailsAtOnceIsNotTakenForAConnection)
{
    EXPECT_TRUE(Connect(9, true, "224.0.0.1").IsConnecting());
    EXPECT_EQ(mErrors.Count("connect: failed, reconnect pending: " + std::to_string(ENETUNREACH)), 1u);
    ASSERT_TRUE(PassUntilErrors("tcp: connect failed"));
    Pass(6);
    EXPECT_EQ(mErrors.Count("connect: failed, reconnect pending"), 2u);
    EXPECT_EQ(TakeEvents(), Lines());

    Connect(9, false, "224.0.0.1");
    EXPECT_EQ(mErrors.Count("connect: failed: " + std::to_string(ENETUNREACH)), 1u);
    Pass();
    EXPECT_EQ(TakeEvents(), (Lines{"delete", "gone"}));
}

TEST_F(TcpSocketTest, WithoutRetriesLeftAFailedConnectEndsTheSocket)
{
    for (const int retries : {0, 1}) {
        Connect(mHandler, LoopbackListener().GetPort(), false, "127.0.0.1", retries);
        ASSERT_TRUE(PassUntilErrors("tcp: connect failed"));
        mNow += 6;
        ASSERT_TRUE(PassUntil("gone"));
        EXPECT_EQ(mErrors.Count("tcp: connect failed"), static_cast<std::size_t>(retries) + 1);
        TakeErrors();
        EXPECT_EQ(TakeEvents(), (Lines{"failed", "delete", "gone"}));
    }
}

TEST_F(TcpSocketTest, EveryWayAPeerEndsTheConnection)
{
    const std::tuple<std::function<void()>, Lines, std::string> cases[] = {
        {[this] { mPeer.Close(); }, {"disconnect", "delete", "gone"}, ""},
        {[this] { mPeer.Reset(); }, {"delete", "gone"}, "read: " + std::to_string(ECONNRESET)},
        {[this] { ::send(mPeer.GetFd(), "!", 1, MSG_OOB); }, {"delete", "gone"}, "exception on select: 0"},
    };
    for (const auto& [end, events, error] : cases) {
        Accept();
        end();
        ASSERT_TRUE(PassUntil("gone")) << error;
        EXPECT_EQ(TakeEvents(), events) << error;
        EXPECT_EQ(mErrors.Count(error), error.empty() ? 0u : 1u) << error;
        TakeErrors();
    }
}

TEST_F(TcpSocketTest, AReconnectFollowsAnOrderedCloseUnlessOnDisconnectCancelsIt)
{
    Probe& probe = Connected(true);
    probe.CloseAtOnce();
    EXPECT_TRUE(PassUntil("reconnect"));
    EXPECT_TRUE(mPeer.WaitForEnd());
    mPeer = mServer.Accept();
    mPeer.Send("again");
    EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 5; }));
    EXPECT_EQ(TakeEvents(), (Lines{"disconnect", "reconnect"}));

    probe.mOnDisconnect = [](Probe& self) {
        self.SetReconnect(false);
        self.SetCloseAndDelete();
    };
    probe.CloseAtOnce();
    EXPECT_TRUE(PassUntil("gone"));
    EXPECT_TRUE(mPeer.WaitForEnd());
    EXPECT_EQ(TakeEvents(), (Lines{"disconnect", "delete", "gone"}));
}

TEST_F(TcpSocketTest, HalfSentOutputIsFinishedInOrderAndAPeerThatNeverReadsIsGivenUpAt64MiB)
{
    LogRecorder log;
    Probe& probe = Accept();
    std::string expected;
    const auto send = [&] {
        const std::string piece(1 << 20, static_cast<char>('a' + expected.size() / (1 << 20) % 26));
        probe.SendBuf(piece.data(), piece.size());
        expected += piece;
    };
    for (int i = 0; i < 12; ++i)
        send();
    ASSERT_GT(probe.GetOutputLength(), 0u) << "more than the kernel takes";
    std::string received;
    ASSERT_TRUE(PassUntil([&] {
        char buffer[65536];
        const ssize_t size = ::recv(mPeer.GetFd(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (size > 0) received.append(buffer, static_cast<std::size_t>(size));
        return received.size() == expected.size();
    }));
    EXPECT_TRUE(received == expected);

    expected.clear();
    while (expected.size() < 200u << 20 && !probe.CloseAndDelete())
        send();
    EXPECT_GE(expected.size(), 64u << 20);
    EXPECT_LE(probe.GetOutputLength(), 64u << 20);
    EXPECT_TRUE(log.HasStart("TcpSocket fd "));
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mErrors.Count("Closing: 0 Closing socket while data still left to send"), 1u);
}

TEST_F(TcpSocketTest, AGatheredCommandLeavesInOneSegment)
{
    Probe& probe = Accept();
    probe.BeginGather();
    for (const char* part : {"key", "length", "field"})
        probe.SendBuf(part, std::strlen(part));
    probe.EndGather();
    EXPECT_EQ(mPeer.Receive(14), "keylengthfield");
    tcp_info info{};
    socklen_t size = sizeof info;
    ASSERT_EQ(getsockopt(probe.GetSocket(), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    EXPECT_EQ(info.tcpi_data_segs_out, 1u);
}

TEST_F(TcpSocketTest, WhatCannotBeSentIsReportedOrQueued)
{
    Probe& probe = Connect(mServer.GetPort());
    probe.SendBuf("early", 5);
    EXPECT_EQ(TakeErrors(), Lines{"SendBuf: -1 Attempt to write to a non-connected socket, will be sent on connect"});
    ASSERT_TRUE(PassUntil("connect"));
    EXPECT_EQ(mServer.Accept().Receive(5), "early");
    probe.SetCloseAndDelete();
    probe.SendBuf("late", 4);
    EXPECT_EQ(TakeErrors(),
              (Lines{"SendBuf: -1 Attempt to write to a non-ready socket", "SendBuf: 0  * CloseAndDelete()"}));
}

TEST_F(TcpSocketTest, AFlushingCloseSendsEverythingButWaitsForAStuckPeerOnly5Seconds)
{
    Accept().SendBuf("last words", 10);
    Probe::sLast->SetCloseAndDelete();
    Pass();
    EXPECT_EQ(mPeer.Receive(100), "last words") << "the end follows the data";
    EXPECT_EQ(TakeEvents(), Lines()) << "it waits for the peer's end";
    mPeer.Close();
    EXPECT_TRUE(PassUntil("gone"));

    Probe& probe = Accept();
    const std::string unsent(16 << 20, 'x');
    probe.SendBuf(unsent.data(), unsent.size());
    probe.SetCloseAndDelete();
    Pass(4);
    EXPECT_EQ(mErrors.Count("Closing: " + std::to_string(probe.GetOutputLength()) + " Sending all data before closing"),
              1u);
    EXPECT_EQ(TakeEvents(), Lines());
    Pass(1);
    EXPECT_EQ(mErrors.Count("Closing: 0 Closing socket while data still left to send"), 1u);
    EXPECT_EQ(TakeEvents(), (Lines{"delete", "gone"}));
}

TEST_F(TcpSocketTest, BytesThatTheRingCannotHoldAreLostWithALine)
{
    auto* const probe = mHandler.Own(std::make_unique<Probe>(mHandler, 1000));
    probe->Open("127.0.0.1", mServer.GetPort());
    mHandler.Add(probe);
    mPeer = mServer.Accept();
    mPeer.Send(std::string(900, 'a'));
    ASSERT_TRUE(PassUntil([&] { return probe->GetHeld() == 900; }));
    mPeer.Send(std::string(101, 'b'));
    ASSERT_TRUE(PassUntilErrors("OnRead: 0 ibuf overflow"));
    EXPECT_EQ(probe->GetHeld(), 900u);
}
