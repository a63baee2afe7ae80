#pragma once

#include <cstdint>

/// The ports by which the module and its neighbours find each other.
namespace NetworkPorts {

// UDP
constexpr std::uint16_t SWITCH_FABRIC = 49156;
constexpr std::uint16_t MODULE_HEARTBEAT = 49157;
/// Heartbeats of a link: the end that owns the link's network has the first, the other end the second.
constexpr std::uint16_t LINK_OWNER = 60001;
constexpr std::uint16_t LINK_GUEST = 60002;

// TCP
constexpr std::uint16_t UPDATE_SERVICE = 49190;
/// Commands between a device and what it is plugged into.
constexpr std::uint16_t LOCAL_STREAM = 55000;
/// The data link between routers.
constexpr std::uint16_t ROUTER_STREAM = 55100;
/// Of the shell, unless the command line says otherwise.
constexpr std::uint16_t SHELL = 55555;

} // namespace NetworkPorts
