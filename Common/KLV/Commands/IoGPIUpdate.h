#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// A GPI of a box has changed.
class IoGPIUpdate : public Command<IoGPIUpdate, 805>
{
    KLV_COMMAND_FIELDS(IoGPIUpdate, (Hid, Hid), (std::int16_t, Param1), (std::int16_t, Param2), (bool, Param3))
};
