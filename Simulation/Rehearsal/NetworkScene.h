#pragma once

#include "Simulation/Rehearsal/Rehearsal.h"
#include "Simulation/Rehearsal/RoutingScene.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/UnitSetup.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace rehearsal {

/// The second scene: the module finds its place in the unit, and every kind of neighbour on its primary link, one after
/// the other. Each is seen from both ends.
class NetworkScene
{
public:
    /// The numbers by which the scenes know the nodes.
    static constexpr char Box[] = "0x00200001";
    static constexpr char HubBox[] = "0x00300002";

    NetworkScene(RoutingScene& routing, stage::Milliseconds patience) : mRouting(routing), mPatience(patience) {}

    std::vector<Step> Steps();

    stage::Peer& GetOrb() { return *mOrb; }
    /// Plugs a box into a link and waits until it is reported to the Orb router.
    /// @param link 0 or 1; @return how long that took, in words.
    std::string PlugBox(unsigned int link);
    /// Takes the neighbour of a link away: its cable first, then the program.
    void Unplug(unsigned int link);
    stage::Peer& GetNeighbour(unsigned int link) { return *mNeighbours[link]; }
    void PlugHub();
    /// Waits until the box at the hub is reported to the Orb router.
    void AwaitHubBox();
    void PlugRouter();
    void TellDriver(const std::string& line);

private:
    std::string PassCheck();
    std::string LearnIdentity();
    std::string BringLinksUp();
    std::string MeetFixedBox();
    std::string MeetBoxInItsPlace(const std::string& kind, const std::string& card, const std::string& type);
    std::string MeetHub();
    std::string MeetRouter();
    void Plug(unsigned int link, const stage::Neighbour& neighbour);
    /// Waits for the update by which the Orb router learns of a device, and checks whom it names.
    void ExpectUpdate(unsigned int id, const std::string& hid, bool present);

    /// Waits until the module heartbeat at master control ends in these bytes, in hex.
    void ExpectHeartbeat(const std::string& bytes);

    RoutingScene& mRouting;
    stage::Milliseconds mPatience;
    stage::LogFile mLog;
    std::unique_ptr<stage::Peer> mUpdate;
    std::unique_ptr<stage::Peer> mOrb;
    std::unique_ptr<stage::Peer> mNeighbours[2];
};

} // namespace rehearsal
