#pragma once

#include "MiscSource/GlobalConstants.h"
#include "MiscSource/LittleEndian.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace K2Heartbeat {

/// The variant word of a link heartbeat. An I/O device puts a bitmap of its internals there, which passes through
/// untouched. From a routing device, and from this module:
///   bits 0 to 3 variant number of the master router, bits 4 and 5 base rate, bits 16 to 31 rack of the master
///   router (0xFFFF: none known on this port), the rest zero.
using LinkVariant = std::uint32_t;

constexpr LinkVariant VARIANT_NUMBER_MASK = 0x0000000F;
constexpr LinkVariant VARIANT_RATE_MASK = 0x00000030;
constexpr std::uint32_t VARIANT_RATE_SHIFT = 4;
constexpr std::uint32_t VARIANT_RACK_SHIFT = 16;
/// What a port sends until a router has been seen on it.
constexpr LinkVariant START_VARIANT = 0xFFFF000F;

constexpr std::uint32_t GetVariantNumber(LinkVariant variant)
{
    return variant & VARIANT_NUMBER_MASK;
}
/// The two bits as received; 1 and 3 are no base rates, but can arrive.
constexpr SampleRates::SystemSampleRate GetVariantRate(LinkVariant variant)
{
    return static_cast<SampleRates::SystemSampleRate>((variant & VARIANT_RATE_MASK) >> VARIANT_RATE_SHIFT);
}
constexpr std::uint32_t GetVariantRack(LinkVariant variant)
{
    return variant >> VARIANT_RACK_SHIFT;
}

constexpr LinkVariant WithVariantRate(LinkVariant variant, SampleRates::SystemSampleRate rate)
{
    return (variant & ~VARIANT_RATE_MASK) |
           ((static_cast<std::uint32_t>(rate) << VARIANT_RATE_SHIFT) & VARIANT_RATE_MASK);
}
constexpr LinkVariant WithVariantRack(LinkVariant variant, std::uint32_t rack)
{
    return (variant & 0xFFFFu) | (rack << VARIANT_RACK_SHIFT);
}
constexpr LinkVariant MakeVariant(std::uint32_t number, SampleRates::SystemSampleRate rate, std::uint32_t rack)
{
    return WithVariantRate(WithVariantRack(number & VARIANT_NUMBER_MASK, rack), rate);
}

/// One link heartbeat: 12 bytes, little-endian, with the sender's Hid, its type and its variant at the offsets below.
/// A value without a thread.
class LinkState
{
public:
    using LinkType = K2Heartbeat::LinkType;
    static constexpr std::size_t SIZE = 12;
    static constexpr std::size_t HID_OFFSET = 0;
    static constexpr std::size_t TYPE_OFFSET = 4;
    static constexpr std::size_t VARIANT_OFFSET = 8;
    using Bytes = std::array<std::uint8_t, SIZE>;

    /// What a routing device sends; any other type is logged as a failed assertion.
    LinkState(Hid hid, LinkType LType, LinkVariant variant);
    /// What has arrived, of any type. @param bytes SIZE bytes.
    explicit LinkState(const std::uint8_t* bytes);

    Hid GetHid() const { return LoadLittleEndian<std::uint32_t>(&mBytes[HID_OFFSET]); }
    LinkType GetType() const { return static_cast<LinkType>(mBytes[TYPE_OFFSET]); }
    LinkVariant GetVariant() const { return LoadLittleEndian<std::uint32_t>(&mBytes[VARIANT_OFFSET]); }
    const Bytes& GetBytes() const { return mBytes; }

private:
    Bytes mBytes{};
};

} // namespace K2Heartbeat
