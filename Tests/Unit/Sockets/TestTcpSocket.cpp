#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Sockets/SocketFixture.h"

#include <cerrno>
#include <cstring>

#include <linux/tcp.h>

using TcpSocketTest = SocketTest;

TEST_F(TcpSocketTest, ARefusedConnectIsTriedAgainOnTheSameDescriptorNumberUntilThePeerIsThere)
{
    const std::uint16_t port = LoopbackListener().GetPort();
    Probe& probe = Connect("127.0.0.1", port);
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("tcp: connect failed") == 1; }));
    const int fd = probe.GetSocket();
    for (int i = 0; i < 3; ++i) {
        mNow += 5;
        Pass();
        EXPECT_EQ(mErrors.Count("connect: -1 connect timeout"), static_cast<std::size_t>(i));
        mNow += 1;
        Pass();
        EXPECT_EQ(mErrors.Count("connect: -1 connect timeout"), static_cast<std::size_t>(i) + 1);
        ASSERT_TRUE(PassUntil([&] { return mErrors.Count("tcp: connect failed") == static_cast<std::size_t>(i) + 2; }));
        EXPECT_EQ(probe.GetSocket(), fd) << "the case in which the old entry and the new socket share a number";
        EXPECT_EQ(mHandler.GetCount(), 1u);
    }
    const LoopbackListener server(port);
    mNow += 6;
    Pass();
    const LoopbackPeer peer = server.Accept();
    ASSERT_TRUE(PassUntil("connect"));
    peer.Send("hello");
    EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 5; }));
    mNow += 60;
    Pass();
    EXPECT_EQ(mErrors.Count("connect: -1 connect timeout"), 4u) << "the last before the connect, which ended them";
}

// On such a socket no error is pending, and select calls it writable.
TEST_F(TcpSocketTest, AConnectThatFailsAtOnceIsNotTakenForAConnection)
{
    Probe& waiting = Connect("224.0.0.1", 9, true);
    EXPECT_TRUE(waiting.IsConnecting());
    EXPECT_EQ(mErrors.Count("connect: failed, reconnect pending: " + std::to_string(ENETUNREACH)), 1u);
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("tcp: connect failed") == 1; }));
    EXPECT_EQ(mEvents, Events());
    mNow += 6;
    Pass();
    EXPECT_EQ(mErrors.Count("connect: failed, reconnect pending"), 2u);

    Connect("224.0.0.1", 9, false);
    EXPECT_EQ(mErrors.Count("connect: failed: " + std::to_string(ENETUNREACH)), 1u);
    Pass();
    EXPECT_EQ(mEvents, (Events{"delete", "gone"}));
}

TEST_F(TcpSocketTest, ARetryThatIsAskedForTooLateLeavesTheConnectionAlone)
{
    const LoopbackListener server;
    Probe& probe = Connect("127.0.0.1", server.GetPort(), true);
    const LoopbackPeer peer = server.Accept();
    probe.SetRetryClientConnect();
    ASSERT_TRUE(PassUntil("connect"));
    Pass();
    probe.SendBuf("here", 4);
    EXPECT_EQ(peer.Receive(4), "here");
    int alive = 0;
    socklen_t size = sizeof alive;
    EXPECT_EQ(getsockopt(probe.GetSocket(), SOL_SOCKET, SO_KEEPALIVE, &alive, &size), 0);
    EXPECT_NE(alive, 0);
}

TEST_F(TcpSocketTest, WithoutRetriesLeftAFailedConnectEndsTheSocket)
{
    const std::uint16_t port = LoopbackListener().GetPort();
    for (const int retries : {0, 1}) {
        mEvents.clear();
        mErrors.mLines.clear();
        Connect("127.0.0.1", port, false, retries);
        ASSERT_TRUE(PassUntil([&] { return mErrors.Count("tcp: connect failed") == 1; }));
        mNow += 6;
        ASSERT_TRUE(PassUntil("gone"));
        EXPECT_EQ(mErrors.Count("tcp: connect failed"), static_cast<std::size_t>(retries) + 1);
        EXPECT_EQ(mEvents, (Events{"failed", "delete", "gone"}));
    }
}

TEST_F(TcpSocketTest, EveryWayAPeerEndsTheConnection)
{
    const struct
    {
        void (*end)(LoopbackPeer&);
        Events events;
        std::string error;
    } cases[] = {
        {[](LoopbackPeer& peer) { peer.Close(); }, {"disconnect", "delete", "gone"}, ""},
        {[](LoopbackPeer& peer) { peer.Reset(); }, {"delete", "gone"}, "read: " + std::to_string(ECONNRESET)},
        {[](LoopbackPeer& peer) { ::send(peer.GetFd(), "!", 1, MSG_OOB); },
         {"delete", "gone"},
         "exception on select: 0"},
    };
    for (const auto& one : cases) {
        mErrors.mLines.clear();
        LoopbackPeer peer(-1);
        Accept(peer);
        one.end(peer);
        ASSERT_TRUE(PassUntil("gone")) << one.error;
        EXPECT_EQ(mEvents, one.events) << one.error;
        if (!one.error.empty()) {
            EXPECT_EQ(mErrors.Count(one.error), 1u) << one.error;
        }
    }
}

