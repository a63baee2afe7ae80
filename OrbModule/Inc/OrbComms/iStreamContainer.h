#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

class OrbKLVStream;

/// The directory of the connected streams. It owns none of them.
class iStreamContainer
{
public:
    virtual ~iStreamContainer() = default;

    /// A later stream with the same remote address and type takes the place of an earlier one.
    virtual void Store(OrbKLVStream& stream) = 0;
    virtual void Remove(OrbKLVStream& stream) = 0;
    /// Null if there is none.
    virtual OrbKLVStream* GetStreamByPortAndType(UINT8GIGEPORT port, StreamType type) = 0;
    /// @param address remote address in host order.
    virtual OrbKLVStream* GetStreamByAddressAndType(std::uint32_t address, StreamType type) = 0;
};
