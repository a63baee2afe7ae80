#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

constexpr std::uint32_t INVALID_TDM_SLOT = 0xFFFFFFFF;

/// One audio port of one device, as the slot bookkeeping knows it.
struct HidPort
{
    Hid hid = INVALID_HID;
    AudioPortNumber port = UNKNOWN_AUDIO_PORT;

    friend bool operator==(const HidPort& a, const HidPort& b) { return a.hid == b.hid && a.port == b.port; }
    friend bool operator!=(const HidPort& a, const HidPort& b) { return !(a == b); }
};
/// "Hid:Port 192.2:8000 :A5 "
std::ostream& operator<<(std::ostream& out, const HidPort& port);

template <>
struct std::hash<HidPort>
{
    std::size_t operator()(const HidPort& value) const noexcept
    {
        return std::hash<std::uint64_t>{}(std::uint64_t{value.hid} << 16 | value.port);
    }
};

namespace Routing {

/// A port in the texts of the slot bookkeeping: any other value shows its number.
std::string SlotPortText(UINT8GIGEPORT port);
/// A slot in the texts: its number, or "INVALID_TDM_SLOT".
std::string SlotText(std::uint32_t slot);

/// Whether a number, which may come from the network, is that of a slot.
constexpr bool IsSlot(std::uint32_t number)
{
    return number < SLOTS_PER_PORT;
}

/// A list of TDM slots on one port (a Routing::PortsEnum).
struct GigeAndSlots
{
    UINT8GIGEPORT port = UNKNOWN_GIGE_PORT;
    std::vector<std::uint32_t> slots;

    bool IsValid() const { return port != UNKNOWN_GIGE_PORT && !slots.empty(); }
    friend bool operator==(const GigeAndSlots& a, const GigeAndSlots& b)
    {
        return a.port == b.port && a.slots == b.slots;
    }
};
/// "GigE:TDM Pri Korvo 0 1 2 "
std::ostream& operator<<(std::ostream& out, const GigeAndSlots& link);

} // namespace Routing

/// Slots to be joined: entry i of the source feeds entry i of the destination. An empty source is silence.
struct LinkPatch
{
    Routing::GigeAndSlots source;
    Routing::GigeAndSlots destination;
};
/// "SrcLink ", the source, " DstLink " and the destination.
std::ostream& operator<<(std::ostream& out, const LinkPatch& patch);
