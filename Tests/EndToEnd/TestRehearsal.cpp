#include "Tests/EndToEnd/Unit.h"

#include <gmock/gmock.h>

using namespace stage;

namespace {

/// A whole rehearsal may take this long, or a part of it on a loaded machine.
constexpr Milliseconds LongPatience = std::chrono::minutes(2);

constexpr char Stop[] = "run kill -STOP $(pidof OrbModuleSim)";
constexpr char Primary[] = "run ip -n pri link set eth0 down";

/// A step, and the order that takes away what it needs, right before it. The rehearsal numbers its peers.
using Case = std::pair<std::string, std::string>;
const std::vector<Case> Cases{{"the module starts", ""},
                              {"its heartbeat reaches master control", "run ip -n unit link set eth0 down"},
                              {"an engineer opens the shell", Stop},
                              {"a command routes a sample through the FPGA", "fpga hold on"},
                              {"the audio is muted", Stop},
                              {"all routes are cleared", "fpga hold on"},
                              {"the routes are listed", Stop},
                              {"the update service checks the module", "run ip -n unit link set eth0 down"},
                              {"the Orb router tells the module its identity", Stop},
                              {"the link ports come up", "run echo 0 >/sys/class/net/k2link1/k2hid"},
                              {"a fixed format box is plugged in", Primary},
                              {"a modular box takes its place", "peer update-2 answer 6000 never"},
                              {"an AoIP box takes its place", "peer orb-1 stall on"},
                              {"a module device takes its place", "driver quit"},
                              {"a hub with a box behind it takes its place", "peer update-2 vanish"},
                              {"a master router takes its place", Primary},
                              {"the master router patches to an absent device", Stop},
                              {"the device appears and the patch is made", "peer orb-1 stall on"},
                              {"a microphone is patched to the Orb router", "fpga hold on"},
                              {"a second cable is on standby", "run ip -n sec link set eth0 down"},
                              {"the primary cable is lost", "fpga hold on"},
                              {"the cable returns", Primary},
                              {"the Orb router patches to an output of the box", "peer fixed-11 stall on"},
                              {"a patch goes to a box behind a hub", Primary},
                              {"the hub is pinged", "peer hub-12 answer 839 never"},
                              {"the module stops", "run kill -KILL $(pidof OrbModuleSim)"}};

TEST(Rehearsal, SeesEveryStep)
{
    ChildProcess rehearsal({{ProgramPath("Rehearsal")}});
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 0") << rehearsal.Errors();
    std::size_t number = 0;
    for (const auto& [step, order] : Cases)
        EXPECT_THAT(rehearsal.Output(), testing::HasSubstr(std::to_string(++number) + "/26 " + step + "\n    "));
    EXPECT_THAT(rehearsal.Output(), testing::EndsWith("The rehearsal is complete: every step was seen.\n"));
    EXPECT_EQ(rehearsal.Errors(), "");
}

/// It sees, and does not narrate: whatever is taken away, the step that needs it fails.
struct Withheld : testing::TestWithParam<Case>
{};

TEST_P(Withheld, EndsTheRunAtTheStepThatNeedsIt)
{
    const auto& [step, order] = GetParam();
    Unit unit;
    unit.Play("run for name in unit pri sec; do ip -n $name link set eth0 up; done");
    const std::string program = order.empty() ? "/bin/false" : ProgramPath("OrbModuleSim");
    ChildProcess rehearsal({{ProgramPath("Rehearsal"), "--step", "--patience", "6", "--module", program}});
    for (auto before = Cases.begin(); before->first != step; ++before)
        rehearsal.Send("\n");
    rehearsal.WaitForOutput("press Enter for: " + step + "\n", 0, LongPatience);
    unit.Play(order);
    rehearsal.Send("\n");
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 1");
    EXPECT_THAT(rehearsal.Errors(), testing::HasSubstr("step '" + step + "' was not seen: "));
}

INSTANTIATE_TEST_SUITE_P(Rehearsal, Withheld, testing::ValuesIn(Cases), [](const auto& each) {
    const std::string number = std::to_string(101 + each.index).substr(1);
    return "Step" + number + "_" + std::regex_replace(each.param.first, std::regex(" "), "_");
});

} // namespace
