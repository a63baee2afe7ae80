#pragma once

#include "FSI/Audio/AudioDmaTransaction.h"
#include "FSI/Core/HostFsi.h"
#include "FSI/Core/Interruptable.h"
#include "MiscSource/FatalAssert.h"

#include <boost/signals2/connection.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace audio {

/// Driver of the audio DMA block and its transaction table: word i of the table is the source sample that feeds
/// destination i.
///
/// The main thread writes the table and ends a sync; the ADMA sync thread starts one. The two tables that mirror the
/// hardware are under the mutex of HostFsi, which is held while a table is written, so that a sync never activates
/// half of one. StartSync does not log.
class AudioDmaFsi : public fsi::HostFsi, public fsi::Interruptable
{
public:
    static constexpr const char* BlockName = "0003";
    static constexpr std::size_t TableSize = 2048;

    /// @throws std::system_error, see fsi::OpenRegisterBlock
    explicit AudioDmaFsi(std::unique_ptr<fsi::RegisterBlock> block = fsi::OpenRegisterBlock(BlockName, 0));

    std::size_t GetTableSize() const { return mPendingTable.size(); }
    static constexpr std::size_t GetMaximumEndpointCount() { return MaximumEndpointCount; }
    static constexpr std::size_t GetMaximumSamplesPerEndpoint() { return MaximumSamplesPerEndpoint; }

    /// Writes the table: word i is made of element i of both ranges, which have the same length, at most the table's.
    /// It becomes active with the next StartSync.
    template <typename Range>
    void SetTransactions(const Range& sources, const Range& destinations)
    {
        FATAL_ASSERT(sources.size() == destinations.size(),
                     "ADMA must receive the same number of source and destination transactions");
        FATAL_ASSERT(sources.size() <= mPendingTable.size(), "ADMA received more transactions than its table holds");
        const std::lock_guard<std::mutex> lock(GetMutex());
        auto destination = destinations.begin();
        auto word = mPendingTable.begin();
        for (const AudioDmaTransaction source : sources)
            *word++ = std::uint32_t{source} << 12 | AudioDmaTransaction{*destination++};
        WritePendingTable(sources.size());
    }

    /// Asks the FPGA to activate the table written last. The "end of sync" interrupt confirms it.
    void StartSync();
    /// Takes the request back; the FPGA takes up the next one only after that.
    void EndSync();
    bool IsSyncing() const;
    /// The table that the FPGA was last asked to activate.
    std::vector<std::uint32_t> GetSynchronisedTable() const;

    void SetMute(bool mute);
    /// True, the state after start, lets a loss of PLL lock mute the audio.
    void SetMuteOnPllLoss(bool mute);

    /// Connects a callable without arguments; it runs on the main thread.
    template <typename Callable>
    boost::signals2::connection ConnectEndOfSync(const Callable& callable)
    {
        return ConnectSlot(EndOfSync, callable);
    }

private:
    static constexpr int EndOfSync = 0;

    void WritePendingTable(std::size_t count);

    std::vector<std::uint32_t> mPendingTable;
    std::vector<std::uint32_t> mSynchronisedTable;
};

} // namespace audio
