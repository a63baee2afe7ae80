#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/CheckRules.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include <algorithm>

using namespace K2Heartbeat;
using std::chrono::hours;
using std::chrono::milliseconds;

namespace {

std::ptrdiff_t CountOf(const std::string& line, const Lines& lines)
{
    return std::count(lines.begin(), lines.end(), line);
}

RemoteIoUpdate EndlessRates(RemoteDeviceType type)
{
    return RemoteIoUpdate(type, Directory::Names().HidOf("far"), 0x0A141E28, Directory::Names().HidOf("hub"),
                          SampleRates::RATE_48K, RateList(100000, SampleRates::RATE_96K));
}

} // namespace

TEST(NeighbourRulesTest, ThePrimaryLinkDecidesAndTheSecondaryTakesWhatItLeaves)
{
    using NeighbourRules::Neighbour;
    constexpr LinkReport Link{1, 3, 2, Hid(0x00200001), K2_MODULAR_TYPE};
    constexpr NeighbourRules::Local None{};
    constexpr NeighbourRules::Local Same{Link.hid, K2_MODULAR_TYPE, true};
    constexpr NeighbourRules::Local Online{Hid(0x00210001), K2_MODULAR_TYPE, true};
    constexpr NeighbourRules::Local OnSecondary{Hid(0x00210001), K2_MODULAR_TYPE, false};
    constexpr NeighbourRules::Local Gone{Hid(0x00210001), K2_NO_TYPE, false};
    struct Row
    {
        NeighbourRules::Local local;
        /// Of a link and of a stream on it: the primary, and the secondary.
        Neighbour link[2], stream[2];
    };
    const Row rows[] = {
        {None, {Neighbour::Local, Neighbour::Local}, {Neighbour::Local, Neighbour::Local}},
        {Same, {Neighbour::Local, Neighbour::Local}, {Neighbour::Local, Neighbour::Local}},
        {Online, {Neighbour::Next, Neighbour::Refused}, {Neighbour::Next, Neighbour::Refused}},
        {OnSecondary, {Neighbour::Next, Neighbour::Next}, {Neighbour::Next, Neighbour::Refused}},
        {Gone, {Neighbour::Next, Neighbour::Next}, {Neighbour::Next, Neighbour::Next}},
    };
    for (const Row& row : rows) {
        for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
            SCOPED_TRACE(&row - rows);
            EXPECT_EQ(NeighbourRules::OfLink(port, Link, row.local), row.link[port - 1]);
            EXPECT_EQ(NeighbourRules::OfStream(port, Link, row.local), row.stream[port - 1]);
            EXPECT_EQ(NeighbourRules::OfStream(port, LinkReport(), row.local), Neighbour::Unknown);
        }
    }
}

TEST(CheckRulesTest, BoxesAreCheckedOnceHubsOnEachLinkAndOtherRoutersNever)
{
    using CheckRules::Request;
    constexpr SoftwareCheck None = SoftwareCheck::None, UnderWay = SoftwareCheck::UnderWay,
                            Passed = SoftwareCheck::Passed;
    struct Row
    {
        K2Heartbeat::LinkType type;
        SoftwareCheck check, other;
        Request request;
    };
    for (const Row& row :
         {Row{K2_NO_TYPE, Passed, Passed, Request::Nothing}, Row{K2_ROUTER_TYPE, None, None, Request::RouterInfo},
          Row{K2_ORB_TYPE, None, None, Request::RouterInfo}, Row{K2_HUB_TYPE, None, UnderWay, Request::HubCheck},
          Row{K2_HUB_TYPE, Passed, None, Request::HubCheck}, Row{K2_HUB_TYPE, UnderWay, None, Request::RouterInfo},
          Row{K2_AOIP_TYPE, None, None, Request::IoCheck}, Row{K2_MODULAR_TYPE, None, UnderWay, Request::AwaitCheck},
          Row{K2_MODULAR_TYPE, UnderWay, Passed, Request::IoInfo}}) {
        LocalDevice local;
        local.Type = row.type;
        local.Checks = {row.check, row.other};
        EXPECT_EQ(CheckRules::OfStream(local, Side::Primary), row.request) << row.type << ' ' << int(row.check);
    }
}

TEST(DirectoryLimits, CableChecksWithoutEnd)
{
    Directory directory({milliseconds(50), hours(1)});
    directory.Play("router 1");
    for (int i = 0; i < 20; ++i)
        directory.Play("io 1 far 10.20.30.40");
    EXPECT_EQ(CountOf("P0 cable far sec off", directory.TakeAfterTimers(6)), 5);
    directory.Play("io 1 far 10.20.30.40");
    EXPECT_EQ(directory.TakeAfterTimers(1), Lines{"P0 cable far sec off"}) << "there is room again";
}

TEST(DirectoryTimers, TheActiveRouterOfTheSecondaryWaitsAndACancelledWaitSendsAtOnce)
{
    Directory directory({hours(1), milliseconds(50)});
    directory.Play("plug 2");
    directory.Play("box 2 box");
    EXPECT_EQ(directory.TakeAfterTimers(1), Lines{"P2 IO_ACTIVE_ROUTER"});
    EXPECT_EQ(CountOf("P2 IO_ACTIVE_ROUTER", directory.Play("box 2 box")), 0);
    EXPECT_EQ(CountOf("P2 IO_ACTIVE_ROUTER", directory.Play("box 2 box")), 1);
    EXPECT_EQ(directory.TakeAfterTimers(1), Lines{"P2 IO_ACTIVE_ROUTER"});
}

