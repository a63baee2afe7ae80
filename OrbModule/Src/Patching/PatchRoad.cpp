#include "OrbModule/Inc/Patching/PatchRoad.h"

#include <array>
#include <ostream>

std::ostream& operator<<(std::ostream& out, PatchRoad road)
{
    static constexpr std::array<const char*, 10> texts{"None",
                                                       "PassToOrbAndAcknowledge",
                                                       "PassToOrbWithPort",
                                                       "ReportFailed",
                                                       "LinkToOrb",
                                                       "LinkToOrbNotHeard",
                                                       "ToLocalBox",
                                                       "OrbToLink",
                                                       "OnwardsToSource",
                                                       "SourceNotValid"};
    return out << texts.at(static_cast<std::size_t>(road));
}

PatchRoad FindRouterRoad(UINT8GIGEPORT from, const PatchEnds& ends)
{
    if (from == Routing::ORB_PORT) return PatchRoad::OrbToLink;
    if (ends.sourceIsOwn && ends.destIsOwn) return PatchRoad::PassToOrbAndAcknowledge;
    if (ends.destIsOwn) return PatchRoad::LinkToOrb;
    if (!ends.sourceIsOwn) return PatchRoad::None;
    return ends.destReachable ? PatchRoad::PassToOrbWithPort : PatchRoad::ReportFailed;
}

std::vector<UINT8GIGEPORT> FindRouterPorts(bool make, UINT8GIGEPORT sourceLink)
{
    if (make) return {sourceLink};
    return {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT};
}

PatchRoad FindOrbRoad(UINT8GIGEPORT from, const PatchEnds& ends)
{
    if (from != Routing::ORB_PORT) return PatchRoad::LinkToOrb;
    if (ends.sourceIsLocal && ends.destIsOwn) {
        return ends.sourceReachable ? PatchRoad::LinkToOrb : PatchRoad::LinkToOrbNotHeard;
    }
    if (ends.destIsLocal) {
        return ends.sourceReachable && ends.destReachable ? PatchRoad::ToLocalBox : PatchRoad::None;
    }
    if (ends.sourceIsOwn) return PatchRoad::OrbToLink;
    return ends.sourceReachable ? PatchRoad::OnwardsToSource : PatchRoad::SourceNotValid;
}

std::vector<UINT8GIGEPORT> FindOrbPorts(UINT8GIGEPORT sourceLink)
{
    switch (sourceLink) {
    case Routing::ORB_PORT:
        return {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT};
    case Routing::PRIMARY_PORT:
    case Routing::SECONDARY_PORT:
        return {sourceLink};
    default:
        return {};
    }
}
