#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"

#include <string>
#include <vector>

namespace audio {

/// The transactions of the samples of an endpoint that a text such as "20,21,30-40" names, in ascending order. Empty
/// if the text is malformed, names a sample that the endpoint does not have, or is out of order; a number that was
/// there before is passed over. Any text is safe, and takes no more work than its own length and the endpoint's
/// samples call for.
std::vector<AudioDmaTransaction> ParseSampleRange(const std::string& text, const AudioDmaEndpoint& endpoint);

} // namespace audio
