#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/AdmaNode.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/CommandLine/SampleRange.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/ControlCommands.h"
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
        mEndpoints = {mBulk, mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512),
                      mRegistry.Register<audio::K2FsiLink>("k1", 2, 2, 512)};
        mTree->GetRoot().AddNode(std::make_shared<AdmaNode>(mAdma));
        mTree->GetRoot().AddNode(std::make_shared<ExtRefNode>(mClock, &mRegistry));
    }

    /// Runs a command of the shell, with or without its "adma/" or "clock/", or a control command of the board, in
    /// which "good" and "bad" are measured values. Gives the answer and what was written to the block of the clocks. Or
    ///
    ///     register, die NODE        the endpoints are registered; a manager goes
    ///     lose, take                an interrupt of the ADMA block is lost; dispatched
    ///     begin                     a sync without the manager
    ///     requested N, settle N     waits for the request of the N-th sync, or for its end, and dispatches that
    ///     synced N                  what the N-th sync writes
    ///     requests                  how many syncs there were
    ///     rate N, family 0|1, prioritise ID PRIORITY 0|1, run     calls, and what the clock manager posted
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
        mBoard.StartRecord();
        const auto priority = static_cast<std::int32_t>(second);
        const auto check = [&](bool done) { done ? void() : Say("nothing came"); };
        const auto settle = [&] { check(mBoard.WaitForSyncs(first, Patience)), mAdmaFsi->DispatchInterrupts(); };
        const std::map<std::string, std::function<void()>> verbs{
            {"register", [&] { mAdma->RegisterEndpoints(mEndpoints); }},
            {"die", [&] { mTree.reset(), rest == "adma" ? mAdma.reset() : mClock.reset(); }},
            {"lose", [&] { mBoard.LoseEndOfSync(1); }},
            {"take", [&] { mAdmaFsi->DispatchInterrupts(); }},
            {"begin", [&] { mAdmaFsi->StartSync(); }},
            {"requested", [&] { check(mBoard.WaitForSyncRequests(first, Patience)); }},
            {"settle", settle},
            {"synced", [&] { mAdma->Synchronise(), settle(), SayWrites("0003"); }},
            {"requests", [&] { Say(std::to_string(mBoard.GetSyncRequests())); }},
            {"rate", [&] { mClock->SetRateToCheck(first); }},
            {"family", [&] { mClockFsi->SetFrequencyFamily44k1(first != 0); }},
            {"prioritise", [&] { mClock->PrioritiseClockSource(audio::ExternalClockSource(first), priority, flag); }},
            {"run", [&] { mService.restart(), mService.poll(); }},
        };
        const auto known = verbs.find(verb);
        known != verbs.end() ? known->second() : Run(event, verb, rest);
        mClockFsi->DispatchInterrupts();
        SayWrites("0004");
        return std::exchange(mLines, {});
    }

private:
    static constexpr std::chrono::seconds Patience{20};

    void Say(const std::string& line) { mLines.push_back(line); }
    void Run(const std::string& event, const std::string& verb, const std::string& arguments)
    {
        std::shared_ptr<cmd::action::Action> action;
        for (const char* node : {"", "adma/", "clock/"})
            if (mTree && !action) action = mTree->Find(node + verb);
        std::ostringstream mapped;
        mapped << std::hex << reinterpret_cast<std::uintptr_t>(mBulk->GetMappedAddress());
        std::istringstream answer(action ? action->Run(arguments, nullptr)
                                         : simulation::RunControlCommand(mBoard, event).text);
        for (std::string line; std::getline(answer, line);)
            Say(boost::replace_all_copy(line, mapped.str(), "MAPPED"));
    }
    /// "OFFSET=VALUE", for indirect words "ADDRESS=VALUE" or "ADDRESS*COUNT". Acknowledged interrupts are left out.
    void SayWrites(const std::string& block)
    {
        std::uint32_t address = 0, words = 0;
        for (const auto& access : mBoard.GetRecord()) {
            std::ostringstream line;
            if (access.block != block || access.offset == 0x34) continue;
            if (access.offset == 0x24) {
                address = access.value;
                words = 0;
                continue;
            }
            if (access.offset == 0x20 && ++words > 1) {
                line << std::hex << address << '*' << std::dec << words;
                mLines.pop_back();
            } else {
                line << std::hex << (access.offset == 0x20 ? address : access.offset) << '=' << access.value;
            }
            Say(line.str());
        }
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mAdmaFsi;
    std::shared_ptr<audio::AudioDmaManager> mAdma;
    std::shared_ptr<audio::ExternalReferenceFsi> mClockFsi;
    std::shared_ptr<audio::ExternalClockManager> mClock;
    std::shared_ptr<OrbModule::BulkAudioFsi> mBulk;
    std::vector<std::shared_ptr<audio::AudioDmaEndpoint>> mEndpoints;
    std::optional<cmd::NodeManager> mTree{std::in_place};
    Lines mLines;
};

