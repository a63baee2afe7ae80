#include "OrbModule/Inc/DeviceManager/NeighbourRules.h"

namespace NeighbourRules {

Neighbour OfLink(Routing::PortsEnum port, const LinkReport& link, const Local& local)
{
    if (link.hid == local.hid) return Neighbour::Local;
    if (!IsPrimaryPort(port) && local.primaryOnline) return Neighbour::Refused;
    return local.hid == INVALID_HID ? Neighbour::Local : Neighbour::Next;
}

Neighbour OfStream(Routing::PortsEnum port, const LinkReport& link, const Local& local)
{
    if (!link.IsUp() || link.hid == INVALID_HID) return Neighbour::Unknown;
    if (link.hid == local.hid || local.hid == INVALID_HID) return Neighbour::Local;
    // A box that has gone keeps its identity and loses its type.
    const bool isGone = local.type == K2Heartbeat::K2_NO_TYPE;
    return IsPrimaryPort(port) || isGone ? Neighbour::Next : Neighbour::Refused;
}

} // namespace NeighbourRules
