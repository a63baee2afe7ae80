#include "Simulation/Stage/UdpSocket.h"
#include "Tests/EndToEnd/Network.h"

using namespace stage;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST(UpdateService, IsAbsentAtFirstThenRefusesThenAllowsAndChecksAgainAfterItsRestart)
{
    Unit unit;
    unit.StartOrbRouter();
    unit.module.emplace();
    // The first attempt to reach it has failed by the time the heartbeats run.
    unit.log.WaitForLine("Run...........");
    unit.StartUpdateService("result 1");
    unit.update->WaitFor(peers::DEVICES_TO_CHECK);
    for (const std::string result : {"2", "3", "4", "0"})
        unit.update->Tell("tell 1.63.5.0 " + result);
    // The results are taken in order: had a refusal counted, there would be more than this one connection.
    unit.orb->WaitFor(peers::ROUTER_INFO_REQ);
    unit.orb->WaitFor(peers::IO_INFO_REQ);
    EXPECT_EQ(unit.CountInLog("Connect to the ORB Router"), 1u);
    EXPECT_EQ(unit.orb->GetReceived(peers::ROUTER_INFO_REQ).size(), 1u);
    unit.log.WaitForLine("Start Router Ignore Timer");
    for (const std::string line : {"clear", "result 0", "vanish", "appear", "connect 55000 source=49190"})
        unit.update->Tell(line);
    unit.update->WaitFor(peers::DEVICES_TO_CHECK);
    // And serves again: a box that comes now is checked.
    unit.Connect(0, Box);
}

TEST(Network, CommandsPassBothWaysToABoxOfAHubAndTheHubLeavesWithItsBox)
{
    Unit unit;
    unit.Start();
    unit.Connect(0, HubWithBox);
    Peer& orb = *unit.orb;
    Peer& hub = *unit.neighbours[0];
    // A command that only goes up is dropped on its way down.
    orb.Tell("command 871 u32:0x00300002 u8:4 u32:1");
    for (const bool down : {true, false}) {
        Peer& to = down ? hub : orb;
        (down ? orb : hub).Tell(std::string("command 816 u32:0x00300002 u16:3 u8:0 on=") + (down ? "local" : "data"));
        to.WaitFor(peers::IO_OUTPUT_MUTE);
        EXPECT_THAT(to.Tell("received 816"), ElementsAre(AllOf(HasSubstr(down ? " data 816 " : " local 816 "),
                                                               EndsWith(" 02 00 30 00 03 00 00"))));
        EXPECT_THAT(hub.GetReceived(peers::MOD_IO_CARD_FAILURE), IsEmpty());
        orb.Tell("clear");
    }
    hub.Tell("device-gone 0x00300002");
    unit.WaitForDevice(HubBoxHid, false);
    orb.Tell("clear");
    for (const std::string& line : HubWithBox.lines)
        hub.Tell(line);
    unit.WaitForDevice(HubBoxHid);
    orb.Tell("clear");
    unit.Unplug(0);
    unit.WaitForDevice(HubBoxHid, false);
    unit.WaitForDevice(HubWithBox.hid, false);
}

/// What the end of the stream has posted is done when a command that came later is answered.
void Vanish(Unit& unit)
{
    const std::string end = "OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false";
    const std::size_t before = unit.CountInLog(end);
    unit.orb->Tell("vanish");
    EXPECT_TRUE(Await([&] { return unit.CountInLog(end) > before; }));
    ShellClient shell = unit.module->OpenShell();
    shell.StopTailing();
    shell.Ask("version");
}

TEST(Network, AnOrbRouterThatRestartsLeavesTheRoutesAndIsInformedAgain)
{
    const std::string toHub = "patch src=0x00120001:1:2 link=0 slots=21 dest=0x00300002:2:1";
    for (const unsigned int link : {0u, 1u}) {
        for (const bool isBox : {true, false}) {
            SCOPED_TRACE((isBox ? "box on link " : "hub on link ") + std::to_string(link));
            const Sample sink = isBox ? Sample{BulkEndpoint, 0} : Sample{FirstLinkEndpoint + link, 0};
            const Sample source = isBox ? Sample{FirstLinkEndpoint + link, 3} : Sample{BulkEndpoint, 21};
            Unit unit;
            unit.Start();
            unit.Connect(link, isBox ? Box : HubWithBox);
            ControlChannel control = unit.module->OpenControl();
            unit.orb->Tell(isBox ? PatchFromBox : toHub);
            control.WaitForRoute(sink, source);
            Vanish(unit);
            EXPECT_EQ(control.Probe(sink), source);
            // It names itself, the module takes its links down and up, and the patch is made again.
            for (const std::string line : {"clear", "appear", "connect 55000"})
                unit.orb->Tell(line);
            unit.WaitForDevice(isBox ? Box.hid : HubBoxHid);
            EXPECT_EQ(unit.CountInLog("OnLocalHidChanged Hid Now Is 0.18:8000"), 2u);
            unit.orb->Tell(isBox ? PatchFromBox : toHub);
            control.WaitForRoute(sink, source);
            // What leaves while the Orb router is away leaves no route.
            Vanish(unit);
            unit.Unplug(link);
            control.WaitForRoute(sink, std::nullopt);
        }
    }
}

