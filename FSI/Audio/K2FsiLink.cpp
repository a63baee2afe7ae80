#include "FSI/Audio/K2FsiLink.h"

#include <cstddef>

namespace audio {

K2FsiLink::K2FsiLink(int address, int clockId, int samples)
    : AudioDmaEndpoint(static_cast<Address>(address), static_cast<std::size_t>(samples), Direction::SourceAndSink),
      ExternalClockSource(static_cast<Id>(clockId))
{}

} // namespace audio
