#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Length of a chain of boxes: the address (host order) of the box at its far end, and the hops to it. Every node that
/// reads the command counts itself.
class ChainLengthCmd : public Command<ChainLengthCmd, 859>
{
public:
    ChainLengthCmd(std::uint32_t source, std::uint32_t address, std::uint8_t length)
        : mSource(source), mAddress(address), mLength(length)
    {}
    explicit ChainLengthCmd(KLVCommandReadSet& set)
    {
        ReadFields(set);
        ++mLength;
    }

    KLV_FIELDS((std::uint32_t, Source), (std::uint32_t, Address), (std::uint8_t, Length))
};
