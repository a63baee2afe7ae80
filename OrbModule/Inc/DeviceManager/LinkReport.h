#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

/// True for the two links, false for the internal port and for what is no port.
constexpr bool IsLinkPort(Routing::PortsEnum port)
{
    return port == Routing::PRIMARY_PORT || port == Routing::SECONDARY_PORT;
}

/// What the link layer last reported of one port: its addresses, and the neighbour at the far end. A plain value;
/// addresses are in host order. A link that is down has local address 0, as the link layer reports it.
struct LinkReport
{
    std::uint32_t localIp = 0;
    UINT8GIGEPORT remoteGigE = UNKNOWN_GIGE_PORT;
    std::uint32_t remoteIp = 0;
    ::Hid hid = INVALID_HID;
    K2Heartbeat::LinkType type = K2Heartbeat::K2_NO_TYPE;

    bool IsUp() const { return localIp != 0; }
};
