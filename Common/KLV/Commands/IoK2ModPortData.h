#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// Data of a port of an audio module device.
class IoK2ModPortData : public Command<IoK2ModPortData, 823>
{
    KLV_COMMAND_FIELDS(IoK2ModPortData, (IoPort, Port), (std::uint8_t, Param1), (std::string, Param2),
                       (std::int32_t, Param3), (bool, Param4), (bool, Param5), (std::uint8_t, Param6))
};
