#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/AdmaNode.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/FSI/Audio/CommandLine/HelpLines.h"

#include <boost/algorithm/string/replace.hpp>

#include <optional>

namespace {

/// The manager with the endpoints of the module on a simulated board: "bulk" at address 3, "k0" at 1, "k1" at 2. The
/// test's thread is the main thread.
class Adma
{
public:
    Adma()
    {
        mFsi = mRegistry.Register<audio::AudioDmaFsi>("adma", mBoard.Open("0003"));
        mManager = std::make_shared<audio::AudioDmaManager>(mFsi, &mRegistry);
        mBulk = mRegistry.Register<OrbModule::BulkAudioFsi>("bulk", 4, mBoard.Open("0012"));
        mK0 = mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
        mK1 = mRegistry.Register<audio::K2FsiLink>("k1", 2, 2, 512);
        mTree->GetRoot().AddNode(std::make_shared<AdmaNode>(mManager));
    }

    /// Runs a command of the shell, without its "adma/", and gives the lines of the answer; or
    ///
    ///     register, die             the endpoints are registered; the manager goes
    ///     hold 0|1, complete        whether the syncs of the board wait, and the end of one that does
    ///     lose, interrupt, take     an interrupt is lost, raised by hand, dispatched
    ///     begin                     a sync without the manager
    ///     requested N, settle N     waits for the request of the N-th sync, or for its end, and dispatches that
    ///     record, recorded          the accesses to the board from there on, equal ones counted
    ///     probe SINK SAMPLE         the source that is heard there
    ///     control, requests, table INDEX, lines RANGE    a register, a count, an entry, how long the answer is
    ///     help                      how the help of each command begins
    Lines Play(const std::string& event)
    {
        std::istringstream text(event);
        std::string verb, rest;
        text >> verb >> std::ws;
        std::getline(text, rest);
        std::istringstream words(rest);
        std::uint32_t first = 0, second = 0;
        words >> first >> second;
        Lines said;
        const auto say = [&](const auto& value) {
            std::ostringstream line;
            line << std::hex << value;
            said.push_back(line.str());
        };
        const auto check = [&](bool done) { done ? void() : say("nothing came"); };
        const std::map<std::string, std::function<void()>> verbs{
            {"register",
             [&] {
                 mManager->RegisterEndpoints({mBulk, mK0, mK1});
             }},
            {"die", [&] { mTree.reset(), mManager.reset(); }},
            {"hold", [&] { mBoard.SetHold(first != 0); }},
            {"complete", [&] { check(mBoard.Complete()); }},
            {"lose", [&] { mBoard.LoseEndOfSync(1); }},
            {"interrupt", [&] { mBoard.RaiseEvent("0003", 0); }},
            {"take", [&] { mFsi->DispatchInterrupts(); }},
            {"begin", [&] { mFsi->StartSync(); }},
            {"requested", [&] { check(mBoard.WaitForSyncRequests(first, std::chrono::seconds(20))); }},
            {"settle",
             [&] { check(mBoard.WaitForSyncs(first, std::chrono::seconds(20))), mFsi->DispatchInterrupts(); }},
            {"record", [&] { mBoard.StartRecord(); }},
            {"recorded", [&] { said = Recorded(); }},
            {"probe", [&] { say(Probe(first, second)); }},
            {"control", [&] { say(mBoard.GetRegister("0003", 0x38)); }},
            {"requests", [&] { say(mBoard.GetSyncRequests()); }},
            {"table", [&] { say(mBoard.GetActiveTable()[first]); }},
            {"help", [&] { said = BeginningsOfHelp(*mTree); }},
            {"lines", [&] { say(Run("transactions", rest).size()); }},
        };
        const auto known = verbs.find(verb);
        if (known == verbs.end()) return Run(verb, rest);
        known->second();
        return said;
    }

private:
    Lines Run(const std::string& command, const std::string& arguments) const
    {
        const auto action = mTree->Find("adma/" + command);
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
    Lines Recorded() const
    {
        const auto record = mBoard.GetRecord();
        Lines lines;
        for (auto begin = record.begin(), end = begin; begin != record.end(); begin = end) {
            end = std::find_if(begin, record.end(), [&](const auto& access) { return access.offset != begin->offset; });
            std::ostringstream line;
            line << std::hex << begin->offset;
            end - begin == 1 ? line << '=' << begin->value : line << '*' << std::dec << end - begin;
            lines.push_back(line.str());
        }
        return lines;
    }

    simulation::SimulatedFpga mBoard;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mFsi;
    std::shared_ptr<audio::AudioDmaManager> mManager;
    std::shared_ptr<OrbModule::BulkAudioFsi> mBulk;
    std::shared_ptr<audio::K2FsiLink> mK0, mK1;
    std::optional<cmd::NodeManager> mTree{std::in_place};
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
die; complete; take; control -> 20
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
    {"EndpointsAreListedAndTheTableIsShownWithinItsBounds", R"(
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
    adma/syncing Whether a sync operation is in ; adma/transactions Show the requested portion of t
)"},
    {"ResetAndAcknowledgeGoPastTheManager", R"(
register; settle 1; patch2 bulk 1 k0 1; settle 2; reset_fsi; settle 3
table 0; table 513; table 2047 -> 0; 0; 0
hold 1; sync; requested 4
syncing; control -> true; 20
sync_ack; control; syncing -> 0; true
complete; syncing -> false
)"},
};

class AdmaTest : public testing::TestWithParam<Scene>
{};

} // namespace

TEST_P(AdmaTest, DoesAsWritten)
{
    Adma adma;
    ExpectTranscript(GetParam().script, [&](const std::string& event) { return adma.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, AdmaTest, testing::ValuesIn(Scenes), NameOfScene);
