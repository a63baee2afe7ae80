#pragma once

#include "MiscSource/FatalAssert.h"

#include <cstdint>

namespace audio {

/// A device that the audio clock can follow, with the number that the FPGA knows it by.
class ExternalClockSource
{
public:
    using Id = std::uint32_t;

    /// @param id above 0; 0 is the internal clock
    explicit ExternalClockSource(Id id) : mId(id) { FATAL_ASSERT(id > 0, "External reference 0 is reserved."); }
    virtual ~ExternalClockSource() = default;

    Id GetId() const { return mId; }

private:
    const Id mId;
};

} // namespace audio
