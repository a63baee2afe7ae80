#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/CheckRules.h"

#include <algorithm>

namespace {

class LocalDeviceTest : public DirectoryTest
{
protected:
    static constexpr std::uint32_t OtherHid = 0x00210001;

    LocalDeviceTest() { Take(); }
    Lines Describe(UINT8GIGEPORT port)
    {
        mDevices.ProcessIOCmd(std::make_shared<IoInfo>(BoxHid, 1, IoInfo::SlotNames{"QV1320"}), port, Local);
        return Take();
    }
    Lines NameRouter(UINT8GIGEPORT port, RemoteDeviceType type)
    {
        mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, type, 512, 512, 0), port, Local);
        return Take();
    }
    /// The cable, and then the end of the stream on it.
    Lines Unplug(UINT8GIGEPORT port)
    {
        LinkDown(port, BoxHid);
        StreamGone(port);
        return Take();
    }
};

bool Has(const Lines& lines, const std::string& line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class CableCheckTest : public DirectoryTest
{
protected:
    CableCheckTest() : DirectoryTest({std::chrono::milliseconds(300), std::chrono::hours(1)}) { Take(); }
};

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

TEST_F(LocalDeviceTest, ABoxOnTheSecondaryThatIsStillCheckedGivesWayToThePrimary)
{
    KnowSelf();
    LinkUp(2, OtherHid, K2_FIXED_FORMAT_TYPE);
    StreamUp(2);
    EXPECT_EQ(LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE), (Lines{"connect 0.32.0.254 1 55000", "changed 00210001 2 off"}));
    EXPECT_EQ(Checked("0.32.32.254"), Lines()) << "the check of the other lets nobody in";
    EXPECT_FALSE(mDevices.IsLocalIo(OtherHid));
    EXPECT_EQ(StreamGone(2), Lines()) << "that stream was not used any more";
    EXPECT_EQ(StreamUp(1), (Lines{"update Check '1.63.5.0' 0.32.0.254 kind 1 method 0 enabled 1 side 2 id 00200001"}));
    EXPECT_EQ(All({StreamUp(2), Checked("0.32.0.254")}), (Lines{"P1 IO_INFO_REQ"}));
    EXPECT_FALSE(mDevices.IsDeviceOnline(BoxHid, Routing::SECONDARY_PORT)) << "that cable is not its own";
}

TEST_F(LocalDeviceTest, TheCheckOfADeviceNamesItsKind)
{
    EXPECT_EQ(StreamUp(0, StreamType::UPDATE_LINK),
              (Lines{"update Check '' 1.63.5.0 kind 10 method 1 enabled 1 side 3 id ffffffff"}));
    const std::tuple<std::uint32_t, K2Heartbeat::LinkType, const char*> cases[] = {
        {BoxHid, K2_FIXED_FORMAT_TYPE, "1 method 0 enabled 1 side 2 id 00200001"},
        {BoxHid, K2_AOIP_TYPE, "11 method 0 enabled 1 side 2 id 00200001"},
        {BoxHid, K2_MODULAR_TYPE, "0 method 0 enabled 1 side 2 id 00200001"},
        {0x00200201, K2_FIXED_FORMAT_TYPE, "1 method 0 enabled 1 side 2 id 00200201"},
        {0x00200201, K2_MODULAR_TYPE, "8 method 0 enabled 1 side 2 id 00200201"}};
    for (const auto& [hid, type, rest] : cases) {
        LinkUp(1, hid, type);
        EXPECT_EQ(StreamUp(1), (Lines{"update Check '1.63.5.0' 0.32.0.254 kind " + std::string(rest)}));
        LinkDown(1, hid);
        StreamGone(1);
    }
}

TEST_F(LocalDeviceTest, OfTwoLinksTheFirstStreamAsksForTheCheckAndBothForTheDescription)
{
    LinkUp(1, BoxHid, K2_MODULAR_TYPE);
    LinkUp(2, BoxHid, K2_MODULAR_TYPE);
    EXPECT_EQ(StreamUp(2), (Lines{"update Check '1.63.5.0' 0.32.32.254 kind 0 method 0 enabled 1 side 2 id 00200001"}));
    EXPECT_EQ(StreamUp(1), Lines());
    EXPECT_EQ(Checked("0.32.32.254", 1), Lines()) << "a failed check stays under way";
    EXPECT_EQ(Checked("0.32.32.254"), (Lines{"P1 IO_INFO_REQ", "P2 IO_INFO_REQ"}));
    EXPECT_EQ(StreamUp(1), (Lines{"P1 IO_INFO_REQ"})) << "checked on one link is checked";
}

