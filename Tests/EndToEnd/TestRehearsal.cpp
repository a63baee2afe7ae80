#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <unistd.h>

using namespace stage;
using testing::EndsWith;
using testing::HasSubstr;

namespace {

/// A whole rehearsal may take this long, or a part of it on a loaded machine.
constexpr Milliseconds LongPatience = std::chrono::minutes(2);

/// The module that a rehearsal in progress has started.
pid_t ModuleOf(const ChildProcess& rehearsal)
{
    const std::string text = "It runs as process ";
    return std::stoi(rehearsal.Output().substr(rehearsal.Output().find(text) + text.size()));
}

using Withhold = std::function<void(const ChildProcess& rehearsal)>;

struct Case
{
    std::string step;
    Withhold withhold;
    std::string program = ProgramPath("OrbModuleSim");
};

void PrintTo(const Case& value, std::ostream* out)
{
    *out << value.step;
}

void Nothing(const ChildProcess&) {}

void NoAnswer(const ChildProcess& rehearsal)
{
    kill(ModuleOf(rehearsal), SIGSTOP);
}

void NoModule(const ChildProcess& rehearsal)
{
    kill(ModuleOf(rehearsal), SIGKILL);
}

void NoActivation(const ChildProcess&)
{
    ControlChannel(Module::ControlPath()).Ask("hold on");
}

void NoLinkDriver(const ChildProcess&)
{
    ControlChannel(LinkDriverPath).Ask("quit");
}

void NoIdentityInDriver(const ChildProcess&)
{
    std::ofstream("/sys/class/net/k2link1/k2hid") << "0\n";
}

/// Takes the far end of a cable down.
Withhold NoCable(const std::string& networkNamespace)
{
    return [=](const ChildProcess&) {
        ASSERT_EQ(std::system(("ip -n " + networkNamespace + " link set eth0 down").c_str()), 0);
    };
}

/// @param name kind and number of a peer in the order in which the rehearsal starts them; @param line what it is told.
Withhold Tell(const std::string& name, const std::string& line)
{
    return [=](const ChildProcess&) { ControlChannel("/tmp/Peer-" + name + ".control").Ask(line); };
}

// For each step, in order, what is taken away right before it.

std::vector<Case> RoutingCases()
{
    return {{"the module starts", Nothing, "/bin/false"},
            {"its heartbeat reaches master control", NoCable("unit")},
            {"an engineer opens the shell", NoAnswer},
            {"a command routes a sample through the FPGA", NoActivation},
            {"the audio is muted", NoAnswer},
            {"all routes are cleared", NoActivation},
            {"the routes are listed", NoAnswer}};
}

std::vector<Case> NetworkCases()
{
    return {{"the update service checks the module", NoCable("unit")},
            {"the Orb router tells the module who it is", NoAnswer},
            {"the link ports come up", NoIdentityInDriver},
            {"a fixed format box is plugged in", NoCable("pri")},
            {"a modular box takes its place", Tell("update-2", "answer 6000 never")},
            {"an AoIP box takes its place", Tell("orb-1", "stall on")},
            {"a module device takes its place", NoLinkDriver},
            {"a hub with a box behind it takes its place", Tell("update-2", "vanish")},
            {"a master router takes its place", NoCable("pri")}};
}

std::vector<Case> PatchCases()
{
    return {{"the master router patches to a device that is not there", NoAnswer},
            {"the device appears and the patch is made", Tell("orb-1", "stall on")},
            {"a microphone is patched to the Orb router", NoActivation},
            {"a second cable stands by", NoCable("sec")}};
}

std::vector<Case> CableCases()
{
    return {{"the primary cable is lost", NoActivation},
            {"the cable returns", NoCable("pri")},
            {"the Orb router patches to an output of the box", Tell("fixed-11", "stall on")},
            {"a patch goes to a box behind a hub", NoCable("pri")},
            {"the hub is pinged", Tell("hub-12", "answer 839 never")},
            {"the module stops", NoModule}};
}

/// Presses Enter for every step before this one, and leaves it to the caller to do so for this one.
void PlayUpTo(const std::string& step, ChildProcess& rehearsal)
{
    const std::string question = "press Enter for: ";
    std::size_t position = 0;
    for (;;) {
        const std::size_t begin = rehearsal.WaitForOutput(question, position, LongPatience);
        position = rehearsal.WaitForOutput("\n", begin, LongPatience);
        if (rehearsal.Output().substr(begin, position - 1 - begin) == step) return;
        rehearsal.Send("\n");
    }
}

TEST(Rehearsal, SeesEveryStep)
{
    ChildProcess rehearsal({{ProgramPath("Rehearsal")}});
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 0") << rehearsal.Errors();
    std::vector<Case> cases;
    for (const auto& scene : {RoutingCases(), NetworkCases(), PatchCases(), CableCases()})
        cases.insert(cases.end(), scene.begin(), scene.end());
    std::size_t number = 0;
    std::size_t position = 0;
    for (const Case& each : cases) {
        const std::string title =
            std::to_string(++number) + "/" + std::to_string(cases.size()) + " " + each.step + "\n    ";
        position = rehearsal.Output().find(title, position);
        ASSERT_NE(position, std::string::npos) << title << rehearsal.Output();
    }
    EXPECT_THAT(rehearsal.Output(), EndsWith("The rehearsal is complete: every step was seen.\n"));
    EXPECT_EQ(rehearsal.Errors(), "");
}

/// It sees, and does not narrate: whatever is taken away, the step that needs it fails.
class Withheld : public testing::TestWithParam<Case>
{
protected:
    // A line of an earlier run would be seen as one of this run.
    Withheld() { unlink(LogPath); }
    ~Withheld() override
    {
        for (const std::string name : {"unit", "pri", "sec"})
            EXPECT_EQ(std::system(("ip -n " + name + " link set eth0 up").c_str()), 0);
    }
};

TEST_P(Withheld, EndsTheRunAtTheStepThatNeedsIt)
{
    const Case& each = GetParam();
    ChildProcess rehearsal({{ProgramPath("Rehearsal"), "--step", "--patience", "6", "--module", each.program}});
    PlayUpTo(each.step, rehearsal);
    each.withhold(rehearsal);
    rehearsal.Send("\n");
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 1");
    EXPECT_THAT(rehearsal.Errors(), HasSubstr("step '" + each.step + "' was not seen: "));
}

std::string NameOf(const testing::TestParamInfo<Case>& info)
{
    std::string name = info.param.step;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Routing, Withheld, testing::ValuesIn(RoutingCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Network, Withheld, testing::ValuesIn(NetworkCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Patches, Withheld, testing::ValuesIn(PatchCases()), NameOf);
INSTANTIATE_TEST_SUITE_P(Cables, Withheld, testing::ValuesIn(CableCases()), NameOf);

} // namespace
