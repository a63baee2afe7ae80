#pragma once

#include "Common/KLV/Command.h"

/// Tells a box that this link carries the active router.
class IoActiveRouter : public Command<IoActiveRouter, 806>
{
    KLV_COMMAND_WITHOUT_FIELDS(IoActiveRouter)
};
