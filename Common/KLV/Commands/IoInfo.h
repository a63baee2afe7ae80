#pragma once

#include "Common/KLV/Command.h"

#include <array>
#include <cstdint>
#include <string>

/// Description of a fixed format box: the card model code in each of its five slots, empty for an empty slot.
class IoInfo : public Command<IoInfo, 801>
{
public:
    using SlotNames = std::array<std::string, 5>;

    KLV_COMMAND_FIELDS(IoInfo, (Hid, Hid), (std::uint8_t, Type), (SlotNames, Slots))
};
