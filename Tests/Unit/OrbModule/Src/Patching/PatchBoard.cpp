#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <array>

namespace {

/// ADMA addresses in the order of the ports.
constexpr std::array<std::uint32_t, Routing::PORT_COUNT> Addresses{PatchBoard::BulkAddress, 1, 2};

} // namespace

PatchBoard::PatchBoard(std::uint8_t bulkAddress, EndpointId endpointId)
{
    mFpga.SetBulkAddress(bulkAddress);
    mFpga.SetHold(false);
    mFpga.SetSyncTime(std::chrono::microseconds{0});
    mFsi = mRegistry.Register<audio::AudioDmaFsi>("adma");
    mPatcher = std::make_unique<Patcher>(mService, &mRegistry,
                                         std::make_shared<audio::AudioDmaManager>(mFsi, &mRegistry), endpointId);
}

PatchBoard::~PatchBoard()
{
    mFpga.SetHold(false);
    WaitUntil([this] { return !mFsi->IsSyncing(); });
}

PatchBoard::Feed PatchBoard::GetFeed(UINT8GIGEPORT port, std::uint32_t slot) const
{
    const auto source = mFpga.Probe(Addresses[port], slot);
    if (!source) return std::nullopt;
    for (UINT8GIGEPORT from = 0; from < Addresses.size(); ++from) {
        if (Addresses[from] == source->endpoint) return std::make_pair(from, source->sample);
    }
    return std::make_pair(UNKNOWN_GIGE_PORT, source->sample);
}

bool PatchBoard::WaitUntil(const std::function<bool()>& condition)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        ServeInterrupts();
        if (condition()) return true;
        mFpga.WaitForSyncs(mFpga.GetSyncs() + 1, std::chrono::milliseconds(10));
    }
    return false;
}
