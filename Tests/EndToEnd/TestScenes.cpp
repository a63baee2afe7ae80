// The real program in its unit: real interfaces, tools and sockets, the simulated link driver and FPGA, and peers over
// real cables. A command has its number on the wire; endpoint 3 of the FPGA is the Orb side, 1 and 2 are the links.

#include "Tests/EndToEnd/Fpga.scenes.h"
#include "Tests/EndToEnd/Links.scenes.h"
#include "Tests/EndToEnd/Network.scenes.h"
#include "Tests/EndToEnd/Process.scenes.h"
#include "Tests/EndToEnd/Slots.scenes.h"
#include "Tests/EndToEnd/Unit.h"
#include "Tests/EndToEnd/Watch.scenes.h"
#include "Tests/Support/Supervisor.h"
#include "Tests/Support/Transcript.h"

namespace {

struct Scenes : testing::TestWithParam<Scene>
{};

TEST_P(Scenes, Play)
{
    Unit().Play(GetParam().script);
}

TEST(Process, EndsInOrderAtEachLineOfItsStart)
{
    // Each neighbour answers, and there is one on each link.
    for (const std::string line : {"DebugConfig : ", "Starting OrbRouterKLVComms", "starting... Hid 0xc002",
                                   "Starting HubLinkManager", "Started HubLinkManager", "Starting DeviceManager",
                                   "Starting PatchController", "Run...........", "LinkManager::OnLocalHidChanged"}) {
        Unit().Play("start-orb\nstart-update\nstart-driver\ndriver plug 0 64 0\ndriver plug 1 64 0\nstart-module\n"
                    "log -> *" +
                    line + "*\nend -> exit code 0");
    }
}

#ifdef ORB_STACKWALK
TEST(Process, LeavesADumpThatNamesTheThreadThatCrashed)
{
    Unit unit;
    for (const auto& [choice, number] : {std::pair("head", "0"), {"tail", "N"}}) {
        unit.Play("run rm -rf /var/lib/ostrel /var/log/K2.log\nstart-alone\n"
                  "run kill -SEGV $(ls /proc/$(pidof OrbModuleSim)/task | " +
                  std::string(choice) +
                  " -n 1)\n"
                  "await-end -> killed by signal 11 | MINIDUMP=/var/lib/ostrel/crashdumps/OrbModuleSim/*.dmp\n"
                  "run " ORB_STACKWALK " /var/lib/ostrel/crashdumps/OrbModuleSim/*.dmp 2>/dev/null |"
                  " grep -o 'SIGSEGV\\|Thread .* (crashed)' | sed 's/[1-9][0-9]*/N/' -> SIGSEGV | Thread " +
                  number + " (crashed)");
    }
    unit.Play("run rm -r /var/lib/ostrel; touch /var/lib/ostrel\nstart-module\n"
              "await-end -> exit code 3 | OrbModule cannot start: *Not a directory: \"/var/lib/ostrel/crashdumps\"");
}
#endif

TEST(Process, EndsInOrderAndSystemdLearnsOfReadinessLifeAndStop)
{
    for (const std::string how :
         {"end", "run kill -INT $(pidof OrbModuleSim)\nawait-end",
          "run bash -c 'exec 3<>/dev/tcp/127.0.0.1/55555; echo quit >&3; cat <&3 >/dev/null'\nawait-end"}) {
        Supervisor supervisor;
        supervisor.AskForWatchdog(200);
        Unit unit;
        unit.Play("start-alone");
        for (const char* sign : {"READY=1", "WATCHDOG=1", "WATCHDOG=1"})
            EXPECT_EQ(supervisor.Receive(), sign);
        // One that cannot start is never ready.
        unit.Play("run OrbModuleSim >/dev/null 2>&1; echo $? -> 3\n" + how + " -> exit code 0");
        EXPECT_EQ(supervisor.ReceiveOtherThan("WATCHDOG=1"), "STOPPING=1");
        EXPECT_EQ(supervisor.Receive(0), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Links, Scenes, testing::ValuesIn(ScenesOf(LinksScenes)), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Network, Scenes, testing::ValuesIn(ScenesOf(NetworkScenes)), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Slots, Scenes, testing::ValuesIn(ScenesOf(SlotsScenes)), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Fpga, Scenes, testing::ValuesIn(ScenesOf(FpgaScenes)), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Watch, Scenes, testing::ValuesIn(ScenesOf(WatchScenes)), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Process, Scenes, testing::ValuesIn(ScenesOf(ProcessScenes)), NameOfScene);

} // namespace
