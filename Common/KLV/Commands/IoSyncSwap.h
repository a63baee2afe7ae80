#pragma once

#include "Common/KLV/Command.h"

/// Makes a box swap its sync.
class IoSyncSwap : public Command<IoSyncSwap, 891>
{
    KLV_COMMAND_FIELDS(IoSyncSwap, (Hid, Hid))
};
