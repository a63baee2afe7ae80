#include "Simulation/Stage/UdpSocket.h"
#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

using namespace stage;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

/// States of a cable as the Orb router hears of them: primary or not, online or not.
constexpr char PrimaryUp[] = "01 01";
constexpr char SecondaryUp[] = "00 01";
constexpr char SecondaryDown[] = "00 00";

TEST(UpdateService, IsAbsentAtFirstThenRefusesAndThenAllows)
{
    Network network;
    network.StartOrbRouter();
    network.StartModule();
    // The first attempt to reach it has failed by the time the heartbeats run.
    network.GetLog().WaitForLine("Run...........");
    network.StartUpdateService("result 1");
    network.GetUpdate().WaitFor(peers::DEVICES_TO_CHECK);
    for (const std::string result : {"2", "3", "4"})
        network.GetUpdate().Tell("tell 1.63.5.0 " + result);
    // The results are taken in order: had a refusal counted, there would be more than this one connection.
    network.GetUpdate().Tell("tell 1.63.5.0 0");
    network.GetOrb().WaitFor(peers::ROUTER_INFO_REQ);
    network.GetOrb().WaitFor(peers::IO_INFO_REQ);
    EXPECT_EQ(network.CountInLog("Connect to the ORB Router"), 1u);
    EXPECT_EQ(network.GetOrb().GetReceived(peers::ROUTER_INFO_REQ).size(), 1u);
}

TEST(UpdateService, ThatRestartsChecksTheModuleAgain)
{
    Network network;
    network.Start();
    network.GetUpdate().Tell("clear");
    network.GetUpdate().Tell("vanish");
    network.GetUpdate().Tell("appear");
    network.GetUpdate().Tell("connect 55000 source=49190");
    network.GetUpdate().WaitFor(peers::DEVICES_TO_CHECK);
    // And serves again: a box that comes now is checked.
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
}

TEST(Network, TwoCablesAreReportedAsTheyAreAfterThreeSeconds)
{
    for (const bool beyondTheTime : {false, true}) {
        Network network("IODiscovery");
        network.Start();
        const std::string check = "DelayedCableCheck: for Hid: 0.32:1 , port: Sec";
        network.Plug(0, Box);
        network.WaitForCable(BoxOnWire, PrimaryUp);
        if (beyondTheTime) network.GetLog().WaitForLine(check);
        network.Plug(1, Box);
        network.WaitForCable(BoxOnWire, SecondaryUp);
        network.GetLog().WaitForLine(check);
        // What the check sends has come once a later command has.
        network.GetNeighbour(0).Tell("command 816 u32:0x00200001 u16:1 u8:1");
        network.GetOrb().WaitFor(peers::IO_OUTPUT_MUTE);
        std::vector<std::string> states;
        for (const std::string& value : Network::Values(network.GetOrb(), peers::REMOTE_CABLE_STATE))
            if (value.compare(0, 11, BoxOnWire) == 0) states.push_back(value.substr(12));
        std::vector<std::string> expected{PrimaryUp, SecondaryUp};
        if (beyondTheTime) expected.insert(expected.begin() + 1, SecondaryDown);
        EXPECT_EQ(states, expected);
    }
}

TEST(Network, ABoxThatIsNotTheOneOnThePrimaryLinkIsRefused)
{
    Network network;
    network.Start();
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    network.Plug(1, OtherBox);
    network.GetOrb().WaitFor(peers::MIXED_HID_ERROR);
    network.Unplug(1);
    network.GetOrb().WaitFor(peers::MIXED_HID_ERROR, 2);
    EXPECT_THAT(Network::Values(network.GetOrb(), peers::MIXED_HID_ERROR), ElementsAre("01", "00"));
    // The right one is none the worse for it, and is welcome there.
    network.Plug(1, Box);
    network.WaitForCable(BoxOnWire, SecondaryUp);
}