TEST(Network, TheTimeOfTheNetworkIsTheTimeOfTheLog)
{
    Unit unit;
    unit.Start();
    // 3 February 2033, 04:05:06 UTC.
    UdpSocket(UnitNamespace, "0.0.0.0", 0).SendTo(ModuleAddress, 49156, "\x14\x72\x7f\xac\x76");
    unit.log.WaitForLine("Added to Audit");
    unit.Plug(0, Box);
    EXPECT_THAT(unit.log.WaitForLine("LinkManager::Receive New device"), testing::StartsWith("[03/02/33 04:05:"));
}

/// A router's word says, from the low bits on, its number, the network's base rate and the master's rack.
Neighbour MakeRouter(const std::string& word)
{
    return {"router", "0x00408000", 0x40, {"internals " + word}};
}

/// A router comes to a link, and the log has so many lines of how it is met.
void Meet(Unit& unit, unsigned int link, const std::string& word, const std::string& manner, std::size_t lines = 1)
{
    unit.Plug(link, MakeRouter(word));
    const std::string line = "Router detected on downstream ports " + manner;
    EXPECT_TRUE(Await([&] { return unit.CountInLog(line) >= lines; })) << line;
}

/// Until master control sees this in the module's heartbeat.
void WaitForModuleHeartbeat(Unit& unit, const std::string& bytes)
{
    std::string heard;
    const auto isHeard = [&] {
        heard = unit.orb->Tell("module-heartbeat").front();
        return heard.substr(heard.find(' ') + 1) == bytes;
    };
    EXPECT_TRUE(Await(isHeard)) << heard;
}

TEST(MasterRouters, AreFollowedWhereverTheyNameTheMasterUntilBothAreGone)
{
    Unit unit;
    unit.Start();
    Meet(unit, 0, "0x00400003", "ACCEPTING");
    WaitForModuleHeartbeat(unit, "96 00 80 40 00");
    Meet(unit, 1, "0x00400004", "ACCEPTING", 2);
    unit.neighbours[1]->Tell("internals 0x00510004");
    WaitForModuleHeartbeat(unit, "96 00 80 51 00");
    unit.Unplug(0);
    unit.neighbours[1]->Tell("internals 0x00520004");
    WaitForModuleHeartbeat(unit, "96 00 80 52 00");
    unit.Unplug(1);
    WaitForModuleHeartbeat(unit, "96 ff ff ff ff");
    EXPECT_THAT(unit.orb->GetReceived(peers::MASTER_ROUTER_NOTIFICATION), IsEmpty());
    EXPECT_THAT(unit.orb->GetReceived(peers::RESTART_MCS_LINK), IsEmpty());
}

TEST(MasterRouters, ThatComeTooLateAreReportedOnceAndIgnored)
{
    Unit unit;
    unit.Start(0);
    unit.orb->WaitFor(peers::RESTART_MCS_LINK);
    EXPECT_THAT(unit.orb->GetReceived(peers::MASTER_ROUTER_NOTIFICATION), IsEmpty());
    Meet(unit, 0, "0x00400003", "IGNORING.");
    Meet(unit, 1, "0x00400003", "IGNORING.", 2);
    unit.Unplug(0);
    unit.Unplug(1);
    unit.orb->WaitFor(peers::MASTER_ROUTER_NOTIFICATION, 2);
    EXPECT_THAT(Unit::Values(*unit.orb, peers::MASTER_ROUTER_NOTIFICATION), ElementsAre("02", "03"));
    EXPECT_THAT(Unit::Values(*unit.orb, peers::RESTART_MCS_LINK), ElementsAre("00 01 12 00"));
}

} // namespace
