#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Offset of the outputs of a box.
class IoOutputsOffsetCmd : public Command<IoOutputsOffsetCmd, 821, 1>
{
    KLV_COMMAND_FIELDS(IoOutputsOffsetCmd, (Hid, Hid), (std::uint16_t, Param1))
};
