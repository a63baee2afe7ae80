#pragma once

#include "Common/KLV/Command.h"

/// A patch was made at the far end.
class PatchSucessfulCmd : public Command<PatchSucessfulCmd, 841>
{
    KLV_COMMAND_FIELDS(PatchSucessfulCmd, (IoPort, Dest))
};
