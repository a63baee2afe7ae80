#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Parameters of an input of a box.
class IoSetInputParams : public Command<IoSetInputParams, 802>
{
    KLV_COMMAND_FIELDS(IoSetInputParams, (Hid, Hid), (std::uint16_t, Port), (std::int32_t, Param1), (bool, Param2),
                       (bool, Param3), (std::int16_t, Param4), (std::int16_t, Param5), (std::int16_t, Param6),
                       (std::uint8_t, Param7))
};
