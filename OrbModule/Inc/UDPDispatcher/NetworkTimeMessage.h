#pragma once

#include "MiscSource/LittleEndian.h"
#include "OrbModule/Inc/UDPDispatcher/FabricMessageBase.h"
#include "OrbModule/Inc/UDPDispatcher/SwitchFabric.h"

#include <array>
#include <cstdint>

/// The current time of the network: 20, then the seconds since 1970, little-endian.
class NetworkTimeMessage : public FabricMessageBase
{
public:
    static constexpr std::size_t SIZE = 5;
    static constexpr std::size_t TIME_OFFSET = 1;

    NetworkTimeMessage() = default;
    /// @param bytes SIZE bytes; the first is not checked.
    explicit NetworkTimeMessage(const char* bytes);

    /// Seconds since 1970.
    std::uint32_t GetTime() const { return LoadLittleEndian<std::uint32_t>(&mImage[TIME_OFFSET]); }

    void Serialise(char* buffer) const override;
    std::size_t GetSize() const override { return SIZE; }
    void Validate() override {}

private:
    std::array<unsigned char, SIZE> mImage{SwitchFabric::NetworkTimeMessage};
};