TEST_F(TcpSocketTest, AReconnectFollowsAnOrderedCloseUnlessOnDisconnectCancelsIt)
{
    const LoopbackListener server;
    Probe& probe = Connect("127.0.0.1", server.GetPort(), true);
    const LoopbackPeer first = server.Accept();
    ASSERT_TRUE(PassUntil("connect"));
    probe.SetFlushBeforeClose(false);
    probe.SetCloseAndDelete();
    EXPECT_TRUE(PassUntil("reconnect"));
    EXPECT_TRUE(first.WaitForEnd());
    const LoopbackPeer second = server.Accept();
    second.Send("again");
    EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 5; }));
    EXPECT_EQ(mEvents, (Events{"connect", "disconnect", "reconnect"}));

    mEvents.clear();
    probe.mOnDisconnect = [](Probe& self) {
        self.SetReconnect(false);
        self.SetCloseAndDelete();
    };
    probe.SetFlushBeforeClose(false);
    probe.SetCloseAndDelete();
    EXPECT_TRUE(PassUntil("gone"));
    EXPECT_TRUE(second.WaitForEnd());
    EXPECT_EQ(mEvents, (Events{"disconnect", "delete", "gone"}));
}

TEST_F(TcpSocketTest, HalfSentOutputIsFinishedInOrder)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    std::string expected;
    for (int i = 0; i < 12; ++i) {
        const std::string piece(1 << 20, static_cast<char>('a' + i));
        probe.SendBuf(piece.data(), piece.size());
        expected += piece;
    }
    ASSERT_GT(probe.GetOutputLength(), 0u) << "more than the kernel takes";
    std::string received;
    ASSERT_TRUE(PassUntil([&] {
        char buffer[65536];
        const ssize_t size = ::recv(peer.GetFd(), buffer, sizeof buffer, MSG_DONTWAIT);
        if (size > 0) received.append(buffer, static_cast<std::size_t>(size));
        return received.size() == expected.size();
    }));
    EXPECT_TRUE(received == expected);
}

TEST_F(TcpSocketTest, APeerThatNeverReadsIsGivenUpAt64MiB)
{
    LogRecorder log;
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    const std::string piece(1 << 20, 'x');
    std::size_t sent = 0;
    for (; sent < 200 && !probe.CloseAndDelete(); ++sent)
        probe.SendBuf(piece.data(), piece.size());
    EXPECT_GE(sent, 64u);
    EXPECT_LE(probe.GetOutputLength(), 64u << 20);
    EXPECT_TRUE(log.HasStart("TcpSocket fd "));
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mErrors.Count("Closing: 0 Closing socket while data still left to send"), 1u);
}

TEST_F(TcpSocketTest, AGatheredCommandLeavesInOneSegment)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    probe.BeginGather();
    for (const char* part : {"key", "length", "field"})
        probe.SendBuf(part, std::strlen(part));
    probe.EndGather();
    EXPECT_EQ(peer.Receive(14), "keylengthfield");
    tcp_info info{};
    socklen_t size = sizeof info;
    ASSERT_EQ(getsockopt(probe.GetSocket(), IPPROTO_TCP, TCP_INFO, &info, &size), 0);
    EXPECT_EQ(info.tcpi_data_segs_out, 1u);
}

TEST_F(TcpSocketTest, WhatCannotBeSentIsReportedOrQueued)
{
    LoopbackListener server;
    Probe& probe = Connect("127.0.0.1", server.GetPort());
    probe.SendBuf("early", 5);
    EXPECT_EQ(mErrors.mLines,
              (Events{"SendBuf: -1 Attempt to write to a non-connected socket, will be sent on connect"}));
    ASSERT_TRUE(PassUntil("connect"));
    const LoopbackPeer peer = server.Accept();
    EXPECT_EQ(peer.Receive(5), "early");

    mErrors.mLines.clear();
    probe.SetCloseAndDelete();
    probe.SendBuf("late", 4);
    EXPECT_EQ(mErrors.mLines,
              (Events{"SendBuf: -1 Attempt to write to a non-ready socket", "SendBuf: 0  * CloseAndDelete()"}));
}

TEST_F(TcpSocketTest, AFlushingCloseWaitsForAStuckPeerButNotForEver)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    const std::string unsent(16 << 20, 'x');
    probe.SendBuf(unsent.data(), unsent.size());
    probe.SetCloseAndDelete();
    mNow += 4;
    Pass();
    EXPECT_EQ(mErrors.Count("Closing: " + std::to_string(probe.GetOutputLength()) + " Sending all data before closing"),
              1u);
    EXPECT_EQ(mEvents, Events());
    mNow += 1;
    Pass();
    EXPECT_EQ(mErrors.Count("Closing: 0 Closing socket while data still left to send"), 1u);
    EXPECT_EQ(mEvents, (Events{"delete", "gone"}));
}

TEST_F(TcpSocketTest, AFlushingCloseSendsEverythingAndThenShutsDown)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    probe.SendBuf("last words", 10);
    probe.SetCloseAndDelete();
    Pass();
    EXPECT_EQ(peer.Receive(100), "last words") << "the end follows the data";
    EXPECT_EQ(mEvents, Events()) << "it waits for the peer's end";
    peer.Close();
    EXPECT_TRUE(PassUntil("gone"));
}

TEST_F(TcpSocketTest, BytesThatTheRingCannotHoldAreLostWithALine)
{
    LoopbackListener server;
    auto* const probe = mHandler.Own(std::make_unique<Probe>(mHandler, mEvents, 1000));
    probe->Open("127.0.0.1", server.GetPort());
    mHandler.Add(probe);
    ASSERT_TRUE(PassUntil("connect"));
    const LoopbackPeer peer = server.Accept();
    peer.Send(std::string(900, 'a'));
    ASSERT_TRUE(PassUntil([&] { return probe->GetHeld() == 900; }));
    peer.Send(std::string(101, 'b'));
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("OnRead: 0 ibuf overflow") == 1; }));
    EXPECT_EQ(probe->GetHeld(), 900u);
}
