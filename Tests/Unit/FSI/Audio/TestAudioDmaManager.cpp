#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/K2FsiLink.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>

#include <tuple>

namespace {

using audio::AudioDmaEndpoint;
using audio::AudioDmaManager;
using audio::AudioDmaTransaction;
using testing::ElementsAre;
using Direction = AudioDmaEndpoint::Direction;
using Policy = AudioDmaManager::MappingPolicy;

/// Its syncs are tested by the commands of the shell.
class AdmaManager : public testing::Test
{
protected:
    using Transactions = std::vector<AudioDmaTransaction>;

    /// The sources of the last sample of "k0" and of all that comes behind it.
    Transactions Sources() const
    {
        const auto begin = mManager->GetSources().begin();
        return {begin + 511, begin + 518};
    }

    simulation::SimulatedFpga mBoard;
    const std::shared_ptr<audio::AudioDmaFsi> mFsi = std::make_shared<audio::AudioDmaFsi>(mBoard.Open("0003"));
    const std::shared_ptr<AudioDmaManager> mManager = std::make_shared<AudioDmaManager>(mFsi, nullptr);
    const std::shared_ptr<audio::K2FsiLink> mK0 = std::make_shared<audio::K2FsiLink>(1, 1, 512);
};

TEST_F(AdmaManager, RoutesLandOnASinkAsThePolicySaysAndOnNoOtherSample)
{
    const auto small = std::make_shared<AudioDmaEndpoint>(std::uint16_t{4}, 4u, Direction::SinkOnly);
    const auto mono = std::make_shared<AudioDmaEndpoint>(std::uint16_t{5}, 2u, Direction::SourceOnly);
    const auto pair = std::make_shared<AudioDmaEndpoint>(std::uint16_t{6}, 2u, Direction::SinkOnly);
    mK0->SetDefaultSourceTransactions({0x207, 0x206, 0x205}, small, 0, SampleRates::RATE_48K);
    mManager->RegisterEndpoints({mK0, small, mono, pair});
    EXPECT_TRUE(mono->HasSourceTransactions(pair, 257, SampleRates::RATE_48K)) << "8 bits of the scaler count";
    EXPECT_FALSE(mono->HasSourceTransactions(pair, 2, SampleRates::RATE_48K));
    EXPECT_FALSE(mono->HasSourceTransactions(pair, 1, SampleRates::RATE_96K));
    const auto stranger = std::make_shared<AudioDmaEndpoint>(std::uint16_t{7}, 2u, Direction::SinkOnly);
    EXPECT_THAT(mono->GetSourceTransactions(stranger), ElementsAre(0, 0)) << "a pairing that was never stored";
    const std::tuple<Policy::Mode, std::size_t, std::size_t, Transactions, Transactions> cases[] = {
        {Policy::Mode::Positional, 0, 0, {0x201, 0x205}, {0, 0x201, 0x205, 0, 0, 0, 0}},
        {Policy::Mode::Positional, 1, 0, {0x201, 0x202, 0x203, 0x204}, {0, 0, 0x201, 0x202, 0x203, 0, 0}},
        {Policy::Mode::Positional, 0, 1, {0x201, 0x202}, {0, 0x202, 0, 0, 0, 0, 0}},
        {Policy::Mode::Positional, 0, 9, {0x201}, {0, 0, 0, 0, 0, 0, 0}},
        {Policy::Mode::BySample, 0, 0, {0x203, 0x201, 0x204}, {0, 0, 0x201, 0, 0x203, 0, 0}},
        {Policy::Mode::BySample, 2, 0, {0x200, 0x201, 0x202}, {0, 0, 0, 0x200, 0x201, 0, 0}},
    };
    for (const auto& [mode, sinkOffset, sourceOffset, sources, expected] : cases) {
        mManager->ClearAllRoutes();
        Policy policy(sinkOffset);
        policy.mode = mode;
        policy.sourceOffset = sourceOffset;
        mManager->SetAudioRoutes(sources, small, policy);
        EXPECT_EQ(Sources(), expected);
    }
    mManager->SetAudioRoutes(mK0, small, Policy(1));
    EXPECT_THAT(Sources(), ElementsAre(0, 0, 0x207, 0x206, 0x205, 0, 0)) << "as stored before the registration";
    mManager->SetAudioRoutes(mono, small, Policy(0));
    EXPECT_THAT(Sources(), ElementsAre(0, 0xA00, 0xA01, 0, 0, 0, 0)) << "padded with silence";
    mManager->SetAudioRoutes({0x203, 0x204, 0x205}, {0x3FF, 0xC00, 0xC01});
    EXPECT_THAT(Sources(), ElementsAre(0x203, 0xA00, 0xA01, 0, 0, 0x204, 0x205)) << "sinks of two endpoints";
}

TEST_F(AdmaManager, TheMainThreadMayWriteTablesWhileTheSyncThreadTakesThemUp)
{
    mManager->RegisterEndpoints({mK0});
    for (std::uint16_t i = 0; i < 200; ++i) {
        for (std::uint16_t sample = 0; sample < 512; ++sample)
            mManager->SetAudioRoute(audio::MakeTransaction(3, i), audio::MakeTransaction(1, sample));
        mManager->Synchronise();
        mFsi->SetMute(i % 2 != 0);
        mFsi->DispatchInterrupts();
        // Whatever table was taken up, it was a whole one, and the other thread's control bit is not lost.
        const auto table = mBoard.GetActiveTable();
        ASSERT_EQ(table[0] >> 12, table[511] >> 12);
        ASSERT_EQ(mBoard.GetRegister("0003", 0x38) >> 4 & 1, i % 2);
    }
}

using AdmaManagerDeathTest = AdmaManager;

TEST_F(AdmaManagerDeathTest, FaultsOfTheCodeAreFatal)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto stranger = std::make_shared<AudioDmaEndpoint>(std::uint16_t{1}, 512u, Direction::SourceAndSink);
    EXPECT_DEATH(mManager->RegisterEndpoints({mK0, stranger}), "given address already registered\\.");
    mManager->RegisterEndpoints({mK0});
    EXPECT_DEATH(mManager->SetAudioRoute(0, 0x1000), "SetAudioPath: Unknown sink specified\\.");
    EXPECT_DEATH(mManager->SetAudioRoutes(stranger, mK0, Policy(0)), "Unregistered source endpoint specified");
    EXPECT_DEATH(mManager->SetAudioRoutes(mK0, mK0, Policy(512)), "Invalid first sink sample\\.");
    EXPECT_DEATH(audio::K2FsiLink(8, 1, 512), "Invalid ADMA transaction endpoint\\.");
    EXPECT_DEATH(audio::MakeTransactions(1, 2, 512), "Invalid ADMA transaction sample\\.");
}

} // namespace
