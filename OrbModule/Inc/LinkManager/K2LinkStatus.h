#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

/// One report of the link driver on one of its ports.
struct K2LinkStatus
{
    static constexpr std::uint32_t NoRemote = 0xFFFFFFFF;

    /// Link index, in the low 8 bits.
    std::uint32_t Port = 0xFFFFFFFF;
    /// Driver id of the neighbour, twice its rack id; NoRemote if there is none.
    std::uint32_t RemoteId = 0;
    /// The neighbour's port number, in the low 8 bits.
    std::uint32_t RemotePort = 0;
    /// State word of the driver.
    std::uint32_t LinkState = 0;
    /// First endpoint number, 0 if unknown. Part of the report; nothing in this module needs it.
    std::uint32_t FsiEndpoint = 0;
    /// ADMA endpoint id of the port, 0 if unknown.
    std::uint32_t AdmaEndpoint = 0;

    LinkIndex GetLink() const { return static_cast<LinkIndex>(Port); }
};
