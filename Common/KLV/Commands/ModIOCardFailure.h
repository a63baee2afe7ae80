#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// A card of a modular box has failed.
class ModIOCardFailure : public ForwardableCommand<ModIOCardFailure, 871>
{
    KLV_COMMAND_FIELDS(ModIOCardFailure, (std::uint32_t, Param1), (std::uint32_t, Param2))
};
