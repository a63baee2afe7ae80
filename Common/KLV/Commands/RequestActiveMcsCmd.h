#pragma once

#include "Common/KLV/Command.h"

/// Asks for the address of the active master control.
class RequestActiveMcsCmd : public Command<RequestActiveMcsCmd, 846>
{
    KLV_COMMAND_WITHOUT_FIELDS(RequestActiveMcsCmd)
};
