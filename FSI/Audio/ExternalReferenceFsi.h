#pragma once

#include "FSI/Audio/ExternalClockSourcesMap.h"
#include "FSI/Core/HostFsi.h"
#include "FSI/Core/Interruptable.h"

#include <cstdint>
#include <memory>

namespace audio {

/// The reference block, which measures the external clocks and steers the PLL of the audio clock. Main thread only.
class ExternalReferenceFsi : public fsi::HostFsi, public ExternalClockSourcesMap, public fsi::Interruptable
{
public:
    static constexpr const char* BlockName = "0004";

    static constexpr int LossEvent = 0;
    static constexpr int SecondLossEvent = 1;
    static constexpr int MeasurementEvent = 2;
    static constexpr int SettleEvent = 3;
    /// Declared so that it is acknowledged; it has no handler.
    static constexpr int UnusedEvent = 4;

    /// @throws std::system_error, see fsi::OpenRegisterBlock
    explicit ExternalReferenceFsi(std::unique_ptr<fsi::RegisterBlock> block = fsi::OpenRegisterBlock(BlockName, 0));

    static constexpr std::uint32_t GetMaximumClockId() { return 7; }
    /// True for the 44.1 kHz family of sample rates, false for the 48 kHz family.
    void SetFrequencyFamily44k1(bool family44k1);
    /// True disables the phase adjustment loop that internal frame sync uses.
    void SetPhaseFreeze(bool freeze);
    bool IsServoLocked() const;
};

} // namespace audio
