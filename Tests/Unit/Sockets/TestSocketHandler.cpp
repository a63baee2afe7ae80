#include "Tests/Unit/Sockets/SocketFixture.h"

#include "Sockets/HandlerMutex.h"

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>

using SocketHandlerTest = SocketTest;

TEST_F(SocketHandlerTest, ARepeatedSelectErrorIsReportedTwiceAndThenEvery10000thTime)
{
    for (int i = 0; i < 10002; ++i)
        mHandler.Select(-1, 0);
    EXPECT_EQ(mErrors.Count("select: " + std::to_string(EINVAL)), 3u);
    Pass();
    mHandler.Select(-1, 0);
    EXPECT_EQ(mErrors.Count("select: " + std::to_string(EINVAL)), 4u) << "after a good pass the error is new";
}

TEST_F(SocketHandlerTest, ASocketThatIsAddedTwiceStaysOnce)
{
    LoopbackPeer peer(-1);
    Probe& probe = Accept(peer);
    const std::size_t count = mHandler.GetCount();
    mHandler.Add(&probe);
    mHandler.Add(&probe);
    EXPECT_EQ(mErrors.Count("Add: " + std::to_string(probe.GetSocket())), 1u);
    Pass();
    EXPECT_EQ(mErrors.Count("Add: " + std::to_string(probe.GetSocket())), 2u);
    EXPECT_TRUE(mHandler.Valid(&probe));
    EXPECT_EQ(mHandler.GetCount(), count);
}

TEST_F(SocketHandlerTest, TheLimitHoldsSocketsBackUntilAPlaceIsFree)
{
    const std::uint16_t port = Listen();
    LoopbackListener server;
    Probe& first = Connect("127.0.0.1", server.GetPort());
    ASSERT_TRUE(PassUntil("connect"));
    mHandler.mLimit = 2;
    auto* const second = mHandler.Own(std::make_unique<Probe>(mHandler, mEvents));
    second->Attach(::socket(AF_INET, SOCK_DGRAM, 0));
    mHandler.Add(second);
    Pass();
    EXPECT_EQ(mErrors.Count("Select: 2 FD_SETSIZE reached"), 1u);
    EXPECT_FALSE(mHandler.Valid(second));

    const LoopbackPeer refused = LoopbackPeer::ConnectTo(port);
    ASSERT_TRUE(PassUntil([&] { return mErrors.Count("accept: 3 ISocketHandler fd_set limit reached") == 1; }));
    EXPECT_TRUE(refused.WaitForEnd());
    Probe& third = Connect("127.0.0.1", server.GetPort());
    EXPECT_EQ(mErrors.Count("Open: 0 no space left in fd_set"), 1u);
    EXPECT_TRUE(third.CloseAndDelete());

    first.SetFlushBeforeClose(false);
    first.SetCloseAndDelete();
    EXPECT_TRUE(PassUntil([&] { return mHandler.Valid(second); }));
}

TEST_F(SocketHandlerTest, ADescriptorBeyondTheSetsIsClosedAndNeverEntersThem)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 2 * FD_SETSIZE) GTEST_SKIP() << "no descriptor of that number is allowed here";
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int low = ::socket(AF_INET, SOCK_STREAM, 0);
    const int high = fcntl(low, F_DUPFD, FD_SETSIZE);
    ::close(low);
    ASSERT_GE(high, FD_SETSIZE);
    auto* const probe = mHandler.Own(std::make_unique<Probe>(mHandler, mEvents));
    probe->Attach(high);
    mHandler.Add(probe);
    Pass();
    EXPECT_EQ(mErrors.Count("Select: " + std::to_string(high) + " FD_SETSIZE reached"), 1u);
    EXPECT_EQ(mEvents, (Events{"delete", "gone"}));
    EXPECT_EQ(fcntl(high, F_GETFD), -1);
}

TEST_F(SocketHandlerTest, ASocketThatMarksOrClosesItselfInOnReadGoesInTheSamePass)
{
    const std::function<void(Probe&)> ways[] = {
        [](Probe& probe) {
            probe.SetFlushBeforeClose(false);
            probe.SetCloseAndDelete();
        },
        // The mark falls on no descriptor, so no work list can take it.
        [](Probe& probe) {
            probe.Close();
            probe.SetFlushBeforeClose(false);
            probe.SetCloseAndDelete();
        },
    };
    for (const auto& way : ways) {
        LoopbackPeer peer(-1);
        Probe& probe = Accept(peer);
        bool wasRead = false;
        probe.mOnRead = [&](Probe& self) {
            wasRead = true;
            way(self);
        };
        peer.Send("x");
        ASSERT_TRUE(PassUntil([&] { return wasRead; }));
        EXPECT_EQ(mEvents, (Events{"delete", "gone"}));
        EXPECT_TRUE(peer.WaitForEnd());
    }
    EXPECT_EQ(mHandler.GetCount(), 2u) << "the listeners";
}

