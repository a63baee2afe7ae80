#pragma once

#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Core/DeviceRegistry.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "Simulation/Fpga/ProcessBoard.h"

#include <boost/asio/io_service.hpp>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

/// The real way of a route, from the Patcher to the table that is active in the simulated FPGA. The thread of the
/// test is the main thread: it serves the interrupts while it waits.
class PatchBoard
{
public:
    using EndpointId = std::function<std::uint8_t(std::uint32_t)>;
    /// Port and slot that feed a slot; none is silence.
    using Feed = std::optional<std::pair<UINT8GIGEPORT, std::uint32_t>>;

    static constexpr std::uint8_t BulkAddress = 3;

    explicit PatchBoard(std::uint8_t bulkAddress = BulkAddress, const EndpointId& endpointId = LinkAddress);
    ~PatchBoard();
    PatchBoard(const PatchBoard&) = delete;
    PatchBoard& operator=(const PatchBoard&) = delete;

    simulation::SimulatedFpga& GetFpga() { return mFpga; }
    Patcher& GetPatcher() { return *mPatcher; }
    /// What feeds a slot in the active table.
    Feed GetFeed(UINT8GIGEPORT port, std::uint32_t slot) const;
    using Feeds = std::array<std::array<Feed, Routing::SLOTS_PER_PORT>, Routing::PORT_COUNT>;
    /// What feeds each slot of each port, of one and the same table.
    Feeds GetFeeds() const;
    /// Serves interrupts until the condition holds; false if it does not within the time.
    bool WaitUntil(const std::function<bool()>& condition,
                   std::chrono::milliseconds patience = std::chrono::seconds(5));
    void ServeInterrupts() { mFsi->DispatchInterrupts(); }

    static std::uint8_t LinkAddress(std::uint32_t link) { return static_cast<std::uint8_t>(link + 1); }

private:
    simulation::SimulatedFpga& mFpga = simulation::GetProcessBoard();
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::AudioDmaFsi> mFsi;
    std::unique_ptr<Patcher> mPatcher;
};
