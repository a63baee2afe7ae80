#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Links ports of a box.
class IoPortSetLinkCmd : public Command<IoPortSetLinkCmd, 812>
{
    KLV_COMMAND_FIELDS(IoPortSetLinkCmd, (Hid, Hid), (std::uint8_t, Param1), (std::uint8_t, Param2))
};