TEST_F(SocketHandlerTest, AnotherThreadEndsAWaitInProgress)
{
    HandlerMutex mutex;
    SocketHandler handler(mutex, &mErrors);
    std::atomic<bool> running{true};
    std::thread passes([&] {
        while (running) {
            const HandlerMutex::Guard guard(mutex);
            handler.Select(3600, 0);
        }
    });
    LoopbackListener server;
    Probe* probe = nullptr;
    {
        const HandlerMutex::Guard guard(mutex);
        probe = &Connect(handler, "127.0.0.1", server.GetPort(), false);
    }
    const LoopbackPeer peer = server.Accept();
    std::string expected;
    for (int i = 0; i < 100; ++i) {
        const std::string piece(20000, static_cast<char>('a' + i % 26));
        const HandlerMutex::Guard guard(mutex);
        probe->SendBuf(piece.data(), piece.size());
        expected += piece;
    }
    EXPECT_TRUE(peer.Receive(expected.size()) == expected);
    {
        const HandlerMutex::Guard guard(mutex);
        probe->SetFlushBeforeClose(false);
        probe->SetCloseAndDelete();
    }
    EXPECT_TRUE(peer.WaitForEnd());
    running = false;
    handler.Wake();
    passes.join();
    EXPECT_EQ(mEvents, (Events{"connect", "delete", "gone"}));
}

TEST_F(SocketHandlerTest, TheMutexGoesToWhoeverAskedFirst)
{
    HandlerMutex mutex;
    std::atomic<bool> running{true};
    // Passes that come one behind the other, as under a flood.
    std::thread passes([&] {
        while (running)
            const HandlerMutex::Guard guard(mutex);
    });
    const auto others = std::async(std::launch::async, [&] {
        for (int i = 0; i < 200; ++i)
            const HandlerMutex::Guard guard(mutex);
    });
    EXPECT_EQ(others.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    running = false;
    passes.join();
}

TEST_F(SocketHandlerTest, WhatItHoldsGoesWithItAtEveryStage)
{
    LoopbackListener server;
    LoopbackPeer peer(-1);
    std::size_t made = 0;
    {
        SocketHandler handler(&mErrors);
        const auto open = [&](bool reconnect, const std::string& host, std::uint16_t port) -> Probe& {
            ++made;
            return Connect(handler, host, port, reconnect);
        };
        Probe& connected = open(true, "127.0.0.1", server.GetPort());
        peer = server.Accept();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!connected.IsConnected() && std::chrono::steady_clock::now() < deadline)
            handler.Select(0, 2000);
        open(true, "224.0.0.1", 9);                // failed at once
        open(true, "127.0.0.1", 1);                // refused
        open(true, "127.0.0.1", server.GetPort()); // connecting
        handler.Select(0, 0);
        open(false, "no address", 1);              // refused by the handler
        open(true, "127.0.0.1", server.GetPort()); // not taken in yet
        connected.SetCloseAndDelete();
        const std::string unsent(8 << 20, 'x');
        connected.SendBuf(unsent.data(), unsent.size());
    }
    EXPECT_EQ(std::count(mEvents.begin(), mEvents.end(), "gone"), static_cast<std::ptrdiff_t>(made));
    EXPECT_EQ(mErrors.Count("Remove"), 0u);
}

TEST_F(SocketHandlerTest, ASocketThatDiesUnderControlIsTakenOut)
{
    auto probe = std::make_unique<Probe>(mHandler, mEvents);
    probe->Attach(::socket(AF_INET, SOCK_DGRAM, 0));
    mHandler.Add(probe.get());
    Pass();
    probe.reset();
    EXPECT_EQ(mErrors.Count("Remove: -1 Socket destructor called while still in use"), 1u);
    EXPECT_EQ(mHandler.GetCount(), 0u);
    Pass();
    EXPECT_EQ(mErrors.Count("select"), 0u) << "its descriptor is in no set";
}
