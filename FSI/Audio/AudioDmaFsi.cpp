#include "FSI/Audio/AudioDmaFsi.h"

#include <utility>

namespace audio {

namespace {

constexpr std::uint32_t TableAddress = 0xC0000;

constexpr int IgnorePllLossBit = 3;
constexpr int MuteBit = 4;
constexpr int SyncRequestBit = 5;
constexpr int SyncingStatusBit = 3;

} // namespace

AudioDmaFsi::AudioDmaFsi(std::unique_ptr<fsi::RegisterBlock> block)
    : HostFsi(BlockName, std::move(block)),
      Interruptable(static_cast<HostFsi&>(*this), {EndOfSync}),
      mPendingTable(TableSize),
      mSynchronisedTable(TableSize)
{}

void AudioDmaFsi::WritePendingTable(std::size_t count)
{
    SetIndirectAddress(TableAddress);
    WriteIndirectData(mPendingTable.data(), count);
}

void AudioDmaFsi::StartSync()
{
    const std::lock_guard<std::mutex> lock(GetMutex());
    SetControlBitLocked(SyncRequestBit);
    mSynchronisedTable = mPendingTable;
}

void AudioDmaFsi::EndSync()
{
    ClearControlBit(SyncRequestBit);
}

bool AudioDmaFsi::IsSyncing() const
{
    return TestStatusBit(SyncingStatusBit);
}

std::vector<std::uint32_t> AudioDmaFsi::GetSynchronisedTable() const
{
    const std::lock_guard<std::mutex> lock(GetMutex());
    return mSynchronisedTable;
}

void AudioDmaFsi::SetMute(bool mute)
{
    SetControlBit(MuteBit, mute);
}

void AudioDmaFsi::SetMuteOnPllLoss(bool mute)
{
    SetControlBit(IgnorePllLossBit, !mute);
}

} // namespace audio
