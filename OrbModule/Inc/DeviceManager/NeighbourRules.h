#pragma once

#include "OrbModule/Inc/DeviceManager/LinkReport.h"

/// Who is the local device, as functions of values: what a report of a link or a stream on it means for the device
/// that is the local one so far. Without state; the directory acts on the outcome.
namespace NeighbourRules {

/// The local device so far.
struct Local
{
    ::Hid hid = INVALID_HID;
    K2Heartbeat::LinkType type = K2Heartbeat::K2_NO_TYPE;
    bool primaryOnline{};
};

/// What the neighbour on a link is.
enum class Neighbour {
    Unknown, ///< nothing has been reported of the link
    Local,   ///< the local device, or the first one
    Next,    ///< takes the place of the local device
    Refused  ///< a second device besides the local one
};

/// A link has come up. The primary link decides; the secondary does while no device is online on the primary.
Neighbour OfLink(Routing::PortsEnum port, const LinkReport& link, const Local& local);
/// A stream has come up on a link. On the secondary link it makes a device the local one only if there is no other.
Neighbour OfStream(Routing::PortsEnum port, const LinkReport& link, const Local& local);

} // namespace NeighbourRules
