#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Patches a GPO of a box.
class IoSetGPOPatch : public Command<IoSetGPOPatch, 804>
{
    KLV_COMMAND_FIELDS(IoSetGPOPatch, (Hid, Hid), (std::uint16_t, Port), (std::int16_t, Param1), (std::int16_t, Param2),
                       (std::int32_t, Param3), (std::uint32_t, Param4), (bool, Param5))
};
