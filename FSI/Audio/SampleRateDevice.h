#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

namespace audio {

/// Multiple of a base sample rate that a device runs at.
using FrequencyScaler = std::uint32_t;

/// A device that runs at a sample rate. Main thread only.
class SampleRateDevice
{
public:
    virtual ~SampleRateDevice() = default;

    FrequencyScaler GetFrequencyScaler() const { return mFrequencyScaler; }
    SampleRates::SystemSampleRate GetSampleRate() const { return mSampleRate; }

private:
    FrequencyScaler mFrequencyScaler = 0;
    SampleRates::SystemSampleRate mSampleRate = SampleRates::RATE_48K;
};

} // namespace audio
