#include "MiscSource/SystemdNotifier.h"

#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/Supervisor.h"

#include <future>
#include <thread>

namespace {

constexpr int WatchdogMs = 100;

class SystemdNotifierTest : public testing::Test
{
protected:
    LogRecorder mLog;
    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
};

TEST_F(SystemdNotifierTest, ReportsTheStartTheEndAndSignsOfLifeThatAStuckMainServiceDoesNotGive)
{
    Supervisor supervisor;
    supervisor.AskForWatchdog(WatchdogMs, getpid());
    auto notifier = std::make_unique<SystemdNotifier>(mService);
    std::thread main([this] { mService.run(); });
    EXPECT_EQ(supervisor.Receive(), "READY=1");
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(supervisor.Receive(), "WATCHDOG=1");
    // Four of them, and none ahead of its time.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4 * WatchdogMs / 2 - 20));

    std::promise<void> isStuck;
    std::promise<void> release;
    mService.post([&] {
        isStuck.set_value();
        release.get_future().wait();
    });
    isStuck.get_future().wait();
    while (supervisor.Receive(0) == "WATCHDOG=1") {
    }
    EXPECT_EQ(supervisor.Receive(3 * WatchdogMs), "");

    release.set_value();
    EXPECT_EQ(supervisor.Receive(), "WATCHDOG=1");
    mService.stop();
    main.join();
    notifier.reset();
    EXPECT_EQ(supervisor.ReceiveOtherThan("WATCHDOG=1"), "STOPPING=1");
    EXPECT_TRUE(mLog.Lines().empty());
}

TEST_F(SystemdNotifierTest, NobodyIsFedWhoDidNotAskForIt)
{
    Supervisor supervisor;
    for (const bool isForAnother : {false, true}) {
        if (isForAnother) supervisor.AskForWatchdog(WatchdogMs, getppid());
        {
            const SystemdNotifier notifier(mService);
            EXPECT_EQ(supervisor.Receive(), "READY=1");
            EXPECT_EQ(mService.run_one_for(std::chrono::milliseconds(WatchdogMs)), 0u);
        }
        EXPECT_EQ(supervisor.Receive(), "STOPPING=1");
    }
}

TEST_F(SystemdNotifierTest, WithoutSystemdNothingHappensAndOneThatDoesNotListenIsALineInTheLog)
{
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ((SystemdNotifier(mService), mService.poll()), 0u);
    EXPECT_TRUE(mLog.Lines().empty());
    Supervisor supervisor;
    setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
    SystemdNotifier notifier(mService);
    EXPECT_TRUE(mLog.Has("SystemdNotifier: READY=1 not delivered, No such file or directory\r\n"));
}

} // namespace
