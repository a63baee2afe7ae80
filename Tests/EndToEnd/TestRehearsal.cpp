#include "Tests/EndToEnd/Network.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

using namespace stage;

namespace {

/// A whole rehearsal may take this long, or a part of it on a loaded machine.
constexpr Milliseconds LongPatience = std::chrono::minutes(2);

/// A step, and what is taken away right before it. The words are those of TakeAway.
using Case = std::pair<std::string, std::string>;
const std::vector<Case> Cases{{"the module starts", "no program"},
                              {"its heartbeat reaches master control", "cable unit"},
                              {"an engineer opens the shell", "stop"},
                              {"a command routes a sample through the FPGA", "fpga hold on"},
                              {"the audio is muted", "stop"},
                              {"all routes are cleared", "fpga hold on"},
                              {"the routes are listed", "stop"},
                              {"the update service checks the module", "cable unit"},
                              {"the Orb router tells the module its identity", "stop"},
                              {"the link ports come up", "identity"},
                              {"a fixed format box is plugged in", "cable pri"},
                              {"a modular box takes its place", "update-2 answer 6000 never"},
                              {"an AoIP box takes its place", "orb-1 stall on"},
                              {"a module device takes its place", "driver quit"},
                              {"a hub with a box behind it takes its place", "update-2 vanish"},
                              {"a master router takes its place", "cable pri"},
                              {"the master router patches to an absent device", "stop"},
                              {"the device appears and the patch is made", "orb-1 stall on"},
                              {"a microphone is patched to the Orb router", "fpga hold on"},
                              {"a second cable is on standby", "cable sec"},
                              {"the primary cable is lost", "fpga hold on"},
                              {"the cable returns", "cable pri"},
                              {"the Orb router patches to an output of the box", "fixed-11 stall on"},
                              {"a patch goes to a box behind a hub", "cable pri"},
                              {"the hub is pinged", "hub-12 answer 839 never"},
                              {"the module stops", "kill"}};

/// @param what "stop" or "kill" the module, a "cable" by its network namespace, what the "fpga", the "driver" or a
///             peer gets, a peer by its kind and number in the order in which the rehearsal starts them.
void TakeAway(const std::string& what, const ChildProcess& rehearsal)
{
    const std::string who = what.substr(0, what.find(' '));
    const std::string rest = what.substr(std::min(what.size(), who.size() + 1));
    if (who == "stop" || who == "kill") {
        const std::string text = "It runs as process ";
        const std::string output = rehearsal.Output();
        kill(std::stoi(output.substr(output.find(text) + text.size())), who == "stop" ? SIGSTOP : SIGKILL);
    } else if (who == "cable") {
        ASSERT_EQ(std::system(("ip -n " + rest + " link set eth0 down").c_str()), 0);
    } else if (who == "identity") {
        std::ofstream("/sys/class/net/k2link1/k2hid") << "0\n";
    } else if (who != "no") {
        const std::string peer = "/tmp/Peer-" + who + ".control";
        ControlChannel(who == "fpga" ? Module::ControlPath() : who == "driver" ? LinkDriverPath : peer).Ask(rest);
    }
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
    std::size_t number = 0;
    for (const auto& [step, what] : Cases)
        EXPECT_THAT(rehearsal.Output(), testing::HasSubstr(std::to_string(++number) + "/26 " + step + "\n    "));
    EXPECT_THAT(rehearsal.Output(), testing::EndsWith("The rehearsal is complete: every step was seen.\n"));
    EXPECT_EQ(rehearsal.Errors(), "");
}

/// It sees, and does not narrate: whatever is taken away, the step that needs it fails.
struct Withheld : testing::TestWithParam<Case>
{
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
    const auto& [step, what] = GetParam();
    const std::string program = what == "no program" ? "/bin/false" : ProgramPath("OrbModuleSim");
    ChildProcess rehearsal({{ProgramPath("Rehearsal"), "--step", "--patience", "6", "--module", program}});
    PlayUpTo(step, rehearsal);
    TakeAway(what, rehearsal);
    rehearsal.Send("\n");
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 1");
    EXPECT_THAT(rehearsal.Errors(), testing::HasSubstr("step '" + step + "' was not seen: "));
}

INSTANTIATE_TEST_SUITE_P(Rehearsal, Withheld, testing::ValuesIn(Cases), [](const auto& each) {
    const std::string number = std::to_string(each.index + 1);
    std::string name = each.param.first;
    std::replace(name.begin(), name.end(), ' ', '_');
    return (number.size() < 2 ? "Step0" : "Step") + number + "_" + name;
});

} // namespace
