#pragma once

#include "FSI/Audio/AudioDmaTransaction.h"

#include <cstddef>
#include <vector>

namespace audio {

/// A range of sink samples that one endpoint feeds with consecutive samples, or that is silent.
struct RouteRun
{
    AudioDmaTransaction firstSource;
    AudioDmaTransaction lastSource;
    /// Of the run's first sample, counted from the beginning of the sink.
    std::size_t sinkOffset;
    std::size_t length;
};

/// Splits the sources of a sink, one for each of its samples, into runs that cover it without a gap.
std::vector<RouteRun> SplitIntoRuns(const std::vector<AudioDmaTransaction>& sources);

} // namespace audio
