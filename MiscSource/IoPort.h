#pragma once

#include "MiscSource/Hid.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

/// An audio port of a device in a patch: HID, style (what kind of port) and index. On the wire two words, the HID
/// and then style in bits 15 to 12 with the index in bits 11 to 0.
class IoPort
{
public:
    static constexpr std::uint32_t NO_INDEX = 0xFFF;

    /// The empty value: no device, style 0, index 4095.
    constexpr IoPort() = default;
    constexpr IoPort(Hid hid, std::uint32_t style, std::uint32_t index)
        : mHid(hid), mStyleAndIndex(((style & 0xF) << 12) | (index & 0xFFF))
    {}
    static constexpr IoPort FromWords(std::uint32_t hid, std::uint32_t styleAndIndex)
    {
        IoPort port;
        port.mHid = hid;
        port.mStyleAndIndex = styleAndIndex;
        return port;
    }

    constexpr Hid GetHid() const { return mHid; }
    constexpr std::uint32_t GetStyle() const { return (mStyleAndIndex >> 12) & 0xF; }
    constexpr std::uint16_t GetIndex() const { return static_cast<std::uint16_t>(mStyleAndIndex & 0xFFF); }
    /// The second word in wire format, unused bits included.
    constexpr std::uint32_t GetStyleAndIndex() const { return mStyleAndIndex; }

    friend constexpr bool operator==(const IoPort& a, const IoPort& b)
    {
        return a.mHid == b.mHid && (a.mStyleAndIndex & 0xFFFF) == (b.mStyleAndIndex & 0xFFFF);
    }

private:
    Hid mHid;
    std::uint32_t mStyleAndIndex = NO_INDEX;
};

/// "HID:3221389312(192.2:8000 ), Style:1(Input), Idx:5 "
std::ostream& operator<<(std::ostream& out, const IoPort& port);

template <>
struct std::hash<IoPort>
{
    std::size_t operator()(const IoPort& port) const noexcept
    {
        return std::hash<std::uint64_t>{}(std::uint64_t{port.GetHid()} << 32 | (port.GetStyleAndIndex() & 0xFFFF));
    }
};
