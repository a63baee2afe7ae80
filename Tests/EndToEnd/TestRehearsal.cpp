#include "Simulation/Rehearsal/ChildProcess.h"
#include "Simulation/Rehearsal/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>

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

/// For each step, what is taken away right before it.
std::vector<Case> Cases()
{
    const Withhold nothing = [](const ChildProcess&) {};
    const Withhold noAnswer = [](const ChildProcess& rehearsal) { kill(ModuleOf(rehearsal), SIGSTOP); };
    const Withhold noActivation = [](const ChildProcess&) { ControlChannel(Module::ControlPath()).Ask("hold on"); };
    const Withhold noCable = [](const ChildProcess&) { ASSERT_EQ(std::system("ip -n unit link set eth0 down"), 0); };
    const Withhold noModule = [](const ChildProcess& rehearsal) { kill(ModuleOf(rehearsal), SIGKILL); };
    return {{"the module starts", nothing, "/bin/false"},
            {"its heartbeat reaches master control", noCable},
            {"an engineer opens the shell", noAnswer},
            {"a command routes a sample through the FPGA", noActivation},
            {"the audio is muted", noAnswer},
            {"all routes are cleared", noActivation},
            {"the routes are listed", noAnswer},
            {"the module stops", noModule}};
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
    for (const Case& each : Cases()) {
        EXPECT_THAT(rehearsal.Output(), HasSubstr(" " + each.step + "\n    "));
    }
    EXPECT_THAT(rehearsal.Output(), EndsWith("The rehearsal is complete: every step was seen.\n"));
    EXPECT_EQ(rehearsal.Errors(), "");
}

/// It sees, and does not narrate: whatever is taken away, the step that needs it fails.
TEST(Rehearsal, EndsAtTheStepWhoseThingIsWithheld)
{
    for (const Case& each : Cases()) {
        SCOPED_TRACE(each.step);
        ChildProcess rehearsal({{ProgramPath("Rehearsal"), "--step", "--patience", "4", "--module", each.program}});
        PlayUpTo(each.step, rehearsal);
        each.withhold(rehearsal);
        rehearsal.Send("\n");
        EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 1");
        EXPECT_THAT(rehearsal.Errors(), HasSubstr("step '" + each.step + "' was not seen: "));
        EXPECT_EQ(std::system("ip -n unit link set eth0 up"), 0);
    }
}

} // namespace
