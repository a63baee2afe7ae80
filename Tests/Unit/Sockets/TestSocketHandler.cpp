#include "Tests/Unit/Sockets/SocketFixture.h"

#include "Sockets/HandlerMutex.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <thread>

#include <sys/resource.h>

using SocketHandlerTest = SocketTest;

TEST_F(SocketHandlerTest, ItsSetsBeginEmptyAndItLeavesSomeDescriptorsToOthers)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 2 * FD_SETSIZE) GTEST_SKIP() << "too few descriptors are allowed here";
    for (const auto& [allowed, most] : {std::pair(129u, 65u), {128u, 128u}, {1087u, 1023u}, {1089u, 1024u}}) {
        limit.rlim_cur = allowed;
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
        alignas(SocketHandler) unsigned char memory[sizeof(SocketHandler)];
        std::memset(memory, 0xFF, sizeof memory);
        auto* const handler = new (memory) SocketHandler(this);
        EXPECT_EQ(handler->GetLimit(), most);
        EXPECT_EQ(handler->Select(0, 0), 0);
        handler->~SocketHandler();
    }
    Probe& a = Make(mHandler);
    a.Attach(fcntl(LoopbackPeer::Bound("127.0.0.1", 0).GetFd(), F_DUPFD, FD_SETSIZE));
    mHandler.Add(&a);
    Expect("a Select: fd FD_SETSIZE reached W; a delete; a gone");
}

TEST_F(SocketHandlerTest, AnotherThreadEndsAWaitInProgress)
{
    HandlerMutex mutex;
    SocketHandler handler(mutex, this);
    EXPECT_EQ(handler.GetMutex(), &mutex);
    std::atomic<bool> running{true};
    int waits = 0;
    std::thread passes([&] {
        while (running) {
            const HandlerMutex::Guard guard(mutex);
            ++waits;
            handler.Select(3600, 0);
        }
    });
    const auto locked = [&](const auto& action) {
        const HandlerMutex::Guard guard(mutex);
        return action();
    };
    const auto await = [&](const auto& done) {
        EXPECT_TRUE(Await([&] { return locked(done); }, [] { std::this_thread::yield(); }));
    };
    await([&] { return waits >= 1; });
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
    mPeer = LoopbackPeer(ends[1]);
    Probe& a = *locked([&] {
        Probe& probe = Make(handler);
        probe.Attach(ends[0]);
        probe.SetConnected();
        handler.Add(&probe);
        return &probe;
    });
    await([&] { return waits >= 2; });
    const std::string piece(200000, 'x');
    for (int i = 0; i < 100; ++i)
        locked([&] { a.Send(piece); });
    EXPECT_EQ(mPeer.Receive(100 * piece.size()).size(), 100 * piece.size());
    locked([&] { a.SetCloseAndDelete(); });
    EXPECT_TRUE(mPeer.WaitForEnd());
    mPeer.Close();
    await([&] { return !mEvents.empty() && mEvents.back() == "a gone"; });
    // Before that a kernel may refuse a block, though it has called the socket writable.
    const std::string seen = locked([&] { return Seen(); });
    EXPECT_EQ(seen.substr(std::min(seen.size(), seen.find("a disconnect"))), "a disconnect; a delete; a gone");
    running = false;
    handler.Wake();
    passes.join();
}

TEST_F(SocketHandlerTest, ErrorsAreLinesThatSayWhenWhereAndHowBad)
{
    Probe& probe = Make(mHandler);
    const char* const words[] = {"Warning", "Error", "Fatal", "Info"};
    for (std::size_t i = 0; i < 8; ++i) {
        const std::time_t now = std::time(nullptr);
        char time[20];
        std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:", std::localtime(&now));
        testing::internal::CaptureStdout();
        StdoutLog().error(&mHandler, i < 4 ? &probe : nullptr, "call", 7, "text", static_cast<LogLevel>(i % 4));
        const std::string line = testing::internal::GetCapturedStdout();
        EXPECT_EQ(line.substr(0, 17), time);
        EXPECT_EQ(line.substr(19),
                  (i < 4 ? " :: fd -1 :: call: 7 text (" : " :: call: 7 text (") + std::string(words[i % 4]) + ")\n");
    }
}

TEST_F(SocketHandlerTest, ASocketThatIsDestroyedWhileHandledIsRemoved)
{
    for (const std::string state : {"under control", "added", "refused", "unknown"}) {
        Probe::sNextName = 'a';
        auto probe = std::make_unique<Probe>(mHandler);
        if (state != "refused") probe->Attach(::socket(AF_INET, SOCK_DGRAM, 0));
        if (state == "refused") probe->SetCloseAndDelete();
        if (state != "unknown") mHandler.Add(probe.get());
        if (state == "under control") Pass();
        EXPECT_EQ(mHandler.GetCount(), state == "unknown" ? 0u : 1u);
        probe.reset();
        EXPECT_EQ(mHandler.GetCount(), 0u);
        Expect((state == "refused" ? "a Add: -1 Invalid socket W; a gone" : "a gone") +
               std::string(state == "unknown" ? "" : "; - Remove: -1 Socket destructor called while still in use W"));
    }
}
