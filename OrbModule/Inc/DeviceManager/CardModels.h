#pragma once

#include <cstdint>
#include <string_view>

/// A card of an I/O box: its numbers of audio ports, and the distance of the box's slots in hardware port numbers.
struct CardModel
{
    std::uint16_t inputs;
    std::uint16_t outputs;
    std::uint16_t inputStride;
    std::uint16_t outputStride;
};

/// Looks up a card by its six-character model code. An unknown code gives no ports.
CardModel GetCardModel(std::string_view code, bool doubleRate);
