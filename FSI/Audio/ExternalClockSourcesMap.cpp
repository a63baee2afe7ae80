#include "FSI/Audio/ExternalClockSourcesMap.h"

#include "Audit/Audit.h"

namespace audio {

namespace {

constexpr std::uint32_t MeasurementOffset = 0;
constexpr std::uint32_t RangeLowOffset = 16;
constexpr std::uint32_t RangeHighOffset = 20;
constexpr std::uint32_t PllSourceOffset = 24;

} // namespace

void ExternalClockSourcesMap::SetExternalPllSource(ExternalClockSource::Id id)
{
    AUDIT_LOG(Information, "SetExternalPllSource %u\n", id);
    Write(PllSourceOffset, id);
}

std::uint32_t ExternalClockSourcesMap::ReadMeasurement()
{
    mFsi.SetIndirectAddress(mBase + MeasurementOffset);
    return mFsi.ReadIndirectData();
}

void ExternalClockSourcesMap::SetMeasurementRange(std::uint32_t low, std::uint32_t high)
{
    Write(RangeLowOffset, low);
    Write(RangeHighOffset, high);
}

void ExternalClockSourcesMap::Write(std::uint32_t offset, std::uint32_t value)
{
    mFsi.SetIndirectAddress(mBase + offset);
    mFsi.WriteIndirectData(value);
}

} // namespace audio
