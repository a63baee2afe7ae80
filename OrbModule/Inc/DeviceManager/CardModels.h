#pragma once

#include <cstdint>
#include <string_view>

/// What a card of an I/O box brings: how many audio ports, and how far apart the slots of the box stand in the
/// hardware's port numbers.
struct CardModel
{
    std::uint16_t inputs;
    std::uint16_t outputs;
    std::uint16_t inputStride;
    std::uint16_t outputStride;
};

/// Looks a card up by its six-character model code. A code that is not known brings no ports.
CardModel GetCardModel(std::string_view code, bool doubleRate);
