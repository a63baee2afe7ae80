#pragma once

#include "Common/KLV/Command.h"

/// Asks the master control of this rack to restart its link.
class RestartMCSLinkCmd : public ForwardableCommand<RestartMCSLinkCmd, 667>
{
    KLV_COMMAND_FIELDS(RestartMCSLinkCmd, (Hid, Hid))
};
