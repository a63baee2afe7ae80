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

const std::vector<std::string> Steps{"the module starts",           "its heartbeat reaches master control",
                                     "an engineer opens the shell", "a command routes a sample through the FPGA",
                                     "the audio is muted",          "all routes are cleared",
                                     "the routes are listed",       "the module stops"};

/// The module that a rehearsal in progress has started.
pid_t ModuleOf(const ChildProcess& rehearsal)
{
    const std::string text = "It runs as process ";
    return std::stoi(rehearsal.Output().substr(rehearsal.Output().find(text) + text.size()));
}

TEST(Rehearsal, SeesEveryStep)
{
    ChildProcess rehearsal({{ProgramPath("Rehearsal")}});
    EXPECT_EQ(rehearsal.Wait(std::chrono::minutes(1)).Text(), "exit code 0") << rehearsal.Errors();
    for (std::size_t i = 0; i < Steps.size(); ++i) {
        EXPECT_THAT(rehearsal.Output(), HasSubstr(std::to_string(i + 1) + "/8 " + Steps[i] + "\n    "));
    }
    EXPECT_THAT(rehearsal.Output(), EndsWith("The rehearsal is complete: every step was seen.\n"));
    EXPECT_EQ(rehearsal.Errors(), "");
}

/// It sees, and does not narrate: whatever is taken away, the step that needs it fails.
TEST(Rehearsal, EndsAtTheStepWhoseThingIsWithheld)
{
    using Withhold = std::function<void(const ChildProcess& rehearsal)>;
    const Withhold nothing = [](const ChildProcess&) {};
    const Withhold noAnswer = [](const ChildProcess& rehearsal) { kill(ModuleOf(rehearsal), SIGSTOP); };
    const Withhold noActivation = [](const ChildProcess&) { ControlChannel(Module::ControlPath()).Ask("hold on"); };
    const Withhold noCable = [](const ChildProcess&) { ASSERT_EQ(std::system("ip -n unit link set eth0 down"), 0); };
    const Withhold noModule = [](const ChildProcess& rehearsal) { kill(ModuleOf(rehearsal), SIGKILL); };
    struct Case
    {
        std::string program;
        Withhold withhold;
    };
    const std::string module = ProgramPath("OrbModuleSim");
    const std::vector<Case> cases{{"/bin/false", nothing}, {module, noCable},  {module, noAnswer},
                                  {module, noActivation},  {module, noAnswer}, {module, noActivation},
                                  {module, noAnswer},      {module, noModule}};
    ASSERT_EQ(cases.size(), Steps.size());

    for (std::size_t failing = 0; failing < Steps.size(); ++failing) {
        SCOPED_TRACE(Steps[failing]);
        ChildProcess rehearsal(
            {{ProgramPath("Rehearsal"), "--step", "--patience", "4", "--module", cases[failing].program}});
        for (std::size_t i = 0; i <= failing; ++i) {
            rehearsal.WaitForOutput("press Enter for: " + Steps[i] + "\n");
            if (i == failing) cases[failing].withhold(rehearsal);
            rehearsal.Send("\n");
        }
        EXPECT_EQ(rehearsal.Wait().Text(), "exit code 1");
        EXPECT_THAT(rehearsal.Errors(), HasSubstr("step '" + Steps[failing] + "' was not seen: "));
        EXPECT_EQ(std::system("ip -n unit link set eth0 up"), 0);
    }
}

} // namespace
