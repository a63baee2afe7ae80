#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Parameters of a GPO of a box.
class IoSetGPOParams : public Command<IoSetGPOParams, 873, 1>
{
    KLV_COMMAND_FIELDS(IoSetGPOParams, (Hid, Hid), (std::uint16_t, Port), (bool, Param1), (bool, Param2),
                       (bool, Param3), (std::uint8_t, Param4), (std::uint32_t, Param5))
};
