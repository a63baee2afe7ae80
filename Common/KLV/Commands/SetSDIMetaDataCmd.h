#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// Metadata of an SDI port of a box.
class SetSDIMetaDataCmd : public Command<SetSDIMetaDataCmd, 817>
{
    KLV_COMMAND_FIELDS(SetSDIMetaDataCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (std::string, Param2), (std::string, Param3), (std::string, Param4))
};
