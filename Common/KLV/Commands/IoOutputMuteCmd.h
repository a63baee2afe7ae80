#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Mutes an output of a box.
class IoOutputMuteCmd : public Command<IoOutputMuteCmd, 816, 1>
{
    KLV_COMMAND_FIELDS(IoOutputMuteCmd, (Hid, Hid), (std::uint16_t, Port), (bool, Param1))
};
