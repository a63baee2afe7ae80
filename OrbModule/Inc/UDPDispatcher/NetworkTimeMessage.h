#pragma once

#include "OrbModule/Inc/UDPDispatcher/FabricMessageBase.h"

#include <array>
#include <cstdint>

/// The current time of the network: 20, then the seconds since 1970, little-endian.
class NetworkTimeMessage : public FabricMessageBase
{
public:
    static constexpr std::size_t SIZE = 5;
    static constexpr std::size_t TIME_OFFSET = 1;

    NetworkTimeMessage();
    /// @param bytes SIZE bytes; the first is not checked.
    explicit NetworkTimeMessage(const char* bytes);

    /// Seconds since 1970.
    std::uint32_t GetTime() const;

    void Serialise(char* buffer) const override;
    std::size_t GetSize() const override { return SIZE; }
    void Validate() override {}

private:
    std::array<unsigned char, SIZE> mImage{};
};
