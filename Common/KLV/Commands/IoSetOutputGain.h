#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Gain of an output of a box.
class IoSetOutputGain : public Command<IoSetOutputGain, 808>
{
    KLV_COMMAND_FIELDS(IoSetOutputGain, (Hid, Hid), (std::uint16_t, Port), (std::int32_t, Param1))
};
