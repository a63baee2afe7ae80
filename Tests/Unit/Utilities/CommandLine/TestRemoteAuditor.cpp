#include "Tests/Unit/Utilities/CommandLine/ShellClient.h"
#include "Utilities/CommandLine/LogTail.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/filesystem.hpp>

#include <thread>
#include <vector>

namespace {

using testing::EndsWith;
using testing::HasSubstr;

class RemoteAuditorTest : public testing::Test
{
protected:
    RemoteAuditorTest()
    {
        // The lines of these tests are wanted at the clients, not on the console.
        testing::internal::CaptureStdout();
        boost::filesystem::create_directories(mDirectory);
        mShell.AddAction(
            "version", [] { return "1.0"; }, "");
        mAuditor = new cmd::RemoteAuditor(mShell, (mDirectory / "K2.log").string());
        Audit::SetInstance(mAuditor);
    }
    ~RemoteAuditorTest() override
    {
        mShell.Stop();
        Audit::SetInstance(nullptr);
        boost::filesystem::remove_all(mDirectory);
        testing::internal::GetCapturedStdout();
    }
    /// A client of a shell that shows everybody the log.
    ShellClient Tail()
    {
        mAuditor->SetTailByDefault(true);
        if (!std::exchange(mStarted, true)) mShell.Start();
        ShellClient client(Endpoint());
        client.SkipGreeting();
        return client;
    }
    static void Log(const std::string& text) { Audit::Instance()->Write("%s\r\n", text.c_str()); }
    boost::asio::ip::tcp::endpoint Endpoint() { return mShell.GetServer().GetEndpoint(); }

    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, AnyLoopbackPort(), ""};
    cmd::RemoteAuditor* mAuditor = nullptr;
    bool mStarted = false;

private:
    const boost::filesystem::path mDirectory =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("orb-tail-%%%%-%%%%-%%%%");
};

TEST_F(RemoteAuditorTest, ManyThreadsLogWhileClientsComeAndGo)
{
    ShellClient steady = Tail();
    std::atomic<bool> stop{false};
    constexpr int Threads = 3;
    std::vector<std::thread> threads;
    threads.reserve(Threads);
    for (int thread = 0; thread < Threads; ++thread) {
        threads.emplace_back([thread, &stop] {
            for (int i = 0; i < 2000 && !stop; ++i)
                Log("thread " + std::to_string(thread) + " line");
        });
    }
    for (int i = 0; i < 20; ++i) {
        ShellClient passing = Tail();
        if (i % 2 != 0) continue;
        passing.Send("tail false\nversion\n");
        passing.ReadUntil("true\n1.0\n");
    }
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    Log("end");
    std::string text = steady.ReadUntil("end\r\n");
    // Only whole lines, whichever threads they came from.
    for (std::size_t begin = 0, end = 0; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
        const std::string line = text.substr(begin, end - begin);
        EXPECT_TRUE(line.find("thread ") == std::string::npos || line.size() == 13) << line;
    }
}

TEST_F(RemoteAuditorTest, WhileTheServiceIsStuckTheBacklogIsBounded)
{
    constexpr std::size_t MaxBacklog = 1024 * 1024;
    const auto tail = std::make_shared<cmd::LogTail>(mService, MaxBacklog);
    mShell.GetServer().ConnectionOpened.connect([&](const auto& connection) { tail->Add(connection); });
    ShellClient client(Endpoint());
    WaitForConnection(mService, mShell);
    const std::string line = std::string(4095, 'x') + "\n";
    for (std::size_t i = 0; i < MaxBacklog / line.size() + 6; ++i)
        tail->OnLogLine(line);
    mShell.Start();
    client.SkipGreeting();
    const std::string text = client.ReadUntil("log lines were not shown ***\r\n");
    EXPECT_THAT(text, EndsWith("x\n*** 6 log lines were not shown ***\r\n"));
    EXPECT_EQ(text.find('*'), MaxBacklog);
    tail->OnLogLine("after\r\n");
    EXPECT_EQ(client.ReadUntil("\r\n"), "after\r\n");
}

TEST_F(RemoteAuditorTest, AListingLongerThanAnyBufferReachesItsClientsWhole)
{
    constexpr std::size_t Lines = 6000;
    const std::string line(1022, 'x');
    mShell.AddAction(
        "list",
        [&line] {
            for (std::size_t i = 0; i < Lines; ++i)
                Log(line);
        },
        "");
    ShellClient client = Tail();
    client.Send("list\nversion\n");
    for (std::size_t i = 0; i < Lines && !HasFailure(); ++i)
        ASSERT_EQ(client.ReadUntil("\n").size(), line.size() + 2);
}

TEST_F(RemoteAuditorTest, AStalledTailIsDroppedAndTheOthersAreTold)
{
    const ShellClient stalled = Tail();
    ShellClient reading = Tail();
    // Far more than the kernel keeps for a client, in portions that the other one has read before the next comes.
    const std::string line(4000, 'x');
    std::string text;
    for (int portion = 0; portion < 1000 && text.find("bytes were not read\r\n") == std::string::npos; ++portion) {
        for (int i = 0; i < 16; ++i)
            Log(line);
        Log("end of portion");
        text = reading.ReadUntil("end of portion\r\n");
    }
    EXPECT_THAT(text, HasSubstr("CommandLine: client 127.0.0.1:"));
}

TEST_F(RemoteAuditorTest, TheShellOutlivesItsAuditor)
{
    mAuditor->SetTailByDefault(true);
    ShellClient client(Endpoint());
    WaitForConnection(mService, mShell);
    Log("never delivered");
    Audit::SetInstance(nullptr);
    ShellClient late(Endpoint());
    mShell.Start();
    late.SkipGreeting();
    late.Send("tail true\n");
    EXPECT_EQ(late.ReadUntil("\n"), "false\n");
    client.Close();
    late.Send("version\n");
    EXPECT_EQ(late.ReadUntil("\n"), "1.0\n");
}

} // namespace
