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

std::size_t CountIn(const std::string& text, const std::string& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

constexpr char Accepted[] = "Connect to the ORB Router";

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
    EXPECT_EQ(CountIn(network.GetLog().Text(), Accepted), 1u);
    EXPECT_EQ(network.GetOrb().GetReceived(peers::ROUTER_INFO_REQ).size(), 1u);
}

TEST(UpdateService, RefusesABoxAndThenAllowsIt)
{
    Network network;
    network.Start();
    network.GetUpdate().Tell("result 1");
    network.Plug(0, Box);
    network.GetUpdate().WaitFor(peers::DEVICES_TO_CHECK, 2);
    const std::string address = network.GetNeighbour(0).Tell("address").front();
    const std::string own = address.substr(0, address.find(' '));
    for (const std::string result : {"2", "3", "4", "0"})
        network.GetUpdate().Tell("tell " + own + " " + result);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    EXPECT_EQ(network.GetNeighbour(0).GetReceived(peers::IO_INFO_REQ).size(), 1u);
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

/// The states of the box's cables that the Orb router has been told, in order: primary or not, online or not.
std::vector<std::string> CableStates(Network& network)
{
    std::vector<std::string> states;
    for (const std::string& value : Network::Values(network.GetOrb(), peers::REMOTE_CABLE_STATE))
        if (value.compare(0, 11, BoxOnWire) == 0) states.push_back(value.substr(12));
    return states;
}

constexpr char PrimaryUp[] = "01 01";
constexpr char SecondaryUp[] = "00 01";
constexpr char SecondaryDown[] = "00 00";

struct CableCase
{
    const char* name;
    bool waitForCheck;
    std::vector<std::string> states;
};

class TwoCables : public testing::TestWithParam<CableCase>
{};

TEST_P(TwoCables, AreReportedAsTheyAreAfterThreeSeconds)
{
    Network network("IODiscovery");
    network.Start();
    const std::string check = "DelayedCableCheck: for Hid: 0.32:1 , port: Sec";
    network.Plug(0, Box);
    network.WaitForCable(BoxOnWire, PrimaryUp);
    if (GetParam().waitForCheck) network.GetLog().WaitForLine(check);
    network.Plug(1, Box);
    network.WaitForCable(BoxOnWire, SecondaryUp);
    network.GetLog().WaitForLine(check);
    // What the check sends has come once a later command has.
    network.GetNeighbour(0).Tell("command 816 u32:0x00200001 u16:1 u8:1");
    network.GetOrb().WaitFor(peers::IO_OUTPUT_MUTE);
    EXPECT_EQ(CableStates(network), GetParam().states);
}

INSTANTIATE_TEST_SUITE_P(Network, TwoCables,
                         testing::Values(CableCase{"WithinTheTime", false, {PrimaryUp, SecondaryUp}},
                                         CableCase{"BeyondTheTime", true, {PrimaryUp, SecondaryDown, SecondaryUp}}),
                         [](const auto& each) { return each.param.name; });

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

TEST(Network, ABoxThatAnotherReplacesOnThePrimaryLinkIsGoneAndMayComeBack)
{
    constexpr Sample Bus{3, 0};
    Network network;
    network.Start();
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    network.Plug(1, Box);
    network.WaitForCable(BoxOnWire, SecondaryUp);
    stage::ControlChannel control = network.GetModule().OpenControl();
    network.GetOrb().Tell("patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5");
    control.WaitForRoute(Bus, Sample{1, 3});
    network.Unplug(0);
    control.WaitForRoute(Bus, Sample{2, 3});
    network.Plug(0, OtherBox);
    control.WaitForRoute(Bus, std::nullopt);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid, false);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, OtherBox.hid);
    network.Unplug(0);
    network.GetOrb().Tell("clear");
    network.Plug(0, Box);
    network.WaitForCable(BoxOnWire, PrimaryUp);
    network.WaitForCable(BoxOnWire, SecondaryUp);
}

struct Way
{
    unsigned int id;
    std::string fields;
    std::string bytes;
    bool down;
};

