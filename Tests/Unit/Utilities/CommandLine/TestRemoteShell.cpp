#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Utilities/CommandLine/ShellClient.h"

#include <sys/resource.h>

#include <fcntl.h>

namespace {

using testing::ElementsAre;
using testing::StartsWith;

class RemoteShellTest : public testing::Test
{
protected:
    RemoteShellTest()
    {
        mShell.AddAction(
            "echo", [](const std::string& text) { return text; }, "");
        mShell.AddAction(
            "big", [](unsigned size, const std::string& text) { return std::string(size, text.front()); }, "");
    }
    /// A client gets its answer.
    void ExpectAlive(ShellClient& client)
    {
        client.SkipGreeting();
        client.Send("echo alive\n");
        EXPECT_EQ(client.ReadUntil("\n"), "alive\n");
    }
    ~RemoteShellTest() override { mShell.Stop(); }
    boost::asio::ip::tcp::endpoint Endpoint() { return mShell.GetServer().GetEndpoint(); }

    LogRecorder mLog;
    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, AnyLoopbackPort(), "OrbModule"};
};

TEST_F(RemoteShellTest, AnswersNeverInterleave)
{
    mShell.Start();
    ShellClient client(Endpoint());
    client.SkipGreeting();
    std::string commands;
    std::string expected;
    for (std::size_t i = 0; i < 40; ++i) {
        const std::size_t size = i % 2 == 0 ? 90000 : 3;
        const char letter = static_cast<char>('a' + i % 26);
        commands += "big " + std::to_string(size) + ' ' + letter + '\n';
        expected += std::string(size, letter) + '\n';
    }
    client.Send(commands + "echo end\n");
    EXPECT_TRUE(client.ReadUntil("end\n") == expected + "end\n");
    // A client that has said all still gets its answers.
    client.Send("echo last\nnever finished");
    client.ShutdownOutput();
    EXPECT_EQ(client.ReadToEnd(), "last\n");
}

TEST_F(RemoteShellTest, ALineOfMoreThan64KiBEndsItsClient)
{
    mShell.Start();
    ShellClient client(Endpoint());
    client.SkipGreeting();
    const std::string longest(64 * 1024 - 5, 'x');
    client.Send("echo " + longest + "\n");
    EXPECT_TRUE(client.ReadUntil("\n") == longest + "\n");

    ShellClient other(Endpoint());
    client.Send(std::string(64 * 1024 + 1, 'x'));
    client.ReadToEnd();
    EXPECT_TRUE(mLog.WaitForPart("dropped, a line of more than 65536 bytes came\r\n"));
    ExpectAlive(other);
}

TEST_F(RemoteShellTest, AClientThatDoesNotReadIsDropped)
{
    mShell.GetServer().ConnectionClosed.connect(
        [](const auto&, const auto&) { Audit::Instance()->WriteStamped(1, "a client has gone\n"); });
    mShell.Start();
    ShellClient stalled(Endpoint());
    ShellClient other(Endpoint());
    stalled.SkipGreeting();
    // 64 MiB are more than the kernel keeps for it.
    for (int i = 0; i < 64 && stalled.Send("big 1048576 x\n"); ++i) {
    }
    EXPECT_TRUE(mLog.WaitForPart("dropped, more than 4194304 bytes were not read\r\n"));
    EXPECT_TRUE(mLog.WaitFor("a client has gone\n"));
    ExpectAlive(other);
}

TEST_F(RemoteShellTest, AClientThatGoesWrongDoesNotKeepTheNextOut)
{
    bool goesWrong = true;
    mShell.GetServer().ConnectionOpened.connect([&](const auto&) {
        if (std::exchange(goesWrong, false)) throw std::runtime_error("no memory");
    });
    ShellClient first(Endpoint());
    ShellClient second(Endpoint());
    EXPECT_THROW(mService.run_for(Deadline), std::runtime_error);
    mService.restart();
    mShell.Start();
    second.SkipGreeting();
}

TEST_F(RemoteShellTest, WithoutADescriptorLeftItWaitsAndTriesAgain)
{
    ShellClient client(Endpoint());
    // A checked build looks at an object's type through a pipe when it first meets it: let it meet the log now.
    AUDIT_LOG(Fault, "ready\n");
    const int next = ::fcntl(0, F_DUPFD, 0);
    ASSERT_GE(next, 0);
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
    client.SkipGreeting();
}

TEST_F(RemoteShellTest, ConnectionsOutliveTheirServer)
{
    boost::asio::io_service service;
    auto shell = std::make_unique<cmd::CommandLine>(service, AnyLoopbackPort(), "");
    ShellClient client(shell->GetServer().GetEndpoint());
    WaitForConnection(service, *shell);
    client.Send("help\n");
    client.SkipGreeting();
    client.ShutdownOutput();
    shell.reset();
    // The connection sees the line and then the end, and nobody is there to be told.
    while (service.run_one_for(Deadline) != 0) {
    }
    EXPECT_EQ(client.ReadToEnd(), "");
}

} // namespace
