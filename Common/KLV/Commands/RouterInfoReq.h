#pragma once

#include "Common/KLV/Command.h"

/// Asks a routing device for its description.
class RouterInfoReq : public Command<RouterInfoReq, 829>
{
    KLV_COMMAND_WITHOUT_FIELDS(RouterInfoReq)
};