/// Sends each command in its direction and sees it come out unchanged, on the stream where it belongs.
void ExpectForwarded(Network& network, const std::vector<Way>& ways, const std::string& stream)
{
    Peer& neighbour = network.GetNeighbour(0);
    for (const Way& way : ways) {
        SCOPED_TRACE(std::to_string(way.id) + (way.down ? " to the device" : " to the Orb router"));
        Peer& from = way.down ? network.GetOrb() : neighbour;
        Peer& to = way.down ? neighbour : network.GetOrb();
        const std::string id = std::to_string(way.id);
        from.Tell("command " + id + " " + way.fields + " on=" + (way.down ? "local" : stream));
        to.WaitFor(way.id);
        const std::vector<std::string> lines = to.Tell("received " + id);
        EXPECT_THAT(lines, ElementsAre(AllOf(HasSubstr(" " + (way.down ? stream : "local") + " " + id + " "),
                                             EndsWith(" " + way.bytes))));
        to.Tell("clear");
    }
}

TEST(Network, CommandsGoBothWaysBetweenTheOrbRouterAndTheBox)
{
    Network network;
    network.Start();
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    const std::string mute = "u32:0x00200001 u16:3 u8:1";
    const std::string gpi = "u32:0x00200001 u16:2 u16:1 u8:1";
    ExpectForwarded(network,
                    {{peers::IO_OUTPUT_MUTE, mute, "01 00 20 00 03 00 01", true},
                     {peers::IO_OUTPUT_MUTE, mute, "01 00 20 00 03 00 01", false},
                     {peers::IO_GPI_UPDATE, gpi, "01 00 20 00 02 00 01 00 01", true},
                     {peers::IO_GPI_UPDATE, gpi, "01 00 20 00 02 00 01 00 01", false}},
                    "local");
    // One that only goes up: sent down it is dropped, and the next one passes it.
    const std::string failure = "u32:0x00200001 u8:4 u32:1";
    network.GetOrb().Tell("command 871 " + failure);
    ExpectForwarded(network, {{peers::IO_OUTPUT_MUTE, mute, "01 00 20 00 03 00 01", true}}, "local");
    EXPECT_THAT(network.GetNeighbour(0).GetReceived(peers::MOD_IO_CARD_FAILURE), IsEmpty());
}

TEST(Network, CommandsGoBothWaysToABoxBehindAHubAndTheHubGoesWithItsBox)
{
    Network network;
    network.Start();
    network.Plug(0, HubWithBox);
    network.GetOrb().WaitForUpdate(peers::REMOTE_ROUTER_UPDATE, HubWithBox.hid);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
    const std::string mute = "u32:0x00300002 u16:3 u8:0";
    ExpectForwarded(network,
                    {{peers::IO_OUTPUT_MUTE, mute, "02 00 30 00 03 00 00", true},
                     {peers::IO_OUTPUT_MUTE, mute, "02 00 30 00 03 00 00", false}},
                    "data");
    Peer& hub = network.GetNeighbour(0);
    // Its boxes come and go.
    hub.Tell("device-gone 0x00300002");
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid, false);
    network.GetOrb().Tell("clear");
    hub.Tell("device 0x00300002 fixed 0.48.9.1");
    hub.Tell("of 0x00300002 card 0 QV1410");
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
    network.GetOrb().Tell("clear");
    network.Unplug(0);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid, false);
    network.GetOrb().WaitForUpdate(peers::REMOTE_ROUTER_UPDATE, HubWithBox.hid, false);
}

/// A neighbour on the secondary link, a patch with it, and the route that comes of it.
struct OrbRestartCase
{
    const char* name;
    const Neighbour& neighbour;
    const char* device;
    const char* patch;
    Sample sink;
    Sample source;
};

class OrbRestart : public testing::TestWithParam<OrbRestartCase>
{};

