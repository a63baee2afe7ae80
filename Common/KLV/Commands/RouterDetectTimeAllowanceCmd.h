#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// How long, in milliseconds, a master router may take to appear.
class RouterDetectTimeAllowanceCmd : public Command<RouterDetectTimeAllowanceCmd, 885>
{
    KLV_COMMAND_FIELDS(RouterDetectTimeAllowanceCmd, (std::uint32_t, Milliseconds))
};
