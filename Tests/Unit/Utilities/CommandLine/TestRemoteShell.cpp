#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/CommandLine/CommandLine.h"
#include "Utilities/CommandLine/LogTail.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>

#include <thread>

#include <sys/resource.h>

#include <fcntl.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr std::chrono::seconds Deadline{20};

/// A shell on loopback, run by the test until it is started.
class ShellTest : public testing::Test
{
protected:
    ShellTest()
    {
        mShell.emplace(mService, boost::asio::ip::tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0),
                       "OrbModule");
        mShell->AddAction(
            "version", [] { return "1.0"; }, "");
    }
    LoopbackPeer Connect() { return LoopbackPeer::ConnectTo(mShell->GetServer().GetEndpoint().port()); }
    /// A client of the shell that runs from now on, and has been greeted.
    LoopbackPeer Greeted()
    {
        mShell->Start();
        LoopbackPeer client = Connect();
        SkipGreeting(client);
        return client;
    }
    /// Runs the service on this thread until the shell has taken up its next client.
    void WaitForConnection()
    {
        bool opened = false;
        const boost::signals2::scoped_connection connection =
            mShell->GetServer().ConnectionOpened.connect([&](const auto&) { opened = true; });
        while (!opened)
            ASSERT_NE(mService.run_one_for(Deadline), 0u);
    }
    static void SkipGreeting(const LoopbackPeer& client) { client.ReceiveThrough("more about 'cmd'.\n"); }
    /// The answer of one line to a command.
    static std::string Ask(const LoopbackPeer& client, const std::string& command)
    {
        client.Send(command + "\n");
        return client.ReceiveThrough("\n");
    }
    static void ExpectAlive(const LoopbackPeer& client)
    {
        SkipGreeting(client);
        EXPECT_EQ(Ask(client, "version"), "1.0\n");
    }

    boost::asio::io_service mService;
    std::optional<cmd::CommandLine> mShell;
};

class RemoteShellTest : public ShellTest
{
protected:
    // The shell's thread may log until it has ended.
    ~RemoteShellTest() override { mShell.reset(); }

    LogRecorder mLog;
};

TEST_F(RemoteShellTest, AnswersNeverInterleaveAndAClientThatHasSaidAllStillGetsThem)
{
    mShell->AddAction(
        "big", [](unsigned size, const std::string& text) { return std::string(size, text.front()); }, "");
    const LoopbackPeer client = Greeted();
    std::string expected;
    for (std::size_t i = 0; i < 40; ++i) {
        const std::size_t size = i % 2 == 0 ? 90000 : 3;
        const char letter = static_cast<char>('a' + i % 26);
        client.Send("big " + std::to_string(size) + ' ' + letter + '\n');
        expected += std::string(size, letter) + '\n';
    }
    client.Send("version\nnever finished");
    ::shutdown(client.GetFd(), SHUT_WR);
    EXPECT_TRUE(client.ReceiveToEnd() == expected + "1.0\n");
}

TEST_F(RemoteShellTest, ALineOfMoreThan64KiBEndsItsClient)
{
    mShell->AddAction(
        "echo", [](const std::string& text) { return text; }, "");
    const LoopbackPeer client = Greeted();
    const std::string longest(64 * 1024 - 5, 'x');
    EXPECT_TRUE(Ask(client, "echo " + longest) == longest + "\n");

    const LoopbackPeer other = Connect();
    client.Send(std::string(64 * 1024 + 1, 'x'));
    EXPECT_TRUE(client.WaitForEnd());
    EXPECT_TRUE(mLog.WaitFor("dropped, a line of more than 65536 bytes came\r\n"));
    ExpectAlive(other);
}

TEST_F(RemoteShellTest, AClientThatGoesWrongDoesNotKeepTheNextOut)
{
    bool goesWrong = true;
    mShell->GetServer().ConnectionOpened.connect([&](const auto&) {
        if (std::exchange(goesWrong, false)) throw std::runtime_error("no memory");
    });
    const LoopbackPeer first = Connect();
    const LoopbackPeer second = Connect();
    EXPECT_THROW(mShell->Run(), std::runtime_error);
    mService.restart();
    mShell->Start();
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
    mShell->Start();
    ExpectAlive(client);
}

TEST_F(RemoteShellTest, ConnectionsOutliveTheirServer)
{
    const LoopbackPeer client = Connect();
    WaitForConnection();
    client.Send("help\n");
    SkipGreeting(client);
    ::shutdown(client.GetFd(), SHUT_WR);
    mShell.reset();
    // The connection sees the line and then the end, and no handler is called.
    char byte = 0;
    EXPECT_TRUE(Await([&] { return ::recv(client.GetFd(), &byte, 1, MSG_DONTWAIT) == 0; },
                      [&] { mService.run_one_for(std::chrono::milliseconds(1)); }));
}

