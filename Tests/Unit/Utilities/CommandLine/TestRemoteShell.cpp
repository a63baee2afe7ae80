#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Utilities/CommandLine/ShellClient.h"

#include <sys/resource.h>

#include <fcntl.h>

namespace {

using testing::ElementsAre;
using testing::StartsWith;

class RemoteShellTest : public ShellTest
{
protected:
    RemoteShellTest()
    {
        mShell.AddAction(
            "echo", [](const std::string& text) { return text; }, "");
        mShell.AddAction(
            "big", [](unsigned size, const std::string& text) { return std::string(size, text.front()); }, "");
    }
    // The shell's thread may log until it has ended.
    ~RemoteShellTest() override { mShell.Stop(); }

    static void ExpectAlive(const LoopbackPeer& client)
    {
        SkipGreeting(client);
        EXPECT_EQ(Ask(client, "echo alive"), "alive\n");
    }

    LogRecorder mLog;
};

TEST_F(RemoteShellTest, AnswersNeverInterleaveAndAClientThatHasSaidAllStillGetsThem)
{
    mShell.Start();
    const LoopbackPeer client = Connect();
    SkipGreeting(client);
    std::string expected;
    for (std::size_t i = 0; i < 40; ++i) {
        const std::size_t size = i % 2 == 0 ? 90000 : 3;
        const char letter = static_cast<char>('a' + i % 26);
        client.Send("big " + std::to_string(size) + ' ' + letter + '\n');
        expected += std::string(size, letter) + '\n';
    }
    client.Send("echo last\nnever finished");
    ::shutdown(client.GetFd(), SHUT_WR);
    EXPECT_TRUE(client.ReceiveToEnd() == expected + "last\n");
}

TEST_F(RemoteShellTest, ALineOfMoreThan64KiBEndsItsClient)
{
    mShell.Start();
    const LoopbackPeer client = Connect();
    SkipGreeting(client);
    const std::string longest(64 * 1024 - 5, 'x');
    EXPECT_TRUE(Ask(client, "echo " + longest) == longest + "\n");

    const LoopbackPeer other = Connect();
    client.Send(std::string(64 * 1024 + 1, 'x'));
    EXPECT_TRUE(client.WaitForEnd());
    EXPECT_TRUE(mLog.WaitFor("dropped, a line of more than 65536 bytes came\r\n"));
    ExpectAlive(other);
}

TEST_F(RemoteShellTest, AClientThatDoesNotReadIsDropped)
{
    mShell.GetServer().ConnectionClosed.connect(
        [](const auto&, const auto&) { Audit::Instance()->WriteStamped(1, "a client has gone\n"); });
    mShell.Start();
    const LoopbackPeer stalled = Connect();
    const LoopbackPeer other = Connect();
    SkipGreeting(stalled);
    // 64 MiB are more than the kernel keeps for it.
    for (int i = 0; i < 64 && stalled.Send("big 1048576 x\n"); ++i) {
    }
    EXPECT_TRUE(mLog.WaitFor("dropped, more than 4194304 bytes were not read\r\n"));
    EXPECT_TRUE(mLog.WaitFor("a client has gone\n"));
    ExpectAlive(other);
}

TEST_F(RemoteShellTest, AClientThatGoesWrongDoesNotKeepTheNextOut)
{
    bool goesWrong = true;
    mShell.GetServer().ConnectionOpened.connect([&](const auto&) {
        if (std::exchange(goesWrong, false)) throw std::runtime_error("no memory");
    });
    const LoopbackPeer first = Connect();
    const LoopbackPeer second = Connect();
    EXPECT_THROW(mService.run_for(Deadline), std::runtime_error);
    mService.restart();
    mShell.Start();
    ExpectAlive(second);
}

TEST_F(RemoteShellTest, WithoutADescriptorLeftItWaitsAndTriesAgain)
{
    const LoopbackPeer client = Connect();
    // A checked build looks at an object's type through a pipe when it first meets it: let it meet the log now.
    AUDIT_LOG(Fault, "ready\n");
    const int next = ::fcntl(0, F_DUPFD, 0);
    ::close(next);
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    const std::size_t handlers = mService.run_for(std::chrono::milliseconds(350));
    ::setrlimit(RLIMIT_NOFILE, &before);

    EXPECT_GT(handlers, 1u);
    EXPECT_LT(handlers, 20u);
    EXPECT_THAT(mLog.Lines(), ElementsAre("ready\n", StartsWith("CommandLine: accept failed, ")));
    mService.restart();
    mShell.Start();
    ExpectAlive(client);
}

TEST_F(RemoteShellTest, ConnectionsOutliveTheirServer)
{
    auto shell = std::make_unique<cmd::CommandLine>(mService, AnyLoopbackPort(), "");
    const LoopbackPeer client = Connect(*shell);
    WaitForConnection(*shell);
    client.Send("help\n");
    SkipGreeting(client);
    ::shutdown(client.GetFd(), SHUT_WR);
    shell.reset();
    // The connection sees the line and then the end, and no handler is called.
    char byte = 0;
    EXPECT_TRUE(Await([&] { return ::recv(client.GetFd(), &byte, 1, MSG_DONTWAIT) == 0; },
                      [&] { mService.run_one_for(std::chrono::milliseconds(1)); }));
}

} // namespace
