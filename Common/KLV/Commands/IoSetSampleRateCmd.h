#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <cstdint>

/// Sets the sample rate of a box, whose links go down for that many milliseconds.
class IoSetSampleRateCmd : public Command<IoSetSampleRateCmd, 875>
{
    KLV_COMMAND_FIELDS(IoSetSampleRateCmd, (Klv::ByteField<SampleRates::SystemSampleRate>, SampleRate), (Hid, Hid),
                       (std::uint32_t, LinksDownTime))
};
