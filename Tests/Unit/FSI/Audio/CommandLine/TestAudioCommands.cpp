#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/AdmaNode.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Tests/Support/Transcript.h"
#include "Utilities/CommandLine/NodeManager.h"

#include <boost/algorithm/string/replace.hpp>

#include <map>
#include <optional>

namespace {

/// The audio managers and their commands on a simulated board. The endpoints are "bulk" at address 3 with clock 4, "k0"
/// at 1 with clock 1, and "k1" at 2 with clock 2. The test's thread is the main thread.
class AudioBench
{
public:
    AudioBench()
    {
        mAdmaFsi = mRegistry.Register<audio::AudioDmaFsi>("adma", mBoard.Open("0003"));
        mAdma = std::make_shared<audio::AudioDmaManager>(mAdmaFsi, &mRegistry);
        mClockFsi = mRegistry.Register<audio::ExternalReferenceFsi>("extref", mBoard.Open("0004"));
        mClock = std::make_shared<audio::ExternalClockManager>(mService, mClockFsi);
        mClock->mClockLocked.connect([this](unsigned id) { Say("locked " + std::to_string(id)); });
        mBulk = mRegistry.Register<OrbModule::BulkAudioFsi>("bulk", 4, mBoard.Open("0012"));
        mK0 = mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
        mK1 = mRegistry.Register<audio::K2FsiLink>("k1", 2, 2, 512);
        mNamed->GetRoot().AddNode(std::make_shared<AdmaNode>(mAdma));
        mNamed->GetRoot().AddNode(std::make_shared<ExtRefNode>(mClock, &mRegistry));
        mNameless->GetRoot().AddNode(std::make_shared<ExtRefNode>(mClock, nullptr));
    }

    /// Runs a command of the shell, without its "adma/" or "clock/", after a "?" on a node without names, and gives the
    /// lines of the answer; or
    ///
    ///     register, die NODE        the endpoints are registered; a manager goes
    ///     hold 0|1, complete        whether the syncs of the board wait, and the end of one that does
    ///     lose, interrupt, take     an interrupt is lost, raised by hand, dispatched
    ///     begin                     a sync without the manager
    ///     requested N, settle N     waits for the request of the N-th sync, or for its end, and dispatches that
    ///     record, recorded          the accesses to the board from there on, equal ones counted
    ///     probe SINK SAMPLE         the source that is heard there
    ///     control, requests, table INDEX, lines RANGE    a register, a count, an entry, how long the answer is
    ///     measure ID VALUE, event N, servo 0|1           what the board says of clocks; "good" and "bad" are values
    ///     rate N, prioritise ID PRIORITY 0|1, run        calls of the clock manager, and what it posted
    ///     enables, pll, selected, row N                  registers of the clocks, the choice, a line of the status
    ///     help                      how the help of each command begins
    Lines Play(std::string event)
    {
        boost::replace_all(event, "good", "1150000");
        boost::replace_all(event, "bad", "1200000");
        std::istringstream text(event);
        std::string verb, rest;
        text >> verb >> std::ws;
        std::getline(text, rest);
        std::uint32_t first = 0, second = 0;
        bool flag = false;
        std::istringstream(rest) >> first >> second >> flag;
        const auto priority = static_cast<std::int32_t>(second);
        const auto endpoints = [this] {
            return std::vector<std::shared_ptr<audio::AudioDmaEndpoint>>{mBulk, mK0, mK1};
        };
        const auto check = [&](bool done) { done ? void() : Say("nothing came"); };
        const std::map<std::string, std::function<void()>> verbs{
            {"register", [&] { mAdma->RegisterEndpoints(endpoints()); }},
            {"die", [&] { mNamed.reset(), mNameless.reset(), rest == "adma" ? mAdma.reset() : mClock.reset(); }},
            {"hold", [&] { mBoard.SetHold(first != 0); }},
            {"complete", [&] { check(mBoard.Complete()); }},
            {"lose", [&] { mBoard.LoseEndOfSync(1); }},
            {"interrupt", [&] { mBoard.RaiseEvent("0003", 0); }},
            {"take", [&] { mAdmaFsi->DispatchInterrupts(); }},
            {"begin", [&] { mAdmaFsi->StartSync(); }},
            {"requested", [&] { check(mBoard.WaitForSyncRequests(first, Patience)); }},
            {"settle", [&] { check(mBoard.WaitForSyncs(first, Patience)), mAdmaFsi->DispatchInterrupts(); }},
            {"record", [&] { mBoard.StartRecord(); }},
            {"recorded", [&] { SayRecord(); }},
            {"probe", [&] { Say(Probe(first, second)); }},
            {"control", [&] { Say(mBoard.GetRegister("0003", 0x38)); }},
            {"requests", [&] { Say(mBoard.GetSyncRequests()); }},
            {"table", [&] { Say(mBoard.GetActiveTable()[first]); }},
            {"lines", [&] { Say(Run("transactions", rest).size()); }},
            {"measure", [&] { mBoard.Measure(first, second); }},
            {"event", [&] { mBoard.RaiseEvent("0004", static_cast<int>(first)); }},
            {"servo", [&] { mBoard.SetServoLock(first != 0); }},
            {"rate", [&] { mClock->SetRateToCheck(first); }},
            {"prioritise", [&] { mClock->PrioritiseClockSource(audio::ExternalClockSource(first), priority, flag); }},
            {"run", [&] { mService.restart(), mService.poll(); }},
            {"enables", [&] { Say(mBoard.GetRegister("0004", 0x30)); }},
            {"pll", [&] { Say(mBoard.GetPllSource()); }},
            {"selected", [&] { Say(mClock->GetSelected()); }},
            {"row", [&] { Say(Run("clock/status", "").at(first)); }},
            {"help", [&] { SayHelp(); }},
        };
        const auto known = verbs.find(verb);
        known != verbs.end() ? known->second() : Say(Run(verb, rest));
        mClockFsi->DispatchInterrupts();
        return std::exchange(mLines, {});
    }

private:
    static constexpr std::chrono::seconds Patience{20};