TEST(Network, CommandsPassBothWaysToABoxOfAHubAndTheHubLeavesWithItsBox)
{
    Network network;
    network.Start();
    network.Plug(0, HubWithBox);
    Peer& orb = network.GetOrb();
    Peer& hub = network.GetNeighbour(0);
    orb.WaitForUpdate(peers::REMOTE_ROUTER_UPDATE, HubWithBox.hid);
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
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
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid, false);
    orb.Tell("clear");
    hub.Tell("device 0x00300002 fixed 0.48.9.1");
    hub.Tell("of 0x00300002 card 0 QV1410");
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
    orb.Tell("clear");
    network.Unplug(0);
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid, false);
    orb.WaitForUpdate(peers::REMOTE_ROUTER_UPDATE, HubWithBox.hid, false);
}

TEST(Network, DevicesThatAHubReportsBeforeItsDataLinkAreAskedForOnceItIsUp)
{
    Neighbour hub = HubWithBox;
    hub.lines.emplace_back("at-once on");
    Network network;
    network.Start();
    network.Plug(0, hub);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
}

/// A neighbour on a link, a patch with it, and the route that comes of it.
struct OrbRestart
{
    unsigned int link;
    const Neighbour& neighbour;
    const char* device;
    const char* patch;
    Sample sink, source;
};

/// What the end of the stream has posted is done when a command that came later is answered.
void Vanish(Network& network)
{
    const std::string end = "OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false";
    const std::size_t before = network.CountInLog(end);
    network.GetOrb().Tell("vanish");
    const stage::Deadline deadline(stage::Patience);
    ShellClient shell = network.GetModule().OpenShell();
    shell.StopTailing();
    while (network.CountInLog(end) == before && !deadline.HasPassed())
        shell.Ask("version");
    shell.Ask("version");
    EXPECT_GT(network.CountInLog(end), before);
}

TEST(Network, AnOrbRouterThatRestartsLeavesTheRoutesAndIsInformedAgain)
{
    const char* const fromBox = "patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5";
    const char* const toHub = "patch src=0x00120001:1:2 link=0 slots=21 dest=0x00300002:2:1";
    for (const OrbRestart& scene : {OrbRestart{0, Box, "0x00200001", fromBox, {3, 0}, {1, 3}},
                                    {1, Box, "0x00200001", fromBox, {3, 0}, {2, 3}},
                                    {0, HubWithBox, HubBoxHid, toHub, {1, 0}, {3, 21}},
                                    {1, HubWithBox, HubBoxHid, toHub, {2, 0}, {3, 21}}}) {
        SCOPED_TRACE(scene.device + (" on link " + std::to_string(scene.link)));
        Network network;
        network.Start();
        network.Plug(scene.link, scene.neighbour);
        Peer& orb = network.GetOrb();
        orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, scene.device);
        stage::ControlChannel control = network.GetModule().OpenControl();
        orb.Tell(scene.patch);
        control.WaitForRoute(scene.sink, scene.source);
        Vanish(network);
        EXPECT_EQ(control.Probe(scene.sink), scene.source);
        // It names itself, the module takes its links down and up, and the patch is made again.
        orb.Tell("clear");
        orb.Tell("appear");
        orb.Tell("connect 55000");
        orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, scene.device);
        EXPECT_EQ(network.CountInLog("OnLocalHidChanged Hid Now Is 0.18:8000"), 2u);
        orb.Tell(scene.patch);
        control.WaitForRoute(scene.sink, scene.source);
        // What leaves while the Orb router is away leaves no route.
        Vanish(network);
        network.Unplug(scene.link);
        control.WaitForRoute(scene.sink, std::nullopt);
    }
}

TEST(Network, TheTimeOfTheNetworkIsTheTimeOfTheLog)
{
    Network network;
    network.Start();
    // 3 February 2033, 04:05:06 UTC.
    stage::UdpSocket(stage::UnitNamespace, "0.0.0.0", 0).SendTo("1.63.5.0", 49156, "\x14\x72\x7f\xac\x76");
    network.GetLog().WaitForLine("Added to Audit");
    network.Plug(0, Box);
    EXPECT_THAT(network.GetLog().WaitForLine("LinkManager::Receive New device"), StartsWith("[03/02/33 04:05:"));
}

} // namespace
