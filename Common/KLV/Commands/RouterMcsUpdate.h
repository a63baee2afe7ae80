#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Address (host order) of this module's master control.
class RouterMcsUpdate : public ForwardableCommand<RouterMcsUpdate, 831>
{
    KLV_COMMAND_FIELDS(RouterMcsUpdate, (std::uint32_t, Address))
};