const Scene Scenes[] = {
    {"RequestsDuringASyncFoldIntoOneWithTheLatestTableAndWaitForItsEnd", R"(
register; settle 1; hold on; patch2 bulk 1 k0 0; requested 2
syncing -> true
patch2 bulk 2 k0 0; patch2 bulk 3 k0 0; complete
probe 1 0; transactions 512 512 -> 3 1; 512: 0x00601200
take; requested 3; complete
probe 1 0 -> 3 3
hold off; take; lose; sync; settle 4; patch2 bulk 4 k0 0; take; sync_ack
requests -> 4
event 0003 0; take; settle 5
probe 1 0 -> 3 4
)"},
    {"ASyncThatAnEarlierRunBeganIsWaitedFor", R"(
hold on; begin; register
requests -> 1
complete; take; requested 2; hold off; settle 2
syncs -> 2
)"},
    {"MuteBitsAndSyncRequestDoNotDisturbEachOtherAndTheManagerMayDieInTheMiddle", R"(
register; settle 1; patch2 bulk 1 k0 1; settle 2; reset_fsi; settle 3
table ->
mute_on_pll_loss false; reg 0003 38 -> 0x00000008
mute true; hold on; sync; requested 4; reg 0003 38; syncing -> 0x00000038; true
mute false; mute_on_pll_loss true; reg 0003 38 -> 0x00000020
sync_ack; reg 0003 38; syncing -> 0x00000000; true
complete; syncing; probe 1 1 -> false; silence
take; sync; requested 5; die adma; complete; take; reg 0003 38; requests -> 0x00000020; 5
)"},
    {"RoutesCanBeSetShownAndCleared", R"(
status -> Sources      Sinks
register; settle 1; synced 2 -> c0000*2048; 38=20; 38=0
links ->   bulk: Endpoint: 3,     transactions 0-511, FSI: 0012, mapped addr: 0xMAPPED;     k0: Endpoint:
    1,  transactions 512-1023, [Kernel FSI];     k1: Endpoint: 2, transactions 1024-1535, [Kernel FSI]
patch2 bulk 0-3 k0 8-11; settle 3; patch2 bulk 0,2 k1 510-511; settle 4 ->
probe 1 11; probe 2 511 -> 3 3; 3 2
patch2 k0 511 k1 5; settle 5; patch2 k1 0 k1 6; settle 6; patch2 k1 0 k1 7; settle 7
status; requests -> Sources          Sinks; 0:    0       >> k0:   0-7    ; bulk: 0-3     >> k0:   8-11   ;
    0:    0       >> k0:   12-511 ; ; 0:    0       >> k1:   0-4    ; k0:   511     >> k1:   5      ;
    k1:   0       >> k1:   6      ; k1:   0       >> k1:   7      ;
    0:    0       >> k1:   8-509  ; bulk: 0       >> k1:   510    ;
    bulk: 2       >> k1:   511    ; ; 0:    0       >> bulk: 0-511  ; 7
transactions 521 520 -> 520: 0x00600208; 521: 0x00601209
transactions 2047 5000; transactions 4294967295 2048 -> 2047: 0x00000000
clear_from bulk; settle 8; probe 1 11; probe 2 511 -> silence; silence
patch k1 bulk; settle 9; probe 3 0; probe 3 511 -> 2 0; 2 511
patch k0 k1; settle 10; clear_to bulk; settle 11; probe 3 5; probe 2 5 -> silence; 1 5
clear_all; settle 12; probe 2 5 -> silence
)"},
    {"WrongInputIsReportedAndChangesNothing", R"(
register; settle 1; patch2 bulk 1 k0 1; settle 2
patch k9 nosink -> Error: Unknown or invalid source 'k9'
patch k0 k9 -> Error: Unknown or invalid sink 'k9'
patch2 k9 x nosink y -> Error: Unknown or invalid source 'k9'
patch2 k0 3,600 k1 x -> Error: '3,600' is not valid for 'k0'
patch2 k0 0-3 k1 5-3 -> Error: '5-3' is not valid for 'k1'
patch2 k0 0,1,1,2 k1 0-3 -> Error: Source and sink sizes must match: 3 sources and 4 sinks requested
clear_from K0 -> Error: Unknown or invalid source 'K0'
clear_to adma -> Error: Unknown or invalid sink 'adma'
enable extref; disable k9 -> Error: Unknown clock 'extref'; Error: Unknown clock 'k9'
set_pll_source k9; run -> Error: Unknown clock 'k9'
mute maybe -> error: arg 1: cannot convert 'maybe' to type 'bool'
transactions 1 -> error: 'transactions' expects 2 argument(s), 1 provided
requests -> 2
sync; settle 3; probe 1 1 -> 3 1
)"},
    {"MeasurementsAreJudgedByTheRangeOfTheRateFamilyAndEitherEventIsALoss", R"(
measure 3 1128999 ->
measure 3 1129000; event 0004 0 -> 30018=3; 30=1f; 30018=0
measure 3 1175001 ->
measure 3 1175000; event 0004 1 -> 30018=3; 30=1f; 30018=0
rate 0; measure 3 1228875 ->
measure 3 1228876; event 0004 0 -> 30018=3; 30=1f; 30018=0
measure 3 1278877 ->
measure 3 1278876; event 0004 1 -> 30018=3; 30=1f; 30018=0
rate 1; measure 8 good; measure 255 good ->
measure 7 good -> 30018=7; 30=1f
)"},
    {"ClockLockIsGivenUpWithTheThirdMeasurementAndCountsMoreThanTheValueOnce", R"(
measure 1 good; measure 2 good; measure 1 good; measure 1 good -> 30018=1; 30=1f
measure 1 good -> 30018=2; 30=1f
measure 1 good -> 30018=1; 30=1f
measure 2 bad; measure 1 good; measure 1 good; prioritise 1 3 1; run; event 0004 3; measure 1 good -> 30=17; 30018=0
measure 4 good; lock on; measure 4 bad -> 30018=4; 30=1f; locked 4
measure 4 good ->
measure 4 bad; measure 0 good -> 30018=0
)"},
    {"TheSettleEventIsHeardOnceForEachSelectionAndSelectsAnew", R"(
measure 4 good; event 0004 3; measure 1 good -> 30018=4; 30=1f; 30=17; 30018=1; 30=1f
measure 1 bad; measure 2 bad ->
event 0004 3 -> 30=17; 30018=4; 30=1f
use_internal true; die clock; run; measure 4 good; event 0004 0 ->
)"},
    {"TheUserEnablesAndForcesClocks", R"(
measure 1 good; disable k0; run -> 30018=1; 30=1f; 30018=0
measure 1 bad; measure 1 good ->
enable k0; run -> 30018=1; 30=1f
prioritise 1 3 0; run -> 30018=0
measure 2 good; prioritise 1 9 1; run -> 30018=2; 30=1f; 30018=1; 30=1f
use_internal true; run; active -> 30018=0; Internal
measure 4 good; event 0004 0 ->
use_internal false; run; active -> 30018=1; 30=1f; k0
set_pll_source k1; run; active -> 30018=0; 30018=2; Internal
auto_pll_select; run -> 30018=1; 30=1f
family 1; enable_phase_freeze true; family 0; enable_phase_freeze false -> 38=8; 38=18; 38=10; 38=0
set_measurement_range 7 4097 -> 30010=7; 30014=1001
)"},
    {"ClocksAreListedInTheOrderOfPreference", R"(
sources; measure 5 good; active; use_internal true; run -> bulk k0 k1 ; 30018=5; 30=1f; Unknown; 30018=0
prioritise 7 -1 1; prioritise 4 0 1; prioritise 1 0 0; prioritise 2 5 1; measure 3 good; run ->
auto_pll_select; run; measure 2 1175000; lock on; measure 2 good -> 30018=3; 30=1f; 30018=2; 30=1f; locked 2
measure 1 7; clock/status -> Clock Ids: bulk (4) k0 (1) k1 (2) Internal (0); ;  Id Enabled
    Measure    State;   7    true       0 unstable;   1   false       7 unstable;   4    true       0
    unstable;   2    true 1150000   stable locked [selected];   3    true 1150000   stable;   5    true
    1150000   stable locking;   6    true       0 unstable;   0    true       0 unstable
event 0004 0 -> 30018=3; 30=1f
)"},
};