class RemoteAuditorTest : public ShellTest
{
protected:
    RemoteAuditorTest()
    {
        // The lines of these tests are wanted at the clients, not on the console.
        testing::internal::CaptureStdout();
        boost::filesystem::create_directories(mDirectory);
        auto* const auditor = new cmd::RemoteAuditor(*mShell, (mDirectory / "K2.log").string());
        auditor->SetTailByDefault(true);
        Audit::SetInstance(auditor);
    }
    ~RemoteAuditorTest() override
    {
        mShell->Stop();
        Audit::SetInstance(nullptr);
        boost::filesystem::remove_all(mDirectory);
        testing::internal::GetCapturedStdout();
    }
    static void Log(const std::string& text) { Audit::Instance()->Write("%s\r\n", text.c_str()); }

private:
    const boost::filesystem::path mDirectory =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("orb-tail-%%%%-%%%%-%%%%");
};

TEST_F(RemoteAuditorTest, ManyThreadsLogWhileClientsComeAndGo)
{
    const LoopbackPeer steady = Greeted();
    std::vector<std::thread> threads(3);
    for (std::thread& thread : threads)
        thread = std::thread([] {
            for (int i = 0; i < 2000; ++i)
                Log("a line of a thread");
        });
    for (int i = 0; i < 20; ++i) {
        const LoopbackPeer passing = Greeted();
        if (i % 2 != 0) continue;
        passing.Send("tail false\nversion\n");
        EXPECT_THAT(passing.ReceiveThrough("true\n1.0\n"), EndsWith("true\n1.0\n"));
    }
    for (std::thread& thread : threads)
        thread.join();
    Log("end");
    const std::string text = steady.ReceiveThrough("end\r\n");
    EXPECT_THAT(text, EndsWith("end\r\n"));
    // Only whole lines, whichever threads they came from.
    for (std::size_t begin = 0, end = 0; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
        const std::string line = text.substr(begin, end - begin);
        EXPECT_TRUE(line.find("thread") == std::string::npos || line == "a line of a thread") << line;
    }
}

TEST_F(RemoteAuditorTest, WhileTheServiceIsStuckTheBacklogIsBounded)
{
    constexpr std::size_t MaxBacklog = 1024 * 1024;
    const auto tail = std::make_shared<cmd::LogTail>(mService, MaxBacklog);
    mShell->GetServer().ConnectionOpened.connect([&](const auto& connection) { tail->Add(connection); });
    const LoopbackPeer client = Connect();
    WaitForConnection();
    const std::string line = std::string(4095, 'x') + "\n";
    for (std::size_t i = 0; i < MaxBacklog / line.size() + 6; ++i)
        tail->OnLogLine(line);
    mShell->Start();
    SkipGreeting(client);
    const std::string text = client.ReceiveThrough("log lines were not shown ***\r\n");
    EXPECT_THAT(text, EndsWith("x\n*** 6 log lines were not shown ***\r\n"));
    EXPECT_EQ(text.find('*'), MaxBacklog);
    tail->OnLogLine("after\r\n");
    EXPECT_EQ(client.ReceiveThrough("\r\n"), "after\r\n");
}

TEST_F(RemoteAuditorTest, AListingLongerThanAnyBufferReachesItsClientsWhole)
{
    const std::string line(1022, 'x');
    mShell->AddAction(
        "list",
        [&line] {
            for (int i = 0; i < 6000; ++i)
                Log(line);
        },
        "");
    const LoopbackPeer client = Greeted();
    client.Send("list\nversion\n");
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(client.ReceiveThrough("\n"), line + "\r\n") << i;
}

TEST_F(RemoteAuditorTest, AStalledTailIsDroppedAndTheOthersAreInformed)
{
    mShell->GetServer().ConnectionClosed.connect([](const auto&, const auto&) { Log("a client has gone"); });
    const LoopbackPeer stalled = Greeted();
    const LoopbackPeer reading = Greeted();
    // Far more than the kernel keeps for a client, in portions that the other one has read before the next comes.
    const std::string line(4000, 'x');
    std::string text;
    for (int portion = 0; portion < 1000 && text.find("a client has gone\r\n") == std::string::npos; ++portion) {
        for (int i = 0; i < 16; ++i)
            Log(line);
        Log("end of portion");
        text += reading.ReceiveThrough("end of portion\r\n");
    }
    EXPECT_THAT(text, testing::ContainsRegex(
                          "CommandLine: client 127.0.0.1:[0-9]* dropped, more than 4194304 bytes were not read\r\n"));
}

TEST_F(RemoteAuditorTest, TheShellOutlivesItsAuditor)
{
    LoopbackPeer client = Connect();
    WaitForConnection();
    Log("never delivered");
    Audit::SetInstance(nullptr);
    const LoopbackPeer late = Connect();
    mShell->Start();
    SkipGreeting(late);
    EXPECT_EQ(Ask(late, "tail true"), "false\n");
    client.Close();
    EXPECT_EQ(Ask(late, "version"), "1.0\n");
}

} // namespace
