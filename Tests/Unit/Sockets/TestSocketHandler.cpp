#include "Tests/Unit/Sockets/SocketFixture.h"

#include "Sockets/HandlerMutex.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
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

TEST_F(SocketHandlerTest, ItsSetsBeginEmpty)
{
    alignas(SocketHandler) unsigned char memory[sizeof(SocketHandler)];
    std::memset(memory, 0xFF, sizeof memory);
    auto* const handler = new (memory) SocketHandler(&mErrors);
    EXPECT_EQ(handler->Select(0, 0), 0);
    handler->~SocketHandler();
}

TEST_F(SocketHandlerTest, ASocketThatIsAddedTwiceStaysOnce)
{
    Probe& probe = Accept();
    const std::size_t count = mHandler.GetCount();
    const std::string error = "Add: " + std::to_string(probe.GetSocket());
    mHandler.Add(&probe);
    mHandler.Add(&probe);
    EXPECT_EQ(mErrors.Count(error), 1u);
    Pass();
    EXPECT_EQ(mErrors.Count(error), 2u);
    EXPECT_TRUE(mHandler.Valid(&probe));
    EXPECT_EQ(mHandler.GetCount(), count);
}

TEST_F(SocketHandlerTest, TheLimitHoldsSocketsBackUntilAPlaceIsFree)
{
    const std::uint16_t port = Listen();
    Probe& first = Connected();
    mHandler.mLimit = 2;
    auto* const second = mHandler.Own(std::make_unique<Probe>(mHandler));
    second->Attach(::socket(AF_INET, SOCK_DGRAM, 0));
    mHandler.Add(second);
    Pass();
    EXPECT_EQ(mErrors.Count("Select: 2 FD_SETSIZE reached"), 1u);
    EXPECT_FALSE(mHandler.Valid(second));

    const LoopbackPeer refused = LoopbackPeer::ConnectTo(port);
    ASSERT_TRUE(PassUntilErrors("accept: 3 ISocketHandler fd_set limit reached"));
    EXPECT_TRUE(refused.WaitForEnd());
    EXPECT_TRUE(Connect(mServer.GetPort()).CloseAndDelete());
    EXPECT_EQ(mErrors.Count("Open: 0 no space left in fd_set"), 1u);

    first.CloseAtOnce();
    EXPECT_TRUE(PassUntil([&] { return mHandler.Valid(second); }));
}

TEST_F(SocketHandlerTest, ADescriptorBeyondTheSetsIsClosedAndNeverEntersThem)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 2 * FD_SETSIZE) GTEST_SKIP() << "no descriptor of that number is allowed here";
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    auto* const probe = mHandler.Own(std::make_unique<Probe>(mHandler));
    const int high = fcntl(0, F_DUPFD, FD_SETSIZE);
    ASSERT_GE(high, FD_SETSIZE);
    probe->Attach(high);
    mHandler.Add(probe);
    Pass();
    EXPECT_EQ(mErrors.Count("Select: " + std::to_string(high) + " FD_SETSIZE reached"), 1u);
    EXPECT_EQ(TakeEvents(), (Lines{"delete", "gone"}));
    EXPECT_EQ(fcntl(high, F_GETFD), -1);
}

