#include "FSI/Audio/AudioDmaEndpoint.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/K2FsiLink.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace {

using audio::AudioDmaEndpoint;
using testing::ElementsAre;
using Direction = AudioDmaEndpoint::Direction;

TEST(AudioDmaEndpoint, SourceTransactionsStandUnderSinkScalerAndRate)
{
    AudioDmaEndpoint source(1, 8, Direction::SourceOnly);
    const auto sink = std::make_shared<AudioDmaEndpoint>(std::uint16_t{2}, 3u, Direction::SinkOnly);
    const auto other = std::make_shared<AudioDmaEndpoint>(std::uint16_t{3}, 2u, Direction::SinkOnly);
    source.SetDefaultSourceTransactions({0x201}, sink, 1, SampleRates::RATE_48K);
    source.SetDefaultSourceTransactions({0x202}, sink, 1, SampleRates::RATE_96K);
    EXPECT_TRUE(source.HasSourceTransactions(sink, 257, SampleRates::RATE_48K)) << "8 bits of the scaler count";
    EXPECT_FALSE(source.HasSourceTransactions(sink, 0, SampleRates::RATE_48K));
    EXPECT_FALSE(source.HasSourceTransactions(other, 1, SampleRates::RATE_48K));

    EXPECT_THAT(source.GetSourceTransactions(sink), ElementsAre(0, 0, 0)) << "never stored for its own scaler and rate";
    EXPECT_TRUE(source.HasSourceTransactions(sink, 0, SampleRates::RATE_48K));
    source.SetDefaultSourceTransactions({0x203, 0x204}, sink, 0, SampleRates::RATE_48K);
    EXPECT_THAT(source.GetSourceTransactions(sink), ElementsAre(0x203, 0x204));
}

TEST(AudioDmaEndpointDeathTest, FaultsOfTheCodeAreFatal)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    simulation::SimulatedFpga board;
    board.SetBulkAddress(0);
    EXPECT_DEATH(OrbModule::BulkAudioFsi(4, board.Open("0012")), "Endpoint Id 0 is reserved\\.");
    EXPECT_DEATH(audio::K2FsiLink(1, 0, 512), "External reference 0 is reserved\\.");
    EXPECT_DEATH(audio::K2FsiLink(8, 1, 512), "Invalid ADMA transaction endpoint\\.");
    EXPECT_DEATH(audio::MakeTransaction(1, 512), "Invalid ADMA transaction sample\\.");
    EXPECT_DEATH(audio::MakeTransactions(1, 2, 1), "Invalid sample range for MakeTransactions\\.");
    const auto sink = std::make_shared<AudioDmaEndpoint>(std::uint16_t{2}, 3u, Direction::SinkOnly);
    EXPECT_DEATH(sink->SetDefaultSourceTransactions({}, sink, 0, SampleRates::RATE_48K),
                 "SetSourceTransactions requires non-empty transactions");
}

} // namespace
