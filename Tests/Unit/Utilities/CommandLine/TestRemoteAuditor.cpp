#include "Tests/Unit/Utilities/CommandLine/ShellClient.h"
#include "Utilities/CommandLine/LogTail.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/filesystem.hpp>

#include <thread>
#include <vector>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class RemoteAuditorTest : public ShellTest
{
protected:
    RemoteAuditorTest()
    {
        // The lines of these tests are wanted at the clients, not on the console.
        testing::internal::CaptureStdout();
        boost::filesystem::create_directories(mDirectory);
        mShell.AddAction(
            "version", [] { return "1.0"; }, "");
        auto* const auditor = new cmd::RemoteAuditor(mShell, (mDirectory / "K2.log").string());
        auditor->SetTailByDefault(true);
        Audit::SetInstance(auditor);
    }
    ~RemoteAuditorTest() override
    {
        mShell.Stop();
        Audit::SetInstance(nullptr);
        boost::filesystem::remove_all(mDirectory);
        testing::internal::GetCapturedStdout();
    }
    /// A client that is shown the log.
    LoopbackPeer Tail()
    {
        if (!std::exchange(mStarted, true)) mShell.Start();
        LoopbackPeer client = Connect();
        SkipGreeting(client);
        return client;
    }
    static void Log(const std::string& text) { Audit::Instance()->Write("%s\r\n", text.c_str()); }

private:
    bool mStarted = false;
    const boost::filesystem::path mDirectory =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("orb-tail-%%%%-%%%%-%%%%");
};

TEST_F(RemoteAuditorTest, ManyThreadsLogWhileClientsComeAndGo)
{
    const LoopbackPeer steady = Tail();
    std::vector<std::thread> threads(3);
    for (std::thread& thread : threads)
        thread = std::thread([] {
            for (int i = 0; i < 2000; ++i)
                Log("a line of a thread");
        });
    for (int i = 0; i < 20; ++i) {
        const LoopbackPeer passing = Tail();
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
    mShell.GetServer().ConnectionOpened.connect([&](const auto& connection) { tail->Add(connection); });
    const LoopbackPeer client = Connect();
    WaitForConnection(mShell);
    const std::string line = std::string(4095, 'x') + "\n";
    for (std::size_t i = 0; i < MaxBacklog / line.size() + 6; ++i)
        tail->OnLogLine(line);
    mShell.Start();
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
    mShell.AddAction(
        "list",
        [&line] {
            for (int i = 0; i < 6000; ++i)
                Log(line);
        },
        "");
    const LoopbackPeer client = Tail();
    client.Send("list\nversion\n");
    for (int i = 0; i < 6000; ++i)
        ASSERT_EQ(client.ReceiveThrough("\n"), line + "\r\n") << i;
}

TEST_F(RemoteAuditorTest, AStalledTailIsDroppedAndTheOthersAreInformed)
{
    const LoopbackPeer stalled = Tail();
    const LoopbackPeer reading = Tail();
    // Far more than the kernel keeps for a client, in portions that the other one has read before the next comes.
    const std::string line(4000, 'x');
    std::string text;
    for (int portion = 0; portion < 1000 && text.find("bytes were not read\r\n") == std::string::npos; ++portion) {
        for (int i = 0; i < 16; ++i)
            Log(line);
        Log("end of portion");
        text = reading.ReceiveThrough("end of portion\r\n");
    }
    EXPECT_THAT(text, HasSubstr("CommandLine: client 127.0.0.1:"));
}

TEST_F(RemoteAuditorTest, TheShellOutlivesItsAuditor)
{
    LoopbackPeer client = Connect();
    WaitForConnection(mShell);
    Log("never delivered");
    Audit::SetInstance(nullptr);
    const LoopbackPeer late = Connect();
    mShell.Start();
    SkipGreeting(late);
    EXPECT_EQ(Ask(late, "tail true"), "false\n");
    client.Close();
    EXPECT_EQ(Ask(late, "version"), "1.0\n");
}

} // namespace