TEST_F(LocalDeviceTest, BoxesOfTheOtherClassesAreAskedByTheExtendedRequest)
{
    for (const std::uint32_t hid : {0x00200101u, 0x00200201u}) {
        LinkUp(1, hid, K2_FIXED_FORMAT_TYPE);
        StreamUp(1);
        EXPECT_EQ(Checked("0.32.0.254"), (Lines{"P1 IO_INFO_REQ_EX", "P2 IO_INFO_REQ_EX"}));
        Unplug(1);
    }
}

TEST_F(LocalDeviceTest, OnlyALostLinkForgetsTheCheck)
{
    for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        SCOPED_TRACE(int{port});
        const std::string number = std::to_string(port);
        PlugBox(port);
        StreamGone(port);
        LinkUp(port, BoxHid, K2_FIXED_FORMAT_TYPE);
        EXPECT_EQ(StreamUp(port), (Lines{"P" + number + " IO_INFO_REQ"})) << "the stream alone was lost";
        LinkDown(port, BoxHid, K2_FIXED_FORMAT_TYPE);
        LinkUp(port, BoxHid, K2_FIXED_FORMAT_TYPE);
        EXPECT_EQ(StreamUp(port), (Lines{"P" + number + " IO_INFO_REQ"})) << "the box stopped beating";
        EXPECT_EQ(All({LinkDown(port, BoxHid), LinkUp(port, BoxHid, K2_FIXED_FORMAT_TYPE)}),
                  (Lines{"disconnect " + number, "connect " + AddressText(FarIp(port)) + " " + number + " 55000"}));
        EXPECT_EQ(StreamUp(port).front().substr(0, 6), "update") << "a box that was plugged anew is checked anew";
        Unplug(port);
    }
}

TEST_F(LocalDeviceTest, AHubIsCheckedOnEachLinkAndARouterOnNone)
{
    LinkUp(2, RouterHid, K2_HUB_TYPE);
    EXPECT_EQ(StreamUp(2), (Lines{"update Check '1.63.5.0' 0.32.32.254 kind 7 method 1 enabled 1 side 1 id 00000030"}));
    EXPECT_EQ(StreamUp(2), (Lines{"P2 ROUTER_INFO_REQ"})) << "a check is under way";
    EXPECT_EQ(Checked("9.9.9.9"), (Lines{"P2 ROUTER_INFO_REQ"}))
        << "what is not the primary's counts as the secondary's";
    LinkUp(1, RouterHid, K2_ORB_TYPE);
    EXPECT_EQ(StreamUp(1), (Lines{"P1 ROUTER_INFO_REQ"}));
}

TEST_F(LocalDeviceTest, AStreamWithoutADeviceIsNotUsedAndLeavesNoTrace)
{
    EXPECT_EQ(All({StreamUp(1), StreamGone(1), StreamUp(255), StreamUp(2, StreamType::MASTER_LINK),
                   StreamUp(2, StreamType::UNKNOWN_STREAM)}),
              Lines());
    EXPECT_EQ(Stream(2, StreamType::SLAVE_LINK, true, 0x01020600), (Lines{"slave 1.2.6.0 IO_INFO_REQ"}));
}

TEST_F(LocalDeviceTest, ABoxIsReportedGoneWithItsLastLinkOnly)
{
    KnowSelf();
    PlugBox(1);
    PlugBox(2);
    EXPECT_EQ(StreamGone(1), (Lines{"P0 Cable 00200001 pri off", "changed 00200001 1 off"}));
    EXPECT_EQ(StreamGone(2), (Lines{"P0 Io 1 00200001 0.0.0.0 00128000", "P0 Cable 00200001 sec off",
                                    "P0 Cable 00200001 pri off", "changed 00200001 2 off"}));
    EXPECT_TRUE(mDevices.IsLocalIo(BoxHid)) << "the identity stays until the next heartbeat";
}

TEST_F(LocalDeviceTest, TheEndOfTheOrbRoutersStreamTouchesNoDevice)
{
    KnowSelf();
    StreamUp(0);
    PlugRouter(2, K2_HUB_TYPE);
    Report(2, Behind, BehindIp);
    EXPECT_EQ(StreamGone(0), Lines());
    const Lines lines = StreamGone(2);
    EXPECT_TRUE(Has(lines, "changed 00300005 2 off") && Has(lines, "changed 00304000 2 off"));
}

