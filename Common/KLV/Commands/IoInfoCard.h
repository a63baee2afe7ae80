#pragma once

#include "Common/KLV/Command.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// Description of one card of a modular box: the hardware port number of each input and output. Slot 0xFF ends the
/// description of the box.
class IoInfoCard : public Command<IoInfoCard, 811>
{
public:
    using PortNumbers = std::vector<std::int16_t>;
    using CardFlags = std::array<std::uint8_t, 4>;

    KLV_COMMAND_FIELDS(IoInfoCard, (Hid, Hid), (std::uint8_t, Slot), (std::string, Name), (PortNumbers, Inputs),
                       (PortNumbers, Outputs), (CardFlags, Flags))
};
