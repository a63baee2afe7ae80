#pragma once

#include "Common/KLV/Command.h"

#include <string>

/// New name of a port of a box.
class RenamePortCmd : public Command<RenamePortCmd, 872>
{
    KLV_COMMAND_FIELDS(RenamePortCmd, (IoPort, Port), (std::string, Name))
};
