#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// The network audio configuration of a box has changed.
class DanteConfigChange : public ForwardableCommand<DanteConfigChange, 870>
{
    KLV_COMMAND_FIELDS(DanteConfigChange, (std::uint32_t, Param1), (bool, Param2))
};
