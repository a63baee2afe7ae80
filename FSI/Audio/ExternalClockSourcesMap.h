#pragma once

#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Core/HostFsi.h"

#include <cstdint>

namespace audio {

/// The indirect registers of the reference block: what the FPGA measured, and which clock its PLL follows. Main thread.
class ExternalClockSourcesMap
{
public:
    /// @param fsi the reference block, which outlives this object
    explicit ExternalClockSourcesMap(fsi::HostFsi& fsi) : mFsi(fsi) {}

    /// @param id 0 is the internal clock
    void SetExternalPllSource(ExternalClockSource::Id id);
    void SetInternalPllSource() { SetExternalPllSource(0); }
    /// Bits 7 to 0 are the id of a clock, bits 31 to 8 its measured value.
    std::uint32_t ReadMeasurement();
    /// The hardware's own bounds, in 27 MHz clocks over 65 frames; 0 and 4096 after start.
    void SetMeasurementRange(std::uint32_t low, std::uint32_t high);

private:
    void Write(std::uint32_t offset, std::uint32_t value);

    fsi::HostFsi& mFsi;
    const std::uint32_t mBase = 0x30000;
};

} // namespace audio
