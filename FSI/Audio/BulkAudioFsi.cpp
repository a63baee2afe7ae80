#include "FSI/Audio/BulkAudioFsi.h"

#include <utility>

namespace OrbModule {

BulkAudioFsi::BulkAudioFsi(int clockId, std::unique_ptr<fsi::RegisterBlock> block)
    : HostFsi(BlockName, std::move(block)),
      AudioDmaEndpoint(GetBlockId(), SampleSpace, Direction::SourceAndSink),
      ExternalClockSource(static_cast<Id>(clockId))
{}

} // namespace OrbModule
