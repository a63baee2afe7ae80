#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// Description of an audio module device: the number of its inputs and outputs.
class IoInfoK2Mod : public Command<IoInfoK2Mod, 822>
{
    KLV_COMMAND_FIELDS(IoInfoK2Mod, (Hid, Hid), (std::uint32_t, Inputs), (std::uint32_t, Outputs), (std::string, Name1),
                       (std::string, Name2), (std::string, Name3))
};