TEST_F(LocalDeviceTest, ABoxThatAnotherReplacesIsGoneAtOnceAndMayComeBack)
{
    KnowSelf();
    PlugBox(1);
    PlugBox(2);
    Describe(2);
    Unplug(1);
    EXPECT_EQ(LinkUp(1, OtherHid, K2_FIXED_FORMAT_TYPE),
              (Lines{"disconnect 2", "P0 Io 1 00200001 0.0.0.0 00128000", "P0 Cable 00200001 sec off",
                     "P0 Cable 00200001 pri off", "connect 0.32.0.254 1 55000", "changed 00200001 2 off"}));
    EXPECT_EQ(StreamGone(2), Lines());
    EXPECT_FALSE(mDevices.IsLocalIo(BoxHid));
    EXPECT_EQ(StreamUp(1).front().substr(0, 6), "update") << "the new one is checked";
    Unplug(1);
    EXPECT_EQ(LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE),
              (Lines{"connect 0.32.0.254 1 55000", "connect 0.32.32.254 2 55000"}));
    EXPECT_EQ(LinkUp(1, RouterHid, K2_HUB_TYPE), (Lines{"connect 0.32.0.254 1 55000"}))
        << "without a stream there is nothing to end";
}

TEST_F(LocalDeviceTest, ADescriptionFromBeforeABoxIsLocalIsForgotten)
{
    LinkUp(1, OtherHid, K2_FIXED_FORMAT_TYPE);
    Describe(2);
    PlugBox(1);
    Describe(1);
    EXPECT_EQ(mDevices.GetInputLinkSlot(BoxHid, 3), std::vector<std::uint32_t>{3});
}

TEST_F(LocalDeviceTest, AHubThatABoxReplacesTakesItsDevicesWithIt)
{
    KnowSelf();
    PlugRouter(1, K2_HUB_TYPE);
    PlugRouter(2, K2_HUB_TYPE);
    Report(1, Behind, BehindIp);
    Report(2, Behind, BehindIp);
    Unplug(1);
    const Lines lines = LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    for (const char* line :
         {"disconnect 2", "disconnect slave 0.48.6.0", "P0 Io 1 00300005 0.0.0.0 00128000", "changed 00300005 2 off",
          "P0 Router 5 00308000 0.0.0.0 00000000", "changed 00304000 2 off", "no network"})
        EXPECT_TRUE(Has(lines, line)) << line;
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind), nullptr);
}

TEST_F(LocalDeviceTest, ABoxThatWasRefusedIsWelcomeOnBothLinksOnceItHasThePrimary)
{
    PlugBox(1);
    EXPECT_EQ(LinkUp(2, OtherHid, K2_FIXED_FORMAT_TYPE), (Lines{"P0 SORN_MIXED_HID_ERROR"}));
    Unplug(1);
    EXPECT_EQ(LinkUp(1, OtherHid, K2_FIXED_FORMAT_TYPE),
              (Lines{"connect 0.32.0.254 1 55000", "P0 SORN_MIXED_HID_ERROR", "connect 0.32.32.254 2 55000"}));
}

TEST_F(LocalDeviceTest, AStreamThatComesBackAloneIsUsedAsBefore)
{
    KnowSelf();
    PlugRouter(1, K2_ROUTER_TYPE);
    StreamGone(1);
    EXPECT_EQ(StreamUp(1), (Lines{"P1 ROUTER_INFO_REQ", "network"})) << "the link layer has nothing new to report";
    PlugRouter(2, K2_ROUTER_TYPE);
    StreamGone(1);
    StreamUp(1);
    EXPECT_TRUE(Has(NameRouter(1, RemoteDeviceType::Router), "P1 Io 0 00120001 0.32.0.1 00128000 rate 44.1kHz"));
    EXPECT_EQ(mDevices.GetDevicePorts(RouterHid, Routing::PRIMARY_PORT).remote, 3);
}

TEST_F(LocalDeviceTest, AStreamThatComesBeforeItsHeartbeatIsUsedWithIt)
{
    EXPECT_EQ(StreamUp(1), Lines());
    EXPECT_EQ(LinkUp(1, RouterHid, K2_ROUTER_TYPE), (Lines{"P1 ROUTER_INFO_REQ", "network"}));
}

