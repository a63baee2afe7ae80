#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>

/// Identity of a node of the audio network: rack id in the upper 16 bits, device field in the lower 16.
/// Read as a dotted quad, the same 32 bits (host order) are the node's address on the rack's local network.
/// Converts to and from the plain word; only the stream output is its own.
class Hid
{
public:
    constexpr Hid() = default;
    constexpr Hid(std::uint32_t value) : mValue(value) {}
    constexpr operator std::uint32_t() const { return mValue; }

private:
    std::uint32_t mValue = 0xFFFFFFFF;
};

constexpr Hid INVALID_HID{0xFFFFFFFFu};
constexpr Hid LOCAL_DSP_HID{0u};

constexpr std::uint32_t LOCAL_RACK_ID = 0;
constexpr std::uint32_t INVALID_RACK_ID = 0xFFFF;
/// The default id of a system; with it, routers are disallowed from the start.
constexpr std::uint32_t DEFAULT_RACK_ID = 0xC001;

/// Master control and update service of the unit's internal rack, 1.63.1.0.
constexpr Hid UNIT_MASTER_CONTROL{0x013F0100u};
/// This module on the unit's internal network, 1.63.5.0.
constexpr Hid UNIT_MODULE{0x013F0500u};

/// "192.2:8000 ", "0x5(5) ", "INVALID_HID " or "LOCAL_DSP_HID ", always with the blank at the end.
std::ostream& operator<<(std::ostream& out, const Hid& hid);

constexpr std::uint32_t GetRackId(Hid hid)
{
    return hid >> 16;
}
constexpr bool IsIoHid(Hid hid)
{
    return (hid & 0xF000) == 0;
}
constexpr bool IsSecondClassIoHid(Hid hid)
{
    return (hid & 0x0F00) == 0x0200;
}
constexpr Hid MakeNodeHid(Hid hid)
{
    return (hid & 0xFFFF0000) | 0x4000;
}
constexpr Hid MakeLinkHid(Hid hid)
{
    return (hid & 0xFFFF0000) | 0x8000;
}
/// Where master control of a rack is reached on the network; an address, host order.
constexpr std::uint32_t GetMasterControlAddress(std::uint32_t rack)
{
    return (rack << 16) | 0x100;
}
constexpr Hid MakeHubHid(Hid hid, bool primary)
{
    return (hid & 0xFFFF0000) | (primary ? 0x8000u : 0x8001u);
}

template <>
struct std::hash<Hid>
{
    std::size_t operator()(const Hid& hid) const noexcept { return std::hash<std::uint32_t>{}(hid); }
};
