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
const Neighbour RouterAt44 = MakeRouter("0x00400023");

constexpr char Accepting[] = "Router detected on downstream ports ACCEPTING";
constexpr char Ignoring[] = "Router detected on downstream ports IGNORING.";

class MasterRouters : public testing::Test
{
protected:
    /// What the Orb router has been told of masters, in order: notifications by number, and restarts.
    std::vector<std::string> Told(Network& network, std::size_t count)
    {
        network.GetOrb().WaitFor(peers::MASTER_ROUTER_NOTIFICATION, static_cast<unsigned int>(count));
        return Network::Values(network.GetOrb(), peers::MASTER_ROUTER_NOTIFICATION);
    }
    /// A router comes to a link, and the module takes it or stays silent towards it.
    void Meet(Network& network, unsigned int link, const Neighbour& router, const char* line)
    {
        network.Plug(link, router);
        const stage::Deadline deadline(stage::Patience);
        while (CountLines(network, line) == mMet[line] && !deadline.HasPassed())
            network.GetNeighbour(link).Tell("module-heartbeat");
        ASSERT_GT(CountLines(network, line), mMet[line]) << line;
        mMet[line] = CountLines(network, line);
    }
    /// Until master control sees this in the module's heartbeat.
    void WaitForModuleHeartbeat(Network& network, const std::string& bytes)
    {
        const stage::Deadline deadline(stage::Patience);
        std::string heard;
        do {
            heard = network.GetOrb().Tell("module-heartbeat").front();
        } while (heard.substr(heard.find(' ') + 1) != bytes && !deadline.HasPassed());
        EXPECT_EQ(heard.substr(heard.find(' ') + 1), bytes);
    }

private:
    static std::size_t CountLines(Network& network, const std::string& text)
    {
        const std::string log = network.GetLog().Text();
        std::size_t count = 0;
        for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1))
            ++count;
        return count;
    }

    std::map<std::string, std::size_t> mMet;
};

TEST_F(MasterRouters, AreFollowedWhereverTheyNameTheMasterUntilBothAreGone)
{
    Network network;
    network.Start();
    Meet(network, 0, Router, Accepting);
    WaitForModuleHeartbeat(network, "96 00 80 40 00");
    Meet(network, 1, MakeRouter("0x00400004"), Accepting);
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

TEST_F(MasterRouters, AtAnotherBaseRateAreToldAndIgnoredAndMasterControlsLinkRestarts)
{
    Network network;
    network.Start();
    Meet(network, 0, RouterAt44, Ignoring);
    EXPECT_THAT(Told(network, 1), ElementsAre("00"));
    network.GetOrb().WaitFor(peers::RESTART_MCS_LINK);
    EXPECT_THAT(Network::Values(network.GetOrb(), peers::RESTART_MCS_LINK), ElementsAre("00 01 12 00"));
    network.Unplug(0);
    EXPECT_THAT(Told(network, 2), ElementsAre("00", "03"));
}

TEST_F(MasterRouters, ThatComeTooLateAreToldOnceAndIgnored)
{
    Network network;
    network.Start(0);
    network.GetOrb().WaitFor(peers::RESTART_MCS_LINK);
    EXPECT_TRUE(network.GetOrb().GetReceived(peers::MASTER_ROUTER_NOTIFICATION).empty());
    Meet(network, 0, Router, Ignoring);
    Meet(network, 1, Router, Ignoring);
    network.Unplug(0);
    network.Unplug(1);
    EXPECT_THAT(Told(network, 2), ElementsAre("02", "03"));
    EXPECT_EQ(network.GetOrb().GetReceived(peers::RESTART_MCS_LINK).size(), 1u);
}

TEST_F(MasterRouters, FindNoneWithTheDefaultIdWillingToFollow)
{
    Network network({}, 0xC001);
    network.StartOrbRouter();
    network.StartUpdateService();
    network.StartModule();
    network.GetLog().WaitForLine("System is running as default routers disallowed by default");
    Meet(network, 0, Router, Ignoring);
    Meet(network, 1, Router, Ignoring);
    network.Unplug(1);
    network.Unplug(0);
    EXPECT_THAT(Told(network, 2), ElementsAre("01", "03"));
    EXPECT_TRUE(network.GetOrb().GetReceived(peers::RESTART_MCS_LINK).empty());
}

} // namespace
