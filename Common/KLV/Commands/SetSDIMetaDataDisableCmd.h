#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Disables the metadata of an SDI port of a box.
class SetSDIMetaDataDisableCmd : public Command<SetSDIMetaDataDisableCmd, 3001>
{
    KLV_COMMAND_FIELDS(SetSDIMetaDataDisableCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (bool, Param2))
};
