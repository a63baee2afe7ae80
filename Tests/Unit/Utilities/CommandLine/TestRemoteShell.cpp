#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/CommandLine/CommandLine.h"
#include "Utilities/CommandLine/LogTail.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/algorithm/string/erase.hpp>
#include <boost/filesystem.hpp>
#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#include <sys/resource.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr std::chrono::seconds Deadline{20};

/// A shell on loopback, run by the test until it is started.
class RemoteShellTest : public testing::Test
{
protected:
    RemoteShellTest()
    {
        mShell.emplace(mService, boost::asio::ip::tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0),
                       "OrbModule");
        // The service runs already when a command is carried out: this does nothing.
        const auto version = [this] { return mShell->Run(), "1.0"; };
        mShell->AddAction("version", version, "");
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
    std::shared_ptr<cmd::ClientConnection> NextConnection()
    {
        std::shared_ptr<cmd::ClientConnection> opened;
        const boost::signals2::scoped_connection connection =
            mShell->GetServer().ConnectionOpened.connect([&](const auto& client) { opened = client; });
        while (!opened && mService.run_one_for(Deadline) != 0) {
        }
        return opened;
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

    // The shell's thread may log until it has ended.
    LogRecorder mLog;
    boost::asio::io_service mService;
    std::optional<cmd::CommandLine> mShell;
};

TEST_F(RemoteShellTest, ALineOfMoreThan64KiBEndsItsClient)
{
    const auto echo = [](const std::string& text) { return text; };
    mShell->AddAction("echo", echo, "");
    const LoopbackPeer client = Greeted();
    const std::string longest(64 * 1024 - 5, 'x');
    EXPECT_TRUE(Ask(client, "echo " + longest) == longest + "\n");

    const LoopbackPeer other = Connect();
    client.Send(std::string(64 * 1024 + 1, 'x'));
    EXPECT_TRUE(client.WaitForEnd());
    EXPECT_TRUE(mLog.WaitFor("CommandLine: client 127.0.0.1:" + std::to_string(client.GetPort()) +
                             " dropped, a line of more than 65536 bytes came\r\n"));
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
    // A checked build looks at an object's type through a pipe when it first meets it: let it meet the log now.
    AUDIT_LOG(Fault, "ready\n");
    rlimit before{};
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{1, before.rlim_max};
    std::vector<LoopbackPeer> clients;
    for (int round = 0; round < 2; ++round) {
        clients.push_back(Connect());
        ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
        const auto begin = std::chrono::steady_clock::now();
        // Two attempts, and the pauses after them.
        for (int handlers = 0; handlers < 4; ++handlers)
            mService.run_one_for(Deadline);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(200));
        ::setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_TRUE(NextConnection());
        mService.poll();
    }
    const auto failed = testing::StartsWith("CommandLine: accept failed, ");
    EXPECT_THAT(mLog.Lines(), ElementsAre("ready\n", failed, failed));
}

TEST_F(RemoteShellTest, ConnectionsOutliveTheirServer)
{
    const LoopbackPeer client = Connect();
    NextConnection();
    client.Send("help\n");
    SkipGreeting(client);
    ::shutdown(client.GetFd(), SHUT_WR);
    // Another one can have the port at once.
    const auto endpoint = mShell->GetServer().GetEndpoint();
    mShell.reset();
    EXPECT_NO_THROW(cmd::RemoteCommandServer(mService, endpoint, ""));
    // The connection sees the line and then the end, and no handler is called.
    mService.run_for(Deadline);
    EXPECT_TRUE(client.WaitForEnd());
}

class RemoteAuditorTest : public RemoteShellTest
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
    std::string text = steady.ReceiveThrough("end\r\n");
    EXPECT_EQ(text.size(), 6000 * std::strlen("a line of a thread\r\n") + std::strlen("end\r\n"));
    // Only whole lines, whichever threads they came from.
    boost::erase_all(text, "a line of a thread\r\n");
    EXPECT_EQ(text, "end\r\n");
    // A tail has its results in the log alone, and nothing keeps the connection of one that has said all.
    steady.Send("version\ntail false\nversion\ntail true\nnever finished");
    ::shutdown(steady.GetFd(), SHUT_WR);
    EXPECT_EQ(steady.ReceiveToEnd(), "true\n1.0\n");
    EXPECT_TRUE(steady.WaitForEnd());
}

