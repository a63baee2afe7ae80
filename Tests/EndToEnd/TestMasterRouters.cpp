// Master routers on the links of the real program, as the Orb router and master control come to know of them.

#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>

using namespace stage;
using testing::ElementsAre;

namespace {

/// A router's word says, from the low bits on, its number, the network's base rate and the master's rack.
Neighbour MakeRouter(const std::string& word)
{
    return {"router", "0x00408000", 0x40, {"internals " + word}};
}
const Neighbour Router = MakeRouter("0x00400003");

constexpr char Accepting[] = "Router detected on downstream ports ACCEPTING";
constexpr char Ignoring[] = "Router detected on downstream ports IGNORING.";

/// A router comes to a link, and the log has so many lines of how it is met.
void Meet(Network& network, unsigned int link, const Neighbour& router, const std::string& line, std::size_t lines = 1)
{
    network.Plug(link, router);
    const stage::Deadline deadline(stage::Patience);
    while (network.CountInLog(line) < lines && !deadline.HasPassed())
        network.GetNeighbour(link).Tell("module-heartbeat");
    ASSERT_GE(network.CountInLog(line), lines) << line;
}

/// Until master control sees this in the module's heartbeat.
void WaitForModuleHeartbeat(Network& network, const std::string& bytes)
{
    const stage::Deadline deadline(stage::Patience);
    std::string heard;
    while (heard.substr(heard.find(' ') + 1) != bytes && !deadline.HasPassed())
        heard = network.GetOrb().Tell("module-heartbeat").front();
    EXPECT_EQ(heard.substr(heard.find(' ') + 1), bytes);
}

TEST(MasterRouters, AreFollowedWhereverTheyNameTheMasterUntilBothAreGone)
{
    Network network;
    network.Start();
    Meet(network, 0, Router, Accepting);
    WaitForModuleHeartbeat(network, "96 00 80 40 00");
    Meet(network, 1, MakeRouter("0x00400004"), Accepting, 2);
    network.GetNeighbour(1).Tell("internals 0x00510004");
    WaitForModuleHeartbeat(network, "96 00 80 51 00");
    network.Unplug(0);
    network.GetNeighbour(1).Tell("internals 0x00520004");
    WaitForModuleHeartbeat(network, "96 00 80 52 00");
    network.Unplug(1);
    WaitForModuleHeartbeat(network, "96 ff ff ff ff");
    EXPECT_TRUE(network.GetOrb().GetReceived(peers::MASTER_ROUTER_NOTIFICATION).empty());
    EXPECT_TRUE(network.GetOrb().GetReceived(peers::RESTART_MCS_LINK).empty());
}

TEST(MasterRouters, ThatComeTooLateAreReportedOnceAndIgnored)
{
    Network network;
    network.Start(0);
    network.GetOrb().WaitFor(peers::RESTART_MCS_LINK);
    EXPECT_TRUE(network.GetOrb().GetReceived(peers::MASTER_ROUTER_NOTIFICATION).empty());
    Meet(network, 0, Router, Ignoring);
    Meet(network, 1, Router, Ignoring, 2);
    network.Unplug(0);
    network.Unplug(1);
    network.GetOrb().WaitFor(peers::MASTER_ROUTER_NOTIFICATION, 2);
    EXPECT_THAT(Network::Values(network.GetOrb(), peers::MASTER_ROUTER_NOTIFICATION), ElementsAre("02", "03"));
    EXPECT_THAT(Network::Values(network.GetOrb(), peers::RESTART_MCS_LINK), ElementsAre("00 01 12 00"));
}

} // namespace
