#pragma once

#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <vector>

/// The three endpoints of the module on a simulated board: "bulk" at address 3, "k0" at 1, "k1" at 2. The test's
/// thread is the main thread, and dispatches the interrupts when it says so.
class AdmaFixture : public testing::Test
{
protected:
    using Sample = simulation::SimulatedFpga::SampleName;
    static constexpr std::chrono::seconds Patience{20};

    AdmaFixture()
    {
        mFsi = mRegistry.Register<audio::AudioDmaFsi>("adma", mBoard.Open("0003"));
        mManager = std::make_shared<audio::AudioDmaManager>(mFsi, &mRegistry);
        mBulk = mRegistry.Register<OrbModule::BulkAudioFsi>("bulk", 4, mBoard.Open("0012"));
        mK0 = mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
        mK1 = mRegistry.Register<audio::K2FsiLink>("k1", 2, 2, 512);
    }

    /// Registers the endpoints and sees the first table through.
    void Start()
    {
        mManager->RegisterEndpoints({mBulk, mK0, mK1});
        ASSERT_TRUE(Settle(1));
    }
    /// Waits until the n-th sync of the board has come, and takes its interrupt.
    bool Settle(std::uint64_t n)
    {
        const bool came = mBoard.WaitForSyncs(n, Patience);
        mFsi->DispatchInterrupts();
        return came;
    }
    bool Synchronise()
    {
        const std::uint64_t syncs = mBoard.GetSyncs();
        mManager->Synchronise();
        return Settle(syncs + 1);
    }
    /// Asks for a sync that does not end until Complete; n counts the requests.
    void SynchroniseAndHold(std::uint64_t n)
    {
        mBoard.SetHold(true);
        mManager->Synchronise();
        ASSERT_TRUE(mBoard.WaitForSyncRequests(n, Patience));
    }
    /// "3:5", or "-" for silence.
    std::string Probe(std::uint32_t endpoint, std::uint32_t sample) const
    {
        const std::optional<Sample> source = mBoard.Probe(endpoint, sample);
        return source ? std::to_string(source->endpoint) + ":" + std::to_string(source->sample) : "-";
    }

    simulation::SimulatedFpga mBoard;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mFsi;
    std::shared_ptr<audio::AudioDmaManager> mManager;
    std::shared_ptr<OrbModule::BulkAudioFsi> mBulk;
    std::shared_ptr<audio::K2FsiLink> mK0;
    std::shared_ptr<audio::K2FsiLink> mK1;
};
