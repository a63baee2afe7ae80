#pragma once

#include "FSI/Audio/AudioDmaTransaction.h"
#include "FSI/Audio/SampleRateDevice.h"
#include "MiscSource/GlobalConstants.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace audio {

/// A place in the FPGA that gives samples, takes them, or both. On a link port a sample is a TDM slot. Main thread
/// only.
class AudioDmaEndpoint : public SampleRateDevice
{
public:
    using Address = std::uint16_t;
    enum class Direction { SourceOnly = 0, SinkOnly = 1, SourceAndSink = 2 };

    /// @param address 1 to 7; 0 is reserved, since transaction 0 means silence
    /// @param sampleSpace number of samples, 1 to 512
    AudioDmaEndpoint(Address address, std::size_t sampleSpace, Direction direction);

    Address GetAddress() const { return mId; }
    std::size_t GetSampleSpace() const { return mSampleSpace; }
    /// Unused: this module asks IsSource and IsSink.
    Direction GetDirection() const { return mDirection; }
    bool IsSource() const { return mDirection != Direction::SinkOnly; }
    bool IsSink() const { return mDirection != Direction::SourceOnly; }

    /// One transaction for each sample, ascending; empty for SourceOnly.
    std::vector<AudioDmaTransaction> GetDestinationTransactions() const { return mDestinations; }

    /// Stores what a sink takes from this source at that scaler and rate, in the order of the sink's samples.
    /// @param transactions not empty
    void SetDefaultSourceTransactions(const std::vector<AudioDmaTransaction>& transactions,
                                      const std::shared_ptr<const AudioDmaEndpoint>& sink, FrequencyScaler scaler,
                                      SampleRates::SystemSampleRate rate);
    bool HasSourceTransactions(const std::shared_ptr<const AudioDmaEndpoint>& sink, FrequencyScaler scaler,
                               SampleRates::SystemSampleRate rate) const;
    /// What the sink takes from this source at this endpoint's own scaler and rate. A pairing that was never stored
    /// is silence, and stored as that.
    std::vector<AudioDmaTransaction> GetSourceTransactions(const std::shared_ptr<const AudioDmaEndpoint>& sink);

private:
    const Address mId;
    const std::size_t mSampleSpace;
    const Direction mDirection;
    std::vector<AudioDmaTransaction> mDestinations;
    /// By sink address, scaler and rate: address << 16 | scaler << 8 | rate.
    std::map<std::uint32_t, std::vector<AudioDmaTransaction>> mSources;
};

} // namespace audio
