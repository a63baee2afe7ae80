#include "Audit/BoundedShell.h"
#include "Tests/Support/LoopbackPeer.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using std::chrono::milliseconds;

TEST(BoundedShell, GivesTheStatusOfTheCommand)
{
    const DescriptorCheck check;
    const auto silent = [] { FAIL() << "reported a command that was in time"; };
    EXPECT_EQ(RunShell("test $0 = sh", silent), 0);
    EXPECT_EQ(RunShell("exit 3", silent), 3 << 8);
    EXPECT_EQ(RunShell("kill -9 $$", silent), SIGKILL);
}

TEST(BoundedShell, NoDescriptorOfTheProcessReachesTheCommand)
{
    const int descriptor = ::open("/dev/null", O_RDONLY);
    EXPECT_EQ(RunShell("test -e /proc/self/fd/1 -a ! -e /proc/self/fd/" + std::to_string(descriptor), [] {}), 0);
    ::close(descriptor);
}

/// A thread that waits sleeps once. One that looks now and then sleeps many times, and one that always looks, never.
TEST(BoundedShell, TheEndIsWaitedForAndNotLookedFor)
{
    const auto effort = [] {
        rusage usage{};
        ::getrusage(RUSAGE_THREAD, &usage);
        return usage.ru_nvcsw + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 10000;
    };
    const auto before = effort();
    EXPECT_EQ(RunShell("sleep 0.3", [] {}), 0);
    EXPECT_LT(effort() - before, 10);
}

TEST(BoundedShell, OneThatHangsIsReportedOnceAndEndsWithAllThatItStarted)
{
    for (const auto& [command, status] :
         {std::pair("sleep 1000 | sleep 1000", SIGTERM), {"trap '' TERM; sleep 1000; sleep 1000", SIGKILL}}) {
        const std::string path = testing::TempDir() + "/BoundedShell." + std::to_string(getpid());
        // Whoever still runs keeps the lock of the file.
        const std::string line = "exec 9>" + path + "; flock -s 9; " + command;
        int reports = 0;
        EXPECT_EQ(RunShell(line, [&] { ++reports; },
                           {milliseconds(20), milliseconds(200), milliseconds(400), milliseconds(20000)}),
                  status)
            << command;
        EXPECT_EQ(reports, 1);
        EXPECT_EQ(RunShell("flock -w 10 " + path + " true", [] {}), 0) << command << ": something of it still runs";
        std::remove(path.c_str());
    }
}

TEST(BoundedShell, OneThatCannotBeKilledIsReapedLater)
{
    // It is not killed before it is left.
    const std::string pidFile = testing::TempDir() + "/BoundedShell.pid." + std::to_string(getpid());
    EXPECT_EQ(RunShell("echo $$ >" + pidFile + "; exec sleep 1000", [] {},
                       {milliseconds(1), milliseconds(100000), milliseconds(100000), milliseconds(300)}),
              SIGKILL);
    pid_t child = 0;
    std::ifstream(pidFile) >> child;
    ASSERT_GT(child, 0);
    ASSERT_EQ(RunShell("kill -9 " + std::to_string(child), [] {}), 0);
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(RunShell("true", [] {}), 0);
    EXPECT_EQ(::kill(child, 0), -1) << "it is still a zombie";
    std::remove(pidFile.c_str());
}
