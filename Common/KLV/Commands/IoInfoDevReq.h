#pragma once

#include "Common/KLV/Command.h"

/// Asks for the description of one named device.
class IoInfoDevReq : public Command<IoInfoDevReq, 814>
{
    KLV_COMMAND_FIELDS(IoInfoDevReq, (Hid, Hid))
};
