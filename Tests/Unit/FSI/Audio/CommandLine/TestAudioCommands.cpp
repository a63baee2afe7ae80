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
#include "Tests/Unit/FSI/Audio/CommandLine/Audio.scenes.h"
#include "Utilities/CommandLine/NodeManager.h"

#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/trim.hpp>

#include <map>
#include <optional>

namespace {

/// The audio managers and their commands on a simulated board. The endpoints are "bulk" at address 3 with clock 4, "k0"
/// at 1 with clock 1, and "k1" at 2 with clock 2. The test's thread is the main thread.
class AudioCommands : public testing::TestWithParam<Scene>
{
protected:
    AudioCommands()
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
    ///     samples N TEXT            of that many, which ones the text names
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
            {"samples", [&] { SaySamples(first, rest.substr(std::min(rest.find(' '), rest.size()))); }},
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

    void SaySamples(std::uint32_t count, const std::string& text)
    {
        const audio::AudioDmaEndpoint endpoint(1, count, audio::AudioDmaEndpoint::Direction::SourceAndSink);
        for (const audio::AudioDmaTransaction sample : audio::ParseSampleRange(boost::trim_left_copy(text), endpoint))
            Say(std::to_string(sample - audio::MakeTransaction(1, 0)));
    }
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

} // namespace

TEST_P(AudioCommands, DoAsWritten)
{
    ExpectTranscript(GetParam().script, [this](const std::string& event) { return Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, AudioCommands, testing::ValuesIn(ScenesOf(AudioScenes)), NameOfScene);