TEST_F(RemoteAuditorTest, ATailGetsWhatIsLoggedBetweenItsBeginningAndItsEndAndTheBacklogIsBounded)
{
    const auto tail = std::make_shared<cmd::LogTail>(mService, 8);
    const LoopbackPeer first = Connect();
    const auto one = NextConnection();
    const LoopbackPeer second = Connect();
    const auto two = NextConnection();
    std::vector<bool> changed = {tail->Add(one)};
    tail->OnLogLine("a1\n");
    changed.insert(changed.end(), {tail->Add(two), tail->Add(two)});
    tail->OnLogLine("b12\n");
    changed.insert(changed.end(), {tail->Remove(one), tail->Remove(one)});
    EXPECT_THAT(changed, ElementsAre(true, true, false, true, false));
    for (const char* line : {"c2\n", "d2345\n", "d22\r\n", "e2\n"})
        tail->OnLogLine(line);
    mService.poll();
    tail->OnLogLine("f2\n");
    tail->Remove(two);
    one->Write("end\n");
    mService.poll();
    tail->OnLogLine("nobody\n");
    EXPECT_EQ(mService.poll(), 0u) << "a line costs nothing while nobody tails";
    SkipGreeting(first);
    EXPECT_EQ(first.ReceiveThrough("end\n"), "a1\nb12\nend\n");
    SkipGreeting(second);
    EXPECT_EQ(second.ReceiveThrough("f2\n"), "b12\nc2\nd22\r\n*** 2 log lines were not shown ***\r\nf2\n");
}

TEST_F(RemoteAuditorTest, AStalledClientIsDroppedAndTheOthersAreInformed)
{
    mShell->GetServer().ConnectionClosed.connect([](const auto&, const auto&) { Log("a client has gone"); });
    const LoopbackPeer stalled = Connect();
    const auto connection = NextConnection();
    const LoopbackPeer reading = Connect();
    NextConnection();
    const std::string most(4 * 1024 * 1024, 'x');
    mService.poll();
    // One reply may be longer; what the kernel has taken of it does not count.
    connection->Write(most + "y");
    mService.poll();
    connection->Write("z");
    mShell->Start();
    SkipGreeting(stalled);
    EXPECT_TRUE(stalled.ReceiveThrough("z") == most + "yz");
    mShell->Stop();
    mService.restart();

    connection->Write(most);
    connection->Write("y");
    Log("as much as may be");
    for (int i = 0; i < 4; ++i)
        mShell->GetServer().LineReceived.connect([&](const auto& client, const auto&) { client->Write(most); });
    stalled.Send("1\n2\n");
    mShell->Start();
    SkipGreeting(reading);
    EXPECT_THAT(reading.ReceiveThrough("gone\r\n"),
                testing::MatchesRegex(
                    "as much as may be\r\n[^C]*CommandLine: client 127.0.0.1:" + std::to_string(stalled.GetPort()) +
                    " dropped, more than 4194304 bytes were not read\r\na client has gone\r\n"));
    EXPECT_TRUE(stalled.WaitForEnd());
}

TEST_F(RemoteAuditorTest, TheShellOutlivesItsAuditor)
{
    LoopbackPeer client = Connect();
    NextConnection();
    Log("never delivered");
    std::make_unique<AuditGuard>().reset();
    const LoopbackPeer late = Connect();
    mShell->Start();
    SkipGreeting(late);
    EXPECT_EQ(Ask(late, "tail true"), "false\n");
    client.Close();
    EXPECT_EQ(Ask(late, "version"), "1.0\n");
}

} // namespace
