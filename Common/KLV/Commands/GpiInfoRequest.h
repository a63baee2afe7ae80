#pragma once

#include "Common/KLV/Command.h"

/// Asks a box for the states of its GPIs.
class GpiInfoRequest : public Command<GpiInfoRequest, 858>
{
    KLV_COMMAND_WITHOUT_FIELDS(GpiInfoRequest)
};
