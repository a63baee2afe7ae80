#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// A box answers on a metadata preset.
class SDIMetaDataPresetResponseCmd : public Command<SDIMetaDataPresetResponseCmd, 3010>
{
    KLV_COMMAND_FIELDS(SDIMetaDataPresetResponseCmd, (Hid, Hid), (std::uint16_t, Port), (std::uint8_t, Param1),
                       (std::string, Param2), (std::uint8_t, Param3))
};
