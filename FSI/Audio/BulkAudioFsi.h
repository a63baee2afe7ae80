#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"
#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Core/HostFsi.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace OrbModule {

/// The bulk audio block, the way to and from the Orb router: an endpoint of 512 samples whose ADMA address is read
/// from the block, and a clock source. Main thread only.
class BulkAudioFsi : public fsi::HostFsi, public audio::AudioDmaEndpoint, public audio::ExternalClockSource
{
public:
    static constexpr const char* BlockName = "0012";
    static constexpr std::size_t SampleSpace = 512;

    /// @param clockId above 0
    /// @throws std::system_error, see fsi::OpenRegisterBlock
    explicit BulkAudioFsi(int clockId, std::unique_ptr<fsi::RegisterBlock> block = fsi::OpenRegisterBlock(BlockName, 0))
        : HostFsi(BlockName, std::move(block)),
          AudioDmaEndpoint(GetBlockId(), SampleSpace, Direction::SourceAndSink),
          ExternalClockSource(static_cast<Id>(clockId))
    {}
};

} // namespace OrbModule
