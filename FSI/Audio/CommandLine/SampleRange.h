#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"

#include <string>
#include <vector>

namespace audio {

/// The transactions of the samples of an endpoint that a text such as "20,21,30-40" names, in ascending order. Empty
/// if the text is malformed, names a sample that the endpoint does not have, or is out of order; a repeated
/// number is ignored. Any text is safe: the work is bounded by its length and the number of the endpoint's samples.
std::vector<AudioDmaTransaction> ParseSampleRange(const std::string& text, const AudioDmaEndpoint& endpoint);

} // namespace audio