    template <class Value>
    void Say(const Value& value)
    {
        std::ostringstream line;
        line << std::hex << value;
        mLines.push_back(line.str());
    }
    void Say(const Lines& lines) { mLines.insert(mLines.end(), lines.begin(), lines.end()); }
    Lines Run(const std::string& command, const std::string& arguments) const
    {
        const bool isNamed = command[0] != '?';
        const cmd::NodeManager& tree = isNamed ? *mNamed : *mNameless;
        auto action = tree.Find(command);
        for (const char* node : {"adma/", "clock/"})
            if (!action) action = tree.Find(node + command.substr(isNamed ? 0 : 1));
        std::ostringstream mapped;
        mapped << std::hex << reinterpret_cast<std::uintptr_t>(mBulk->GetMappedAddress());
        std::istringstream text(action ? action->Run(arguments, nullptr) : "no such command");
        Lines lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(boost::replace_all_copy(line, mapped.str(), "MAPPED"));
        return lines;
    }
    /// "3:5", or "-" for silence.
    std::string Probe(std::uint32_t endpoint, std::uint32_t sample) const
    {
        const auto source = mBoard.Probe(endpoint, sample);
        return source ? std::to_string(source->endpoint) + ":" + std::to_string(source->sample) : "-";
    }
    /// "OFFSET=VALUE", or "OFFSET*COUNT" for several to one offset.
    void SayRecord()
    {
        const auto record = mBoard.GetRecord();
        for (auto begin = record.begin(), end = begin; begin != record.end(); begin = end) {
            end = std::find_if(begin, record.end(), [&](const auto& access) { return access.offset != begin->offset; });
            std::ostringstream line;
            line << std::hex << begin->offset;
            end - begin == 1 ? line << '=' << begin->value : line << '*' << std::dec << end - begin;
            Say(line.str());
        }
    }
    void SayHelp()
    {
        std::stringstream text;
        mNamed->PrintHelp(text);
        for (std::string name, help; text >> name >> std::ws && std::getline(text, help);)
            Say(name + ' ' + help.substr(0, 31));
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mAdmaFsi;
    std::shared_ptr<audio::AudioDmaManager> mAdma;
    std::shared_ptr<audio::ExternalReferenceFsi> mClockFsi;
    std::shared_ptr<audio::ExternalClockManager> mClock;
    std::shared_ptr<OrbModule::BulkAudioFsi> mBulk;
    std::shared_ptr<audio::K2FsiLink> mK0, mK1;
    std::optional<cmd::NodeManager> mNamed{std::in_place}, mNameless{std::in_place};
    Lines mLines;
};

const Scene Scenes[] = {
    {"TheTableIsWrittenInOneRunAfterOneAddress", R"(
register; settle 1; record; sync; settle 2
recorded -> 24=c0000; 20*2048; 38=20; 34=1; 38=0
)"},
    {"RequestsDuringASyncFoldIntoOneWithTheLatestTable", R"(
register; settle 1; hold 1; patch2 bulk 1 k0 0; requested 2
syncing -> true
patch2 bulk 2 k0 0; patch2 bulk 3 k0 0; complete
probe 1 0; transactions 512 512 -> 3:1; 512: 0x00601200
take; requested 3; complete
probe 1 0 -> 3:3
hold 0; take; sync; settle 4
requests -> 4
)"},
    {"WithoutTheEndOfSyncNothingMoreBecomesActive", R"(
register; settle 1; lose; sync; settle 2; patch2 bulk 1 k0 0; take; sync_ack
requests -> 2
interrupt; take; settle 3
probe 1 0 -> 3:1
)"},
    {"ASyncThatAnEarlierRunBeganIsWaitedFor", R"(
hold 1; begin; register
requests -> 1
complete; take; requested 2; hold 0; settle 2
table 0 -> 600
)"},
    {"MuteBitsAndSyncRequestDoNotDisturbEachOtherAndTheManagerMayDieInTheMiddle", R"(
register; settle 1
mute_on_pll_loss false; control -> 8
mute true; hold 1; sync; requested 2; control -> 38
mute false; mute_on_pll_loss true; control -> 20
requests -> 2
die adma; complete; take; control -> 20
)"},
    {"RoutesCanBeSetShownAndCleared", R"(
register; settle 1
patch2 bulk 0-3 k0 8-11; settle 2; patch2 bulk 0,2 k1 510-511; settle 3 ->
probe 1 11; probe 2 511 -> 3:3; 3:2
status; requests -> Sources          Sinks; 0:    0       >> k0:   0-7    ; bulk: 0-3     >> k0:   8-11   ;
    0:    0       >> k0:   12-511 ; ; 0:    0       >> k1:   0-509  ; bulk: 0       >> k1:   510    ;
    bulk: 2       >> k1:   511    ; ; 0:    0       >> bulk: 0-511  ; 3
transactions 521 520 -> 520: 0x00600208; 521: 0x00601209
clear_from bulk; settle 4; probe 1 11; probe 2 511 -> -; -
patch k1 bulk; settle 5; probe 3 0; probe 3 511 -> 2:0; 2:511
patch k0 k1; settle 6; clear_to bulk; settle 7; probe 3 5; probe 2 5 -> -; 1:5
clear_all; settle 8; probe 2 5 -> -
)"},
    {"WrongInputIsReportedAndChangesNothing", R"(
register; settle 1; patch2 bulk 1 k0 1; settle 2
patch k9 nosink -> Error: Unknown or invalid source 'k9'
patch k0 k9 -> Error: Unknown or invalid sink 'k9'
patch2 k9 x nosink y -> Error: Unknown or invalid source 'k9'
patch2 k0 x k9 y -> Error: Unknown or invalid sink 'k9'
patch2 k0 3,600 k1 x -> Error: '3,600' is not valid for 'k0'
patch2 k0 0-3 k1 5-3 -> Error: '5-3' is not valid for 'k1'
patch2 k0 0,1,1,2 k1 0-3 -> Error: Source and sink sizes must match: 3 sources and 4 sinks requested
clear_from K0 -> Error: Unknown or invalid source 'K0'
clear_to adma -> Error: Unknown or invalid sink 'adma'
mute maybe -> error: arg 1: cannot convert 'maybe' to type 'bool'
transactions 1 -> error: 'transactions' expects 2 argument(s), 1 provided
requests -> 2
sync; settle 3; probe 1 1 -> 3:1
)"},
    {"EndpointsAndHelpAreListedAndTheTableIsShownWithinItsBounds", R"(
register; settle 1
links ->   bulk: Endpoint: 3,     transactions 0-511, FSI: 0012, mapped addr: 0xMAPPED;     k0: Endpoint:
    1,  transactions 512-1023, [Kernel FSI];     k1: Endpoint: 2, transactions 1024-1535, [Kernel FSI]
lines 2040 5000; lines 2047 2047; lines 2048 2048; lines 4000 5000; lines 0 4294967295 -> 8; 1; 0; 0; 800
transactions 1 1 -> 1: 0x00000601
help -> adma/clear_all Clear all active audio routes; adma/clear_from Clear audio routed from SRC;
    adma/clear_to Clear audio routed to SNK; adma/links List all ADMA endpoints (valid ;
    adma/mute Force, or clear, software audio; adma/mute_on_pll_loss Whether the loss of PLL lock sh;
    adma/patch Patch audio routes between SRC ; adma/patch2 Patch audio routes between SRCs;
    adma/reset_fsi Reset the FSI ADMA table; adma/status Show the current (or pending if;
    adma/sync Re-send the current transaction; adma/sync_ack Simulate receipt of the 'end of;
    adma/syncing Whether a sync operation is in ; adma/transactions Show the requested portion of t;
    clock/active Show the active sync source; clock/auto_pll_select Enable the PLL selection algori;
    clock/disable Don't consider SRC in clock sel; clock/enable Consider SRC in clock selection;
    clock/enable_phase_freeze Whether the phase adjustment lo; clock/set_measurement_range Set the number of 'ticks'
    allow; clock/set_pll_source Select the external PLL source; clock/sources List all potential clock source;
    clock/status Display current PLL clock statu; clock/use_internal Use the internal clock, irrespe
)"},
    {"ResetAndAcknowledgeGoPastTheManager", R"(
register; settle 1; patch2 bulk 1 k0 1; settle 2; reset_fsi; settle 3
table 0; table 513; table 2047 -> 0; 0; 0
hold 1; sync; requested 4
syncing; control -> true; 20
sync_ack; control; syncing -> 0; true
complete; syncing -> false
)"},
    {"MeasurementsAreJudgedByTheRangeOfTheRateFamilyAndEitherEventIsALoss", R"(
measure 3 1; measure 3 1128999; selected; measure 3 1129000; selected; event 0; selected -> 0; 3; 0
measure 3 1; measure 3 1175001; selected; measure 3 1175000; selected; event 1; selected -> 0; 3; 0
rate 0
measure 3 1; measure 3 1228875; selected; measure 3 1228876; selected; event 0; selected -> 0; 3; 0
measure 3 1; measure 3 1278877; selected; measure 3 1278876; selected; event 1; selected -> 0; 3; 0
rate 1; measure 9 good; selected -> 0
)"},
    {"ClockLockIsGivenUpWithTheThirdMeasurement", R"(
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
measure 4 good; enables; event 3; enables; measure 1 good; enables -> 1f; 17; 1f
)"},
    {"OneThatIsNotEnabledIsNotUsed", R"(
measure 1 good; event 0; prioritise 1 3 0; run; measure 1 good; selected -> 0
)"},
    {"WorkThatOutlivesTheManagerDoesNothing", R"(
measure 4 good; use_internal true; die clock; run; measure 4 good; event 0; pll -> 4
)"},
    {"NamesOfClocksAreThoseOfTheRegistryAndWithoutItThereAreNone", R"(
sources; ?sources; measure 5 good; active -> bulk k0 k1 ; Unknown
measure 1 good; active -> k0
row 0; row 2; row 3; row 7; row 10 -> Clock Ids: bulk (4) k0 (1) k1 (2) Internal (0);  Id Enabled
    Measure    State;   1    true 1150000   stable locking [selected];   5    true
    1150000   stable;   0    true       0 unstable
servo 1; measure 1 good; row 3 -> locked 1;   1    true 1150000   stable locked [selected]
event 0; row 3 ->   1    true       0 unstable
enable extref; disable extref -> Error: Unknown clock 'extref'; Error: Unknown clock 'extref'
set_pll_source extref; ?set_pll_source bulk -> Error: Unknown clock 'extref'; Error: Unknown clock 'bulk'
?enable bulk; ?disable bulk -> Error: Unknown clock 'bulk'; Error: Unknown clock 'bulk'
)"},
};

class AudioCommands : public testing::TestWithParam<Scene>
{};

} // namespace

TEST_P(AudioCommands, DoAsWritten)
{
    AudioBench bench;
    ExpectTranscript(GetParam().script, [&](const std::string& event) { return bench.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, AudioCommands, testing::ValuesIn(Scenes), NameOfScene);
