#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UdpSocket.h"
#include "Tests/Support/Supervisor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace stage;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr char DumpRoot[] = "/var/lib/ostrel";

bool Exists(const std::string& path)
{
    return access(path.c_str(), F_OK) == 0;
}

struct Refusal
{
    std::vector<std::string> arguments;
    int exitCode;
    std::string output;
    std::string errors;
};

TEST(Options, EndTheProcessBeforeItTouchesAnything)
{
    unlink(LogPath);
    std::filesystem::remove_all(DumpRoot);
    // As for a user who may not write there.
    std::ofstream(DumpRoot) << "in the way";
    const std::vector<Refusal> refusals{
        {{"--help"}, 1, "Available options", ""},
        {{"--version"}, 1, "Sorn Module 1.0.2452\n", ""},
        {{"--telnet", "10.0.0.1:0"}, 2, "", "--telnet"},
        {{"--nosuch"}, 2, "", "nosuch"},
    };
    for (const Refusal& refusal : refusals) {
        SCOPED_TRACE(testing::PrintToString(refusal.arguments));
        ChildProcess process(Module::MakeCommand({ProgramPath("OrbModuleSim"), refusal.arguments}));
        EXPECT_EQ(process.Wait().Text(), "exit code " + std::to_string(refusal.exitCode));
        EXPECT_THAT(process.Output(), StartsWith(refusal.output));
        EXPECT_THAT(process.Errors(), HasSubstr(refusal.errors));
        const std::string errors = process.Errors();
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), refusal.exitCode == 2 ? 1 : 0) << errors;
    }
    EXPECT_FALSE(Exists(LogPath));
    std::filesystem::remove(DumpRoot);
}

TEST(Descriptors, AsManyAsAreAllowedUpTo4096)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit low{256, std::max<rlim_t>(before.rlim_max, 4096)};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    Module module;
    setrlimit(RLIMIT_NOFILE, &before);
    rlimit limit{};
    ASSERT_EQ(prlimit(module.Process().Id(), RLIMIT_NOFILE, nullptr, &limit), 0);
    EXPECT_EQ(limit.rlim_cur, 4096u);
}

TEST(Options, ChooseTheShellEndpointAndTheLog)
{
    const std::string log = "/tmp/other.log";
    {
        Module module({ProgramPath("OrbModuleSim"), {"-t", "127.0.0.1", "-l", log, "--top", "5"}});
        EXPECT_THAT(ShellClient(2000).Greeting(), HasSubstr("Ostrel command shell: OrbModuleSim "));
        EXPECT_THROW(ShellClient(2000, ModuleAddress), std::exception);
        // The banner does not follow "top".
        LogFile(log).WaitForLine("Ostrel Orb Module OrbModuleSim(v.1.0.2452, Firmware build v.42) starting... "
                                 "Hid 0xc002\n");
    }
    Module module({ProgramPath("OrbModuleSim"), {"--telnet", ":7000"}});
    EXPECT_THAT(ShellClient(7000, ModuleAddress).Greeting(), HasSubstr("Ostrel command shell: "));
}

/// One line on standard error that names the thing, and exit code 3.
void ExpectStartupFailure(const std::string& name)
{
    ChildProcess process(Module::MakeCommand({}));
    EXPECT_EQ(process.Wait().Text(), "exit code 3");
    const std::string errors = process.Errors();
    EXPECT_THAT(errors, HasSubstr(name));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

TEST(StartupFailure, NoAddressForTheHeartbeat)
{
    ASSERT_EQ(std::system("ip address del 1.63.5.0/16 dev eth0"), 0);
    ExpectStartupFailure("1.63.5.0");
    LogFile().WaitForLine("1.63.5.0");
    ASSERT_EQ(std::system("ip address add 1.63.5.0/16 dev eth0"), 0);
}

TEST(StartupFailure, ShellPortTaken)
{
    FileDescriptor listener(Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(ShellPort);
    Checked(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint), "bind");
    Checked(listen(listener.Get(), 1), "listen");
    ExpectStartupFailure("55555");
}

TEST(StartupFailure, FabricPortTaken)
{
    UdpSocket taker({}, "0.0.0.0", 49156);
    ExpectStartupFailure("49156");
}

TEST(Heartbeat, ReachesMasterControl)
{
    Module module;
    UdpSocket masterControl(UnitNamespace, MasterControlAddress, HeartbeatPort);
    for (int i = 0; i < 3; ++i) {
        const Datagram heartbeat = masterControl.Receive();
        EXPECT_EQ(heartbeat.bytes, "\x96\xff\xff\xff\xff");
        EXPECT_EQ(heartbeat.address, "1.63.5.0");
        EXPECT_EQ(heartbeat.port, 49157);
    }
}

TEST(Systemd, IsToldOfTheRunOfLifeAndOfTheEnd)
{
    Supervisor supervisor;
    supervisor.AskForAnyWatchdog(200);
    Module module;
    EXPECT_EQ(supervisor.Receive(), "READY=1");
    EXPECT_EQ(supervisor.Receive(), "WATCHDOG=1");
    EXPECT_EQ(supervisor.Receive(), "WATCHDOG=1");
    EXPECT_EQ(module.Stop().Text(), "exit code 0");
    EXPECT_EQ(supervisor.ReceiveOtherThan("WATCHDOG=1"), "STOPPING=1");
    EXPECT_EQ(supervisor.Receive(0), "");
}

TEST(Systemd, IsNotToldThatAFailedStartIsReady)
{
    Supervisor supervisor;
    UdpSocket taker({}, "0.0.0.0", 49156);
    ExpectStartupFailure("49156");
    EXPECT_EQ(supervisor.Receive(0), "");
}

TEST(Ending, EveryWayToStopIsOrderly)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        Module module;
        module.Process().Signal(signal);
        EXPECT_EQ(module.Process().Wait().Text(), "exit code 0") << "signal " << signal;
        EXPECT_EQ(module.Process().Errors(), "");
    }
    Module module;
    ShellClient shell = module.OpenShell();
    shell.Type("quit");
    EXPECT_EQ(module.Process().Wait().Text(), "exit code 0");
    EXPECT_EQ(module.Process().Errors(), "");
}

} // namespace
