#include "Simulation/Stage/UdpSocket.h"
#include "Tests/EndToEnd/Network.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Tests/Support/Supervisor.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <sys/resource.h>

using namespace stage;
using testing::HasSubstr;

namespace {

TEST(Options, EndTheProcessBeforeItTouchesAnything)
{
    constexpr char dumpRoot[] = "/var/lib/ostrel";
    unlink(LogPath);
    std::filesystem::remove_all(dumpRoot);
    // As for a user who may not write there.
    std::ofstream(dumpRoot) << "in the way";
    for (const auto& [option, exitCode] : {std::pair("--version", 1), {"--nosuch", 2}}) {
        ChildProcess process(Module::MakeCommand({ProgramPath("OrbModuleSim"), {option}}));
        EXPECT_EQ(process.Wait().Text(), "exit code " + std::to_string(exitCode));
        EXPECT_EQ(process.Output(), exitCode == 1 ? "Sorn Module 1.0.2452\n" : "");
        EXPECT_THAT(process.Errors(), HasSubstr(exitCode == 2 ? "nosuch" : ""));
    }
    EXPECT_NE(access(LogPath, F_OK), 0);
    std::filesystem::remove(dumpRoot);
}

TEST(Options, ChooseTheShellEndpointAndTheLogAndAsManyDescriptorsAsAllowedUpTo4096AreTaken)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit low{256, std::max<rlim_t>(before.rlim_max, 4096)};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    const std::string log = "/tmp/other.log";
    Module module({ProgramPath("OrbModuleSim"), {"-t", "127.0.0.1:7000", "-l", log, "--top", "5"}});
    setrlimit(RLIMIT_NOFILE, &before);
    rlimit limit{};
    ASSERT_EQ(prlimit(module.Process().Id(), RLIMIT_NOFILE, nullptr, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, 4096u);
    EXPECT_THAT(ShellClient(7000).Greeting(), HasSubstr("Ostrel command shell: OrbModuleSim "));
    EXPECT_THROW(ShellClient(7000, ModuleAddress), std::exception);
    // The banner does not follow "top".
    LogFile(log).WaitForLine(
        "Ostrel Orb Module OrbModuleSim(v.1.0.2452, Firmware build v.42) starting... Hid 0xc002\n");
}

TEST(StartupFailure, IsOneLineWithTheCauseAndNoReadinessForSystemd)
{
    Supervisor supervisor;
    const auto expectFailure = [&](const std::string& name) {
        ChildProcess process(Module::MakeCommand({}));
        EXPECT_EQ(process.Wait().Text(), "exit code 3");
        EXPECT_THAT(process.Errors(), testing::MatchesRegex("[^\n]*" + name + "[^\n]*\n"));
        EXPECT_EQ(supervisor.Receive(0), "");
    };
    ASSERT_EQ(std::system("ip address del 1.63.5.0/16 dev eth0"), 0);
    expectFailure("1\\.63\\.5\\.0");
    LogFile().WaitForLine("1.63.5.0");
    ASSERT_EQ(std::system("ip address add 1.63.5.0/16 dev eth0"), 0);
    {
        const LoopbackListener shell(ShellPort);
        expectFailure("55555");
    }
    const UdpSocket taker({}, "0.0.0.0", 49156);
    expectFailure("49156");
}

TEST(Ending, EveryWayToStopIsOrderlyAndSystemdLearnsOfReadinessLifeAndStop)
{
    for (const int signal : {SIGTERM, SIGINT, 0}) {
        Supervisor supervisor;
        supervisor.AskForWatchdog(200);
        Module module;
        for (const char* sign : {"READY=1", "WATCHDOG=1", "WATCHDOG=1"})
            EXPECT_EQ(supervisor.Receive(), sign);
        signal != 0 ? module.Process().Signal(signal) : module.OpenShell().Type("quit");
        EXPECT_EQ(module.Process().Wait().Text(), "exit code 0") << "signal " << signal;
        EXPECT_EQ(module.Process().Errors(), "");
        EXPECT_EQ(supervisor.ReceiveOtherThan("WATCHDOG=1"), "STOPPING=1");
        EXPECT_EQ(supervisor.Receive(0), "");
    }
}

} // namespace
