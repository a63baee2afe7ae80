#pragma once

#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Core/DeviceRegistry.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "Simulation/Fpga/ProcessBoard.h"

#include <boost/asio/io_service.hpp>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <utility>

/// From the Patcher to the table that is active in the simulated FPGA, all of it real. The thread of the test is the
/// main thread: it serves the interrupts while it waits.
class PatchBoard
{
public:
    /// A port and a slot of it.
    using Place = std::pair<unsigned, std::uint32_t>;
    /// What feeds each slot that is not silent.
    using Feeds = std::map<Place, Place>;

    explicit PatchBoard(std::uint8_t bulk = 3, std::uint8_t link0 = 1, std::uint8_t link1 = 2)
        : mPorts{{bulk, 0}, {link0, 1}, {link1, 2}}
    {
        mFpga.SetBulkAddress(bulk);
        mFpga.SetHold(false);
        mFpga.SetSyncTime(std::chrono::microseconds{0});
        mFsi = mRegistry.Register<audio::AudioDmaFsi>("adma");
        mPatcher =
            std::make_unique<Patcher>(mService, &mRegistry, std::make_shared<audio::AudioDmaManager>(mFsi, &mRegistry),
                                      [=](std::uint32_t link) { return link == 0 ? link0 : link1; });
    }
    ~PatchBoard()
    {
        mFpga.SetHold(false);
        WaitUntil([this] { return !mFsi->IsSyncing(); });
    }
    PatchBoard(const PatchBoard&) = delete;
    PatchBoard& operator=(const PatchBoard&) = delete;

    simulation::SimulatedFpga& GetFpga() { return mFpga; }
    Patcher& GetPatcher() { return *mPatcher; }
    /// In the table that is active now.
    Feeds GetFeeds() const
    {
        Feeds feeds;
        for (const std::uint32_t word : mFpga.GetActiveTable()) {
            if (word >> 12 != 0) feeds[ToPlace(word & 0xFFF)] = ToPlace(word >> 12);
        }
        return feeds;
    }
    /// Serves interrupts until the condition holds; false if it does not within the time.
    bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience = std::chrono::seconds(5))
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (std::chrono::steady_clock::now() < deadline) {
            ServeInterrupts();
            if (condition()) return true;
            mFpga.WaitForSyncs(mFpga.GetSyncs() + 1, std::chrono::milliseconds(10));
        }
        return false;
    }
    void ServeInterrupts() { mFsi->DispatchInterrupts(); }

private:
    Place ToPlace(std::uint32_t transaction) const
    {
        const auto port = mPorts.find(transaction >> 9);
        return {port == mPorts.end() ? UNKNOWN_GIGE_PORT : port->second, transaction & 0x1FF};
    }

    simulation::SimulatedFpga& mFpga = simulation::GetProcessBoard();
    /// By their ADMA address.
    const std::map<std::uint32_t, unsigned> mPorts;
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mFsi;
    std::unique_ptr<Patcher> mPatcher;
};