TEST_F(SocketHandlerTest, ASocketThatMarksOrClosesItselfInOnReadGoesInTheSamePass)
{
    for (const bool closes : {false, true}) {
        Probe& probe = Accept();
        bool wasRead = false;
        probe.mOnRead = [&](Probe& self) {
            wasRead = true;
            // Then the mark falls on no descriptor, so no work list can take it.
            if (closes) self.Close();
            self.CloseAtOnce();
        };
        mPeer.Send("x");
        ASSERT_TRUE(PassUntil([&] { return wasRead; }));
        EXPECT_EQ(TakeEvents(), (Lines{"delete", "gone"}));
        EXPECT_TRUE(mPeer.WaitForEnd());
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
    Probe* probe = nullptr;
    const auto locked = [&](const auto& action) {
        const HandlerMutex::Guard guard(mutex);
        action();
    };
    locked([&] { probe = &Connect(handler, mServer.GetPort()); });
    mPeer = mServer.Accept();
    const std::string piece(20000, 'x');
    for (int i = 0; i < 100; ++i)
        locked([&] { probe->SendBuf(piece.data(), piece.size()); });
    EXPECT_EQ(mPeer.Receive(100 * piece.size()).size(), 100 * piece.size());
    locked([&] { probe->CloseAtOnce(); });
    EXPECT_TRUE(mPeer.WaitForEnd());
    running = false;
    handler.Wake();
    passes.join();
    EXPECT_EQ(TakeEvents(), (Lines{"connect", "delete", "gone"}));
}

TEST_F(SocketHandlerTest, WhatItHoldsGoesWithItInEveryState)
{
    {
        SocketHandler handler(&mErrors);
        Probe& connected = Connect(handler, mServer.GetPort(), true);
        mPeer = mServer.Accept();
        ASSERT_TRUE(Await([&] { return connected.IsConnected(); }, [&] { handler.Select(0, 2000); }));
        Connect(handler, 9, true, "224.0.0.1");    // failed at once
        Connect(handler, 1, true);                 // refused
        Connect(handler, mServer.GetPort(), true); // connecting
        handler.Select(0, 0);
        Connect(handler, 1, false, "no address");  // refused by the handler
        Connect(handler, mServer.GetPort(), true); // not taken in yet
        connected.SetCloseAndDelete();
        const std::string unsent(8 << 20, 'x');
        connected.SendBuf(unsent.data(), unsent.size());
    }
    EXPECT_EQ(std::count(mEvents.begin(), mEvents.end(), "gone"), 6);
    EXPECT_EQ(mErrors.Count("Remove"), 0u);
}

TEST_F(SocketHandlerTest, WhileReadingIsHeldWhatHasComeEndsNoWait)
{
    Probe& probe = Accept();
    mHandler.mHeld = true;
    mPeer.Send("here");
    const auto start = std::chrono::steady_clock::now();
    mHandler.Select(0, 20000);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(19));
    mHandler.mHeld = false;
    EXPECT_TRUE(PassUntil([&] { return probe.GetHeld() == 4; }));
    mPeer.Send("more");
    pollfd more{probe.GetSocket(), POLLIN, 0};
    ASSERT_EQ(::poll(&more, 1, 10000), 1);
    probe.Close();
    EXPECT_EQ(mErrors.Count("read() after shutdown: 4 bytes read"), 1u);
}

TEST_F(SocketHandlerTest, ErrorsAreLinesThatSayWhenWhereAndHowBad)
{
    Probe probe(mHandler);
    const std::time_t now = std::time(nullptr);
    char time[20];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:", std::localtime(&now));
    for (const auto& [level, word] : {std::pair(LogLevel::Warning, "(Warning)\n"),
                                      {LogLevel::Error, "(Error)\n"},
                                      {LogLevel::Fatal, "(Fatal)\n"},
                                      {LogLevel::Info, "(Info)\n"}})
        for (Socket* const socket : {static_cast<Socket*>(&probe), static_cast<Socket*>(nullptr)}) {
            testing::internal::CaptureStdout();
            StdoutLog().error(&mHandler, socket, "call", 7, "text", level);
            const std::string line = testing::internal::GetCapturedStdout();
            EXPECT_EQ(line.substr(0, 17), time);
            EXPECT_EQ(line.substr(19), std::string(socket ? " :: fd -1" : "") + " :: call: 7 text " + word);
        }
}

TEST_F(SocketHandlerTest, ASocketThatIsDestroyedWhileHandledIsRemoved)
{
    auto probe = std::make_unique<Probe>(mHandler);
    probe->Attach(::socket(AF_INET, SOCK_DGRAM, 0));
    mHandler.Add(probe.get());
    Pass();
    probe.reset();
    EXPECT_EQ(TakeErrors(), Lines{"Remove: -1 Socket destructor called while still in use"});
    EXPECT_EQ(mHandler.GetCount(), 0u);
    Pass();
    EXPECT_EQ(mErrors.Count("select"), 0u) << "its descriptor is in no set";
}
