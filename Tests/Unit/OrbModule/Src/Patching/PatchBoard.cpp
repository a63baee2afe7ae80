#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <algorithm>

namespace {

/// ADMA addresses in the order of the ports.
constexpr std::array<std::uint32_t, Routing::PORT_COUNT> Addresses{PatchBoard::BulkAddress, 1, 2};

UINT8GIGEPORT ToPortNumber(std::uint32_t address)
{
    const auto found = std::find(Addresses.begin(), Addresses.end(), address);
    return found == Addresses.end() ? UNKNOWN_GIGE_PORT : static_cast<UINT8GIGEPORT>(found - Addresses.begin());
}

} // namespace

PatchBoard::PatchBoard(std::uint8_t bulkAddress, const EndpointId& endpointId)
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
    return std::make_pair(ToPortNumber(source->endpoint), source->sample);
}

PatchBoard::Feeds PatchBoard::GetFeeds() const
{
    Feeds feeds;
    for (const std::uint32_t word : mFpga.GetActiveTable()) {
        const std::uint32_t source = word >> 12;
        const UINT8GIGEPORT port = ToPortNumber((word >> 9) & 7);
        if (source != 0 && port < feeds.size()) {
            feeds[port][word & 0x1FF] = std::make_pair(ToPortNumber(source >> 9), source & 0x1FF);
        }
    }
    return feeds;
}

bool PatchBoard::WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < deadline) {
        ServeInterrupts();
        if (condition()) return true;
        mFpga.WaitForSyncs(mFpga.GetSyncs() + 1, std::chrono::milliseconds(10));
    }
    return false;
}
