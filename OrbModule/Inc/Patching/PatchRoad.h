#pragma once

#include "MiscSource/GlobalConstants.h"

#include <iosfwd>
#include <vector>

/// What becomes of a patch command at one port of this module.
enum class PatchRoad {
    /// Nothing is to be done.
    None,
    /// Both ends stand in the own unit: hand the command to the Orb router and acknowledge it.
    PassToOrbAndAcknowledge,
    /// The source stands in the own unit and the destination is online: hand the command to the Orb router with the
    /// port by which to reach the destination.
    PassToOrbWithPort,
    /// The source stands in the own unit, but the destination cannot be reached now.
    ReportFailed,
    /// The source arrives on a link and the destination is reached through the Orb router.
    LinkToOrb,
    /// The same, but the source is not heard on this link.
    LinkToOrbNotHeard,
    /// The destination is the box plugged into a link.
    ToLocalBox,
    /// The source is at the Orb router and the destination is reached on a link.
    OrbToLink,
    /// The source stands behind a link: send the command on to its node.
    OnwardsToSource,
    /// The source cannot be reached over this port.
    SourceNotValid
};
std::ostream& operator<<(std::ostream& out, PatchRoad road);

/// Who owns which end of a patch, and what can be reached over one link port.
struct PatchEnds
{
    bool sourceIsOwn = false;
    bool destIsOwn = false;
    /// The I/O box that is plugged straight into a link.
    bool sourceIsLocal = false;
    bool destIsLocal = false;
    /// Whether that end is heard on the port.
    bool sourceReachable = false;
    bool destReachable = false;
};

/// The road of a command while a real router drives the patches.
/// @param from the port that the command came in on; for one from a link, destReachable is whether the destination
/// is online there.
PatchRoad FindRouterRoad(UINT8GIGEPORT from, const PatchEnds& ends);
/// The link ports that a command from the Orb router is for while a real router drives the patches.
std::vector<UINT8GIGEPORT> FindRouterPorts(bool make, UINT8GIGEPORT sourceLink);

/// The road over one link port of a command while the Orb router of the own unit drives the patches.
/// @param from the port that the command came in on; for one from a link the ends are of no account.
PatchRoad FindOrbRoad(UINT8GIGEPORT from, const PatchEnds& ends);
/// The link ports that a command from the Orb router is for while that router drives the patches.
/// @param sourceLink the port that the command names, 0 for either link.
std::vector<UINT8GIGEPORT> FindOrbPorts(UINT8GIGEPORT sourceLink);
