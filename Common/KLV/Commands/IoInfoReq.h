#pragma once

#include "Common/KLV/Command.h"

/// Asks a device for its description.
class IoInfoReq : public Command<IoInfoReq, 800>
{
    KLV_COMMAND_WITHOUT_FIELDS(IoInfoReq)
};