TEST(DirectoryLimits, DevicesWithoutEndMeetALimitThatLetsTheKnownOnesLive)
{
    Directory directory;
    directory.Play("self");
    directory.Play("router 1");
    for (int i = 10; i < 30; ++i)
        directory.Play("io 1 003000" + std::to_string(i) + " 10.20.30.40");
    ExpectTranscript(R"(
node 1 hub2 0.64.5.0 ->
io 1 00300029 10.20.30.40 ->
io 0 00990001 1.63.1.0 self ->
has 00300016 ->
has 00300015 -> known; pri
io 1 00300010 0.0.0.0
io 1 00300029 10.20.30.40
has 00300029 -> known; pri
)",
                     [&](const std::string& event) { return directory.Play(event); });
}

TEST(DirectoryLimits, ACardWithPortsWithoutEndIsCut)
{
    Directory directory;
    directory.Play("plug 1 box modular");
    IoInfoCard::PortNumbers ports(65537, 7);
    ports.front() = 3;
    directory.Deliver(IoInfoCard(Directory::Names().HidOf("box"), 0, "", ports, {}, {}), 1);
    directory.Play("card 1 255 box");
    EXPECT_EQ(directory.Play("in 0"), Lines{"3"});
    EXPECT_EQ(directory.Play("in 65535"), Lines{"7"});
}

TEST(DirectoryLimits, RatesWithoutEndAreCutAlsoInTheLog)
{
    const LogRecorder log;
    Directory directory;
    directory.Play("router 1");
    directory.Deliver(EndlessRates(RemoteDeviceType::Hub), 1);
    EXPECT_TRUE(log.WaitForPart("RemoteIoUpdate type is wrong"));
    EXPECT_LT(log.Lines().back().size(), 1000u);
    directory.Deliver(EndlessRates(RemoteDeviceType::FixedFormat), 1);
    EXPECT_EQ(directory->GetDeviceRecord(Directory::Names().HidOf("far"))->SampleRates.size(), 16u);
}

TEST(DirectoryReports, ThatCannotBeAreRefused)
{
    Directory directory;
    directory.Play("self");
    directory.Play("router 1");
    const LogRecorder log;
    for (const char* event :
         {"io 1 far 10.20.30.40 nobody", "io 1 far 10.20.30.40 hub hub", "io 1 far 10.20.30.40 hub no-type",
          "node 1 self 0.18.5.0", "node 1 hub2 0.64.5.0 modular", "io 255 far 10.20.30.40", "node 255 hub2 0.64.5.0",
          "info 255 hub", "has far"})
        EXPECT_EQ(directory.Play(event), Lines()) << event;
    EXPECT_TRUE(log.WaitForPart(" - Cmd->GetHid() != mHid\r\n"));
}

TEST(DirectoryRoutes, NoReportTouchesTheRoutesOfTheUnit)
{
    Directory directory;
    directory.Play("self");
    directory.Play("hub 1");
    const LogRecorder log;
    for (const char* event :
         {"chain 1 1.63.1.5", "io 1 far 1.63.1.5", "io 1 00300006 0.18.9.1", "node 1 013f8000 1.2.3.4",
          "node 1 013f8000 0.0.0.0", "node 1 00128001 1.2.3.4", "node 1 00128001 0.0.0.0"}) {
        for (const std::string& line : directory.Play(event))
            EXPECT_NE(line.compare(0, 5, "route"), 0) << line;
    }
    const std::string end = ", which is an address of this unit: its route is left alone\r\n";
    EXPECT_EQ(log.Count("A device reports 1.63.1.5" + end), 2u);
    EXPECT_EQ(log.Count("A device reports 0.18.9.1" + end), 1u);
    EXPECT_EQ(log.Count("A device reports 1.63.128.0" + end), 2u);
    EXPECT_EQ(log.Count("A device reports 0.18.128.1" + end), 2u);
}

TEST(ForwardingTest, EveryCommandIsConnectedAndItsTargetFoundWhereItHasIt)
{
    Directory directory;
    EXPECT_EQ(directory.CountCommands(), 35u);
    directory.Play("plug 1");
    const IoPort here(Directory::Names().HidOf("box"), 1, 2);
    const IoPort away(Directory::Names().HidOf("far"), 1, 2);
    directory.Deliver(SetDolbyEModuleSource(away, here), 0);
    directory.Deliver(SetDolbyEModuleSource(here, away), 0);
    directory.Deliver(RenamePortCmd(here, "name"), 0);
    directory.Deliver(RenamePortCmd(away, "name"), 0);
    directory.Deliver(IoSetSampleRateCmd(SampleRates::RATE_96K, here.GetHid(), 30000u), 0);
    directory.Deliver(SetRouterSampleRateCmd(SampleRates::RATE_96K, 0u), 0);
    EXPECT_EQ(directory.Play(""), (Lines{"P1 IO_SET_DOLBYE_SOURCE", "P1 RENAME_PORT", "P1 IO_SET_SAMPLE_RATE",
                                         "P1 SET_ROUTER_SAMPLE_RATE"}));
}