class AudioCommands : public testing::TestWithParam<Scene>
{};

TEST(SampleRange, TextsAndTheirSamples)
{
    const audio::AudioDmaEndpoint endpoint(1, 512, audio::AudioDmaEndpoint::Direction::SourceAndSink);
    // What has no samples is wrong.
    std::istringstream rows("0=0, 511=511, 3-3=3, 20,21,30-33,90=20,21,30,31,32,33,90, 0,1,1,2=0,1,2, 1,2,1=1,2, "
                            "1-3,2-5=1,2,3,4,5, 5-3,7=7, 700-600,7=7, 007=7, 99999999999-99999999998,8=8, = "
                            "5-3= 5,3= 3,600= 512= 510-512= 600,1= ,= 1,= 1,,2= -1= 1-= 1-2-3= +1= 0x1= 4294967296= "
                            "18446744073709551616= 0-4294967295= 0-99999999999999999999999999= 600-700,7= ,1= 1:=");
    for (std::string row; rows >> row;) {
        const std::string text = row.substr(0, row.find('='));
        std::string samples;
        for (const audio::AudioDmaTransaction transaction : audio::ParseSampleRange(text, endpoint))
            samples += std::to_string(transaction - audio::MakeTransaction(1, 0)) + ",";
        EXPECT_EQ(text + "=" + samples, row);
    }
    EXPECT_TRUE(audio::ParseSampleRange("1 ,2", endpoint).empty());
    EXPECT_TRUE(audio::ParseSampleRange("3-4", {1, 4, audio::AudioDmaEndpoint::Direction::SinkOnly}).empty());
}

} // namespace

TEST_P(AudioCommands, DoAsWritten)
{
    AudioBench bench;
    ExpectTranscript(GetParam().script, [&](const std::string& event) { return bench.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, AudioCommands, testing::ValuesIn(Scenes), NameOfScene);
