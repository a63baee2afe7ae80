#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/FSI/Audio/CommandLine/HelpLines.h"

#include <boost/algorithm/string/replace.hpp>

#include <map>
#include <optional>

namespace {

/// The clock manager on a simulated board, where "k0" is clock 1 and "bulk" 4.
class ClockBench
{
public:
    ClockBench()
    {
        mFsi = mRegistry.Register<audio::ExternalReferenceFsi>("extref", mBoard.Open("0004"));
        mManager = std::make_shared<audio::ExternalClockManager>(mService, mFsi);
        mManager->mClockLocked.connect([this](unsigned id) { mLines.push_back("locked " + std::to_string(id)); });
        mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
        mRegistry.Register<OrbModule::BulkAudioFsi>("bulk", 4, mBoard.Open("0012"));
        mNamed->GetRoot().AddNode(std::make_shared<ExtRefNode>(mManager, &mRegistry));
        mNameless->GetRoot().AddNode(std::make_shared<ExtRefNode>(mManager, nullptr));
    }

    /// Runs a command of the shell, after a "?" on a node without names, and gives the lines of the answer; or
    ///
    ///     measure ID VALUE, event N, servo 0|1           what the board does; "good" and "bad" are values
    ///     rate N, prioritise ID PRIORITY 0|1, run, die   calls of the manager, what it posted, and its end
    ///     enables, pll, selected                         registers of the board, and what is selected
    ///     row N, help                                    a line of the status; how the help of each command begins
    Lines Play(std::string event)
    {
        boost::replace_all(event, "good", "1150000");
        boost::replace_all(event, "bad", "1200000");
        std::istringstream words(event);
        std::string verb, argument;
        std::uint32_t first = 0, second = 0;
        bool flag = false;
        words >> verb >> std::ws;
        std::getline(words, argument);
        std::istringstream(argument) >> first >> second >> flag;
        const auto say = [this](std::uint32_t number) { mLines.push_back(std::to_string(number)); };
        const auto priority = static_cast<std::int32_t>(second);
        const std::map<std::string, std::function<void()>> verbs{
            {"measure", [&] { mBoard.Measure(first, second); }},
            {"event", [&] { mBoard.RaiseEvent("0004", static_cast<int>(first)); }},
            {"servo", [&] { mBoard.SetServoLock(first != 0); }},
            {"rate", [&] { mManager->SetRateToCheck(first); }},
            {"prioritise", [&] { mManager->PrioritiseClockSource(audio::ExternalClockSource(first), priority, flag); }},
            {"run", [&] { mService.restart(), mService.poll(); }},
            {"die", [&] { mNamed.reset(), mNameless.reset(), mManager.reset(); }},
            {"enables", [&] { say(mBoard.GetRegister("0004", 0x30)); }},
            {"pll", [&] { say(mBoard.GetPllSource()); }},
            {"row", [&] { Run("status", ""), mLines = {mLines.at(first)}; }},
            {"help", [&] { mLines = BeginningsOfHelp(*mNamed); }},
            {"selected", [&] { say(mManager->GetSelected()); }},
        };
        const auto known = verbs.find(verb);
        known != verbs.end() ? known->second() : Run(verb, argument);
        mFsi->DispatchInterrupts();
        return std::exchange(mLines, {});
    }

private:
    void Run(const std::string& command, const std::string& argument)
    {
        const bool isNamed = command[0] != '?';
        const auto action = (isNamed ? mNamed : mNameless)->Find("clock/" + command.substr(isNamed ? 0 : 1));
        std::istringstream answer(action ? action->Run(argument, nullptr) : "no such command");
        for (std::string line; std::getline(answer, line);)
            mLines.push_back(line);
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::ExternalReferenceFsi> mFsi;
    std::shared_ptr<audio::ExternalClockManager> mManager;
    std::optional<cmd::NodeManager> mNamed{std::in_place}, mNameless{std::in_place};
    Lines mLines;
};

const Scene Scenes[] = {
    {"MeasurementsAreJudgedByTheRangeOfTheRateFamilyAndEitherEventIsALoss", R"(
measure 3 1; measure 3 1128999; selected; measure 3 1129000; selected; event 0; selected -> 0; 3; 0
measure 3 1; measure 3 1175001; selected; measure 3 1175000; selected; event 1; selected -> 0; 3; 0
rate 0
measure 3 1; measure 3 1228875; selected; measure 3 1228876; selected; event 0; selected -> 0; 3; 0
measure 3 1; measure 3 1278877; selected; measure 3 1278876; selected; event 1; selected -> 0; 3; 0
rate 1; measure 9 good; selected -> 0
)"},
    {"LockIsGivenUpWithTheThirdMeasurement", R"(
measure 1 good; measure 2 good; selected -> 1
measure 1 good; measure 1 good; selected; measure 1 good; selected -> 1; 2
measure 1 good; selected -> 1
measure 2 bad; measure 1 good; measure 1 good; prioritise 1 3 1; run; event 3; measure 1 good; selected -> 0
)"},
    {"TheServoLockCountsMoreThanTheValueOnceAndTheValueAfterThat", R"(
measure 4 good; servo 1; measure 4 bad -> locked 4
measure 4 good; selected; measure 4 bad; selected; measure 0 good -> 4; 0
)"},
    {"TheSettleEventIsHeardOnceForEachSelection", R"(
measure 4 good; enables; event 3; enables; measure 1 good; enables -> 31; 23; 31
)"},
    {"OneThatIsNotEnabledIsNotUsed", R"(
measure 1 good; event 0; prioritise 1 3 0; run; measure 1 good; selected -> 0
)"},
    {"WorkThatOutlivesTheManagerDoesNothing", R"(
measure 4 good; use_internal true; die; run; measure 4 good; event 0; pll -> 4
)"},
    {"NamesAreThoseOfTheRegistryAndWithoutItThereAreNone", R"(
sources; ?sources; measure 5 good; active -> bulk k0 ; Unknown
measure 1 good; active -> k0
row 0; row 2; row 3; row 7; row 10 -> Clock Ids: bulk (4) k0 (1) Internal (0);  Id Enabled
    Measure    State;   1    true 1150000   stable locking [selected];   5    true
    1150000   stable;   0    true       0 unstable
servo 1; measure 1 good; row 3 -> locked 1;   1    true 1150000   stable locked [selected]
event 0; row 3 ->   1    true       0 unstable
enable extref; disable extref -> Error: Unknown clock 'extref'; Error: Unknown clock 'extref'
set_pll_source extref; ?set_pll_source bulk -> Error: Unknown clock 'extref'; Error: Unknown clock 'bulk'
?enable bulk; ?disable bulk -> Error: Unknown clock 'bulk'; Error: Unknown clock 'bulk'
help -> clock/active Show the active sync source; clock/auto_pll_select Enable the PLL selection algori;
    clock/disable Don't consider SRC in clock sel; clock/enable Consider SRC in clock selection;
    clock/enable_phase_freeze Whether the phase adjustment lo; clock/set_measurement_range Set the number of 'ticks'
    allow; clock/set_pll_source Select the external PLL source; clock/sources List all potential clock source;
    clock/status Display current PLL clock statu; clock/use_internal Use the internal clock, irrespe
)"},
};

class ClockTest : public testing::TestWithParam<Scene>
{};

} // namespace

TEST_P(ClockTest, DoesAsWritten)
{
    ClockBench clock;
    ExpectTranscript(GetParam().script, [&](const std::string& event) { return clock.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, ClockTest, testing::ValuesIn(Scenes), NameOfScene);
