#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Sockets/SocketFixture.h"

#include <cerrno>
#include <cstring>

#include <linux/tcp.h>

using TcpSocketTest = SocketTest;

TEST_F(TcpSocketTest, ARefusedConnectIsTriedAgainOnTheSameDescriptorNumberUntilThePeerIsThere)
{
    std::uint16_t port = 0;
    {
        const LoopbackListener gone;
        port = gone.GetPort();
    }
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
    EXPECT_EQ(mEvents, (Events{"connect"}));
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

TEST_F(TcpSocketTest, WithoutRetriesLeftAFailedConnectEndsTheSocket)
{
    std::uint16_t port = 0;
    {
        const LoopbackListener gone;
        port = gone.GetPort();
    }
    Connect("127.0.0.1", port, false, 0);
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mEvents, (Events{"failed", "delete", "gone"}));

    mEvents.clear();
    Connect("127.0.0.1", port, false, 1);
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("tcp: connect failed") == 2; }));
    mNow += 6;
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mErrors.Count("tcp: connect failed"), 3u) << "one retry";
    EXPECT_EQ(mEvents, (Events{"failed", "delete", "gone"}));
}

TEST_F(TcpSocketTest, APeersCloseArrivesAsDisconnectAndThenDelete)
{
    LoopbackPeer peer(-1);
    Accept(peer);
    peer.Close();
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mEvents, (Events{"disconnect", "delete", "gone"}));
}

TEST_F(TcpSocketTest, AResetByThePeerIsAReadError)
{
    LoopbackPeer peer(-1);
    Accept(peer);
    peer.Reset();
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mEvents, (Events{"delete", "gone"}));
    EXPECT_EQ(mErrors.Count("read: " + std::to_string(ECONNRESET)), 1u);
}

TEST_F(TcpSocketTest, OutOfBandDataIsAnException)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    probe.SetFlushBeforeClose(false);
    ASSERT_EQ(::send(peer.GetFd(), "!", 1, MSG_OOB), 1);
    ASSERT_TRUE(PassUntil("gone"));
    EXPECT_EQ(mErrors.Count("exception on select: 0"), 1u);
}

TEST_F(TcpSocketTest, AReconnectFollowsAnOrderedCloseUnlessOnDisconnectCancelsIt)
{
    for (const bool cancelled : {false, true}) {
        mEvents.clear();
        const LoopbackListener server;
        Probe& probe = Connect("127.0.0.1", server.GetPort(), true);
        const LoopbackPeer first = server.Accept();
        ASSERT_TRUE(PassUntil("connect"));
        if (cancelled) {
            probe.mOnDisconnect = [](Probe& self) {
                self.SetReconnect(false);
                self.SetCloseAndDelete();
            };
        }
        probe.SetFlushBeforeClose(false);
        probe.SetCloseAndDelete();
        EXPECT_TRUE(PassUntil(cancelled ? "gone" : "reconnect"));
        EXPECT_TRUE(first.WaitForEnd());
        if (cancelled) {
            EXPECT_EQ(mEvents, (Events{"connect", "disconnect", "delete", "gone"}));
        } else {
            const LoopbackPeer second = server.Accept();
            second.Send("again");
            EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 5; }));
            EXPECT_EQ(mEvents, (Events{"connect", "disconnect", "reconnect"}));
            probe.SetReconnect(false);
            probe.SetFlushBeforeClose(false);
            probe.SetCloseAndDelete();
            EXPECT_TRUE(PassUntil("gone"));
        }
    }
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
    EXPECT_EQ(probe.GetOutputLength(), 0u);
    EXPECT_EQ(probe.GetBytesSent(), expected.size());
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
    mErrors.mLines.clear();
    Probe idle(mHandler, mEvents);
    idle.SendBuf("x", 1);
    EXPECT_EQ(mErrors.mLines, (Events{"SendBuf: -1 Attempt to write to a non-ready socket",
                                      "SendBuf: 0  * GetSocket() == INVALID_SOCKET"}));
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
    auto* const probe = new Probe(mHandler, mEvents, 1000);
    probe->Open("127.0.0.1", server.GetPort());
    mHandler.Add(probe);
    ASSERT_TRUE(PassUntil("connect"));
    const LoopbackPeer peer = server.Accept();
    peer.Send(std::string(900, 'a'));
    ASSERT_TRUE(PassUntil([&] { return probe->GetHeld() == 900; }));
    peer.Send(std::string(101, 'b'));
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("OnRead: 0 ibuf overflow") == 1; }));
    EXPECT_EQ(probe->Take(), std::string(900, 'a'));
    EXPECT_EQ(probe->GetBytesReceived(), 1001u);
}

TEST_F(TcpSocketTest, AnAcceptedSocketHasNoKeepaliveAndAnOpenedOneHas)
{
    LoopbackPeer peer(-1);
    Probe& accepted = Accept(peer);
    LoopbackListener server;
    Probe& opened = Connect("127.0.0.1", server.GetPort());
    for (const auto& [probe, expected] : {std::pair<Probe*, int>(&accepted, 0), {&opened, 1}}) {
        int keepalive = -1;
        socklen_t size = sizeof keepalive;
        getsockopt(probe->GetSocket(), SOL_SOCKET, SO_KEEPALIVE, &keepalive, &size);
        EXPECT_EQ(keepalive, expected);
    }
}

TEST_F(TcpSocketTest, UnreadBytesAreReportedAtTheClose)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    peer.Send("unread");
    ASSERT_TRUE(PassUntil([&] { return probe.GetHeld() == 6; }));
    probe.DisableRead();
    mHandler.Set(probe.GetSocket(), false, false, true);
    peer.Send("unread");
    pollfd entry{probe.GetSocket(), POLLIN, 0};
    ASSERT_EQ(::poll(&entry, 1, 10000), 1);
    probe.SetFlushBeforeClose(false);
    probe.SetCloseAndDelete();
    Pass();
    EXPECT_EQ(mErrors.Count("read() after shutdown: 6 bytes read"), 1u);
}
