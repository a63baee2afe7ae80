#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"
#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Core/Fsi.h"

namespace audio {

/// A Gigabit link port as endpoint and clock source. Its registers belong to the kernel's driver. Main thread only.
class K2FsiLink : public AudioDmaEndpoint, public ExternalClockSource, public fsi::Fsi
{
public:
    /// @param address ADMA address, 1 to 7
    /// @param clockId above 0
    /// @param samples 1 to 512
    K2FsiLink(int address, int clockId, int samples)
        : AudioDmaEndpoint(static_cast<Address>(address), static_cast<std::size_t>(samples), Direction::SourceAndSink),
          ExternalClockSource(static_cast<Id>(clockId))
    {}
};

} // namespace audio
