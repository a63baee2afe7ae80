#include "FSI/Audio/ExternalReferenceFsi.h"

#include <utility>

namespace audio {

namespace {

constexpr int Family44k1Bit = 3;
constexpr int PhaseFreezeBit = 4;
constexpr int ServoLockedStatusBit = 3;

} // namespace

ExternalReferenceFsi::ExternalReferenceFsi(std::unique_ptr<fsi::RegisterBlock> block)
    : HostFsi(BlockName, std::move(block)),
      ExternalClockSourcesMap(static_cast<HostFsi&>(*this)),
      Interruptable(static_cast<HostFsi&>(*this),
                    {LossEvent, SecondLossEvent, MeasurementEvent, SettleEvent, UnusedEvent})
{}

void ExternalReferenceFsi::SetFrequencyFamily44k1(bool family44k1)
{
    SetControlBit(Family44k1Bit, family44k1);
}

void ExternalReferenceFsi::SetPhaseFreeze(bool freeze)
{
    SetControlBit(PhaseFreezeBit, freeze);
}

bool ExternalReferenceFsi::IsServoLocked() const
{
    return TestStatusBit(ServoLockedStatusBit);
}

} // namespace audio
