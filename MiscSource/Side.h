#pragma once

#include "MiscSource/GlobalConstants.h"

#include <array>

/// One of the two links to the audio network. A flag on the wire or in the log is true for the primary.
enum class Side : std::uint8_t { Primary, Secondary };
constexpr std::array<Side, 2> BothSides{Side::Primary, Side::Secondary};

/// The side of a port; the internal port 0 counts as secondary.
constexpr Side ToSide(Routing::PortsEnum port)
{
    return IsPrimaryPort(port) ? Side::Primary : Side::Secondary;
}
constexpr Routing::PortsEnum ToPort(Side side)
{
    return side == Side::Primary ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT;
}
constexpr Side OtherSide(Side side)
{
    return side == Side::Primary ? Side::Secondary : Side::Primary;
}
constexpr bool IsPrimary(Side side)
{
    return side == Side::Primary;
}