TEST_F(LocalDeviceTest, ABoxWhoseSecondStreamCameAndWentFirstIsStillUsed)
{
    LinkUp(1, BoxHid, K2_MODULAR_TYPE);
    LinkUp(2, BoxHid, K2_MODULAR_TYPE);
    StreamUp(2);
    StreamGone(2);
    StreamUp(1);
    EXPECT_EQ(Checked("0.32.32.254"), (Lines{"P1 IO_INFO_REQ", "P2 IO_INFO_REQ"}));
}

TEST_F(LocalDeviceTest, ARepeatedEndOfAStreamChangesNothing)
{
    PlugBox(1);
    EXPECT_FALSE(StreamGone(1).empty());
    EXPECT_EQ(StreamGone(1), Lines());
    // The stream of a box that came back stands in the directory when the old one's end is told once more.
    PlugBox(1);
    mComms.mExists = true;
    EXPECT_EQ(StreamGone(1), Lines());
    EXPECT_TRUE(mDevices.IsDeviceOnline(BoxHid, Routing::PRIMARY_PORT));
    mComms.mClosing = true;
    EXPECT_FALSE(StreamGone(1).empty()) << "the stream is being shut down";
}

TEST_F(LocalDeviceTest, TheEndOfAHubTakesItsDevicesAndLeavesOurOwn)
{
    KnowSelf();
    PlugRouter(1, K2_HUB_TYPE);
    Report(1, Behind, BehindIp);
    ReportRouter(1, 0x00408000, 0x00400500);
    EXPECT_EQ(StreamGone(1),
              (Lines{"disconnect slave 0.18.5.0", "disconnect slave 0.18.5.0", "disconnect slave 0.48.5.0",
                     "P0 Cable 00300005 pri off", "P0 Cable 00300005 sec off", "P0 Io 1 00300005 0.0.0.0 00128000",
                     "disconnect slave 0.64.5.0", "P0 Cable 00408000 pri off", "P0 Cable 00408000 sec off",
                     "P0 Router 5 00408000 0.0.0.0 00000000", "P0 Router 5 00308000 0.0.0.0 00000000",
                     "P0 Cable 00308000 pri off", "P0 Cable 00308000 sec off", "changed 00300005 1 off",
                     "changed 00404000 1 off", "no network", "changed 00304000 1 off"}));
    EXPECT_TRUE(mDevices.IsDeviceOnline(OrbIo, Routing::PRIMARY_PORT));
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind), nullptr);
    EXPECT_EQ(mDevices.GetDeviceRecord(RouterHid), nullptr);
}

TEST_F(LocalDeviceTest, ARouterOnItsOtherLinkKeepsItsDevices)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    PlugRouter(2, K2_ROUTER_TYPE);
    Report(1, Behind, BehindIp);
    Report(2, Behind, BehindIp);
    EXPECT_EQ(StreamGone(1), (Lines{"P0 Cable 00300005 pri off", "P0 Cable 00308000 pri off", "changed 00300005 1 off",
                                    "changed 00304000 1 off"}));
    EXPECT_TRUE(mDevices.IsDeviceOnline(Behind, Routing::SECONDARY_PORT));
    EXPECT_EQ(LinkDown(1, RouterHid), (Lines{"disconnect 1"}));
}

TEST_F(LocalDeviceTest, ARouterThatOnlyBeatDoesNotStandBetweenTheModuleAndAHub)
{
    LinkUp(1, 0x00088000, K2_ROUTER_TYPE);
    LinkDown(1, 0x00088000);
    LinkUp(1, RouterHid, K2_HUB_TYPE);
    StreamUp(1);
    EXPECT_TRUE(Has(NameRouter(1, RemoteDeviceType::Hub), "connect 0.48.5.0 1 55100"));
}

TEST_F(LocalDeviceTest, InternalsOfBoxesAreToldToTheOrbRouter)
{
    mDevices.OnIoInternalsChanged(BoxHid, 0xAB);
    mDevices.OnIoInternalsChanged(RouterHid, 0xAB);
    EXPECT_EQ(Take(), (Lines{"P0 Internals 000000ab 00200001 2097153"}));
}

TEST_F(CableCheckTest, ChecksWithoutEndMeetALimit)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    for (int i = 0; i < 20; ++i)
        Report(1, Behind, BehindIp);
    const Lines lines = TakeAfterTimers(6);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "P0 Cable 00300005 sec off"), 5);
    EXPECT_EQ(mService.poll(), 0u);
    Report(1, Behind, BehindIp);
    EXPECT_EQ(TakeAfterTimers(1), (Lines{"P0 Cable 00300005 sec off"})) << "there is room again";
}
