#pragma once

#include <cstddef>
#include <vector>

/// Base of the switch fabric messages: short datagrams whose first byte says what they are. This module only receives
/// them; the operations for sending are unused.
class FabricMessageBase
{
public:
    virtual ~FabricMessageBase() = default;

    /// Gives the message as a byte vector, announces it on standard output, and validates it.
    virtual void GetUDP(std::vector<unsigned char>& out);
    /// @param buffer takes GetSize bytes.
    virtual void Serialise(char* buffer) const;
    virtual std::size_t GetSize() const;
    virtual void Print() const {}
    virtual void Validate() = 0;

protected:
    std::vector<unsigned char> mData;
};