TEST_P(OrbRestart, LeavesTheRoutesToTheirDevicesAndIsToldOfThemAgain)
{
    const OrbRestartCase& scene = GetParam();
    Network network;
    const auto vanish = [&network] {
        const std::string end = "OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false";
        const std::size_t before = CountIn(network.GetLog().Text(), end);
        network.GetOrb().Tell("vanish");
        const stage::Deadline deadline(stage::Patience);
        ShellClient shell = network.GetModule().OpenShell();
        shell.StopTailing();
        while (CountIn(network.GetLog().Text(), end) == before && !deadline.HasPassed())
            shell.Ask("version");
        // What the end has posted is done when a command that came later is answered.
        shell.Ask("version");
        EXPECT_GT(CountIn(network.GetLog().Text(), end), before);
    };
    network.Start();
    network.Plug(1, scene.neighbour);
    Peer& orb = network.GetOrb();
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, scene.device);
    stage::ControlChannel control = network.GetModule().OpenControl();
    orb.Tell(scene.patch);
    control.WaitForRoute(scene.sink, scene.source);
    vanish();
    EXPECT_EQ(control.Probe(scene.sink), scene.source);
    // It names itself, the module takes its links down and up, and the patch is made again.
    orb.Tell("clear");
    orb.Tell("appear");
    orb.Tell("connect 55000");
    orb.WaitForUpdate(peers::REMOTE_IO_UPDATE, scene.device);
    EXPECT_EQ(CountIn(network.GetLog().Text(), "OnLocalHidChanged Hid Now Is 0.18:8000"), 2u);
    orb.Tell(scene.patch);
    control.WaitForRoute(scene.sink, scene.source);
    // What leaves while the Orb router is away leaves no route.
    vanish();
    network.Unplug(1);
    control.WaitForRoute(scene.sink, std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Network, OrbRestart,
                         testing::Values(OrbRestartCase{"OfABox",
                                                        Box,
                                                        Box.hid.c_str(),
                                                        "patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5",
                                                        {3, 0},
                                                        {2, 3}},
                                         OrbRestartCase{"OfAHub",
                                                        HubWithBox,
                                                        HubBoxHid,
                                                        "patch src=0x00120001:1:2 link=0 slots=21 dest=0x00300002:2:1",
                                                        {2, 0},
                                                        {3, 21}}),
                         [](const auto& each) { return each.param.name; });

TEST(Network, AHubThatReportsBeforeItsDataLinkIsUpKeepsItsBoxes)
{
    Neighbour hub = HubWithBox;
    hub.lines.emplace_back("at-once on");
    Network network;
    network.Start();
    network.Plug(0, hub);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
}

TEST(Network, ARouterThatOpensItsStreamAgainIsToldTheOwnIoAgain)
{
    Network network;
    network.Start();
    network.Plug(0, {"router", "0x00408000", 0x40, {"internals 0x00400003"}});
    Peer& router = network.GetNeighbour(0);
    router.WaitForUpdate(peers::REMOTE_IO_UPDATE, "0x00120001");
    router.Tell("disconnect local");
    router.Tell("clear");
    router.WaitForUpdate(peers::REMOTE_IO_UPDATE, "0x00120001");
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

TEST(Network, AFloodOfReportsHoldsNobodyUpForLong)
{
    Network network;
    network.Start();
    network.Plug(0, HubWithBox);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
    Peer& hub = network.GetNeighbour(0);
    constexpr unsigned int count = 400;
    hub.Tell("flood 0x00400000 " + std::to_string(count));
    // While they come, the shell answers, and patches are made.
    ShellClient shell = network.GetModule().OpenShell();
    shell.StopTailing();
    EXPECT_THAT(shell.Ask("version"), HasSubstr("1.0.2452"));
    EXPECT_EQ(shell.Ask("patch 0 5 1 7"), "");
    network.GetModule().OpenControl().WaitForRoute({FirstLinkEndpoint, 7}, Sample{BulkEndpoint, 5});
    hub.WaitFor(peers::IO_INFO_DEV_REQ, count + 1, std::chrono::minutes(1));
    // And the neighbour was never taken for gone.
    network.GetOrb().WaitForUpdate(peers::REMOTE_ROUTER_UPDATE, HubWithBox.hid);
    EXPECT_EQ(network.GetModule().Stop().Text(), "exit code 0");
}

} // namespace
