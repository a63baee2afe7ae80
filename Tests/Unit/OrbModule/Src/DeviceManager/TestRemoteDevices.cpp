#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

// What is reported of the devices behind a hub, behind a router, and by the Orb router.

namespace {

class RemoteDeviceTest : public DirectoryTest
{
protected:
    RemoteDeviceTest()
    {
        KnowSelf();
        Take();
    }
};

constexpr const char* Route1 = "route add -net 10.20.30.0 netmask 255.255.255.0 k2link0 2>/tmp/addioroute.err";
constexpr const char* Route2 = "route add -net 10.20.30.0 netmask 255.255.255.0 k2link1 2>/tmp/addioroute.err";

} // namespace

TEST_F(RemoteDeviceTest, BehindAHubADeviceIsToldOnceItIsDescribed)
{
    PlugRouter(2, K2_HUB_TYPE);
    EXPECT_EQ(Report(2, Behind, BehindIp), (Lines{Route2, "slave 0.48.6.0 IoInfoDevReq 00300005"}));
    EXPECT_EQ(mDevices.GetDevicePorts(Behind, Routing::SECONDARY_PORT).local, 2);
    EXPECT_EQ(mDevices.GetDevicePorts(Behind, Routing::SECONDARY_PORT).remote, 3);
    EXPECT_FALSE(mDevices.GetDevicePorts(Behind, Routing::PRIMARY_PORT).IsValid());
    EXPECT_EQ(mDevices.GetSlaveAddress(Behind, Routing::PRIMARY_PORT), 0x00300500u);
    mDevices.ProcessIOCmd(std::make_shared<IoInfo>(Behind, std::uint8_t{7}, IoInfo::SlotNames()), 2,
                          StreamType::SLAVE_LINK);
    EXPECT_EQ(Take(), (Lines{"P0 Io 1 00300005 10.20.30.40 00128000 rate 44.1kHz", "P0 Cable 00300005 sec on",
                             "changed 00300005 2 on by another stream"}))
        << "the type is the one that was reported";
}

TEST_F(RemoteDeviceTest, WhatAHubReportsBeforeItsDataLinkIsAskedForWithThat)
{
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        PlugRouter(port, K2_HUB_TYPE);
        Report(port, Behind, BehindIp);
    }
    mDevices.ProcessIOCmd(std::make_shared<IoInfo>(Behind, std::uint8_t{1}, IoInfo::SlotNames()), 1,
                          StreamType::SLAVE_LINK);
    Take();
    const auto dataLinkUp = [this](UINT8GIGEPORT port, std::uint32_t address) {
        return Stream(port, StreamType::SLAVE_LINK, true, address);
    };
    EXPECT_EQ(dataLinkUp(2, 0x00300600), (Lines{"slave 0.48.6.0 IO_INFO_REQ", "slave 0.48.6.0 IoInfoDevReq 00300005"}));
    EXPECT_EQ(dataLinkUp(1, 0x00300500), (Lines{"slave 0.48.5.0 IO_INFO_REQ"})) << "it is described there";
    EXPECT_EQ(dataLinkUp(2, 0x00400600), (Lines{"slave 0.64.6.0 IO_INFO_REQ"})) << "the data link of another hub";
}

TEST_F(RemoteDeviceTest, BehindARouterADeviceIsToldAtOnce)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    EXPECT_EQ(Report(1, Behind, BehindIp, RouterHid, RemoteDeviceType::AoIP),
              (Lines{Route1, "P0 Cable 00300005 pri on", "P0 Io 7 00300005 10.20.30.40 00128000 rate 44.1kHz",
                     "changed 00300005 1 on"}));
}

TEST_F(RemoteDeviceTest, ReportsThatCannotBeAreRefused)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    const LogRecorder log;
    EXPECT_EQ(
        All({Report(1, Behind, BehindIp, INVALID_HID), Report(1, Behind, BehindIp, RouterHid, RemoteDeviceType::Hub),
             Report(1, Behind, BehindIp, RouterHid, static_cast<RemoteDeviceType>(200)),
             ReportRouter(1, Self, 0x00120500), ReportRouter(1, 0x00408000, 0x00400500, RemoteDeviceType::Modular),
             Report(255, Behind, BehindIp), ReportRouter(255, 0x00408000, 0x00400500)}),
        Lines());
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Hub, 1, 1, 0), 255, Local);
    EXPECT_EQ(Take(), Lines());
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind), nullptr);
    EXPECT_TRUE(log.WaitForPart(" - Cmd->GetHid() != mHid\r\n"));
}

TEST_F(RemoteDeviceTest, NoReportTouchesTheRoutesOfTheUnit)
{
    PlugRouter(1, K2_HUB_TYPE);
    LogRecorder log;
    mDevices.OnChainLength(std::make_shared<ChainLengthCmd>(1u, 0x013F0105u, std::uint8_t{4}), 1, Local);
    for (const std::string& line :
         All({Report(1, Behind, 0x013F0105), Report(1, Behind + 1, 0x00120901), ReportRouter(1, 0x013F8000, 0x01020304),
              ReportRouter(1, 0x013F8000, 0), ReportRouter(1, 0x00128001, 0x01020304), ReportRouter(1, 0x00128001, 0)}))
        EXPECT_NE(line.compare(0, 5, "route"), 0) << line;
    const std::string end = ", which is an address of this unit: its route is left alone\r\n";
    EXPECT_EQ(log.Count("A device reports 1.63.1.5" + end), 2u);
    EXPECT_EQ(log.Count("A device reports 0.18.9.1" + end), 1u);
    EXPECT_EQ(log.Count("A device reports 1.63.128.0" + end), 2u);
    EXPECT_EQ(log.Count("A device reports 0.18.128.1" + end), 2u);
}

TEST_F(RemoteDeviceTest, ADeviceIsGoneWithItsLastLink)
{
    PlugRouter(1, K2_HUB_TYPE);
    PlugRouter(2, K2_HUB_TYPE);
    Report(1, Behind, BehindIp);
    Report(2, Behind, BehindIp);
    EXPECT_EQ(Report(1, Behind, 0), (Lines{"P0 Cable 00300005 pri off", "changed 00300005 1 off"}));
    EXPECT_EQ(Report(2, Behind, 0),
              (Lines{"P0 Cable 00300005 sec off", "P0 Cable 00300005 pri off",
                     "P0 Io 1 00300005 0.0.0.0 00128000 rate 44.1kHz", "changed 00300005 2 off"}));
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind), nullptr);
    EXPECT_EQ(Report(2, Behind, 0), (Lines{"P0 Io 1 00300005 0.0.0.0 00128000 rate 44.1kHz"}))
        << "an unknown one is told all the same";
}

TEST_F(RemoteDeviceTest, TheOrbRoutersReportsGoToTheRoutingDeviceOnBothLinks)
{
    EXPECT_EQ(Report(0, OrbIo, 0x013F0100, Self), Lines()) << "without a router connected it is not passed on";
    PlugRouter(1, K2_ROUTER_TYPE);
    PlugRouter(2, K2_ROUTER_TYPE);
    EXPECT_EQ(
        Report(0, OrbIo, 0x013F0100, 0x00990000, RemoteDeviceType::Modular),
        (Lines{"P1 Io 0 00120001 1.63.1.0 00128000 rate 44.1kHz", "P2 Io 0 00120001 1.63.1.0 00128000 rate 44.1kHz"}));
    EXPECT_EQ(Report(0, OrbIo, 0, Self),
              (Lines{"P0 Cable 00120001 sec off", "P1 Io 1 00120001 0.0.0.0 00128000 rate 44.1kHz",
                     "P2 Io 1 00120001 0.0.0.0 00128000 rate 44.1kHz", "changed 00120001 0 off"}));
    EXPECT_EQ(mDevices.GetDeviceRecord(OrbIo), nullptr) << "both of its links end at once";
}

TEST_F(RemoteDeviceTest, ARemoteRouterIsToldOncePerLink)
{
    PlugRouter(1, K2_HUB_TYPE);
    EXPECT_EQ(ReportRouter(1, 0x00408000, 0x00400500),
              (Lines{"route add -host 0.64.5.0 k2link0 2>/tmp/addroute.err", "connect 0.64.5.0 1 55100",
                     "P0 Router 5 00408000 0.64.5.0 00308000", "P0 Cable 00408000 pri on", "changed 00404000 1 on"}));
    EXPECT_EQ(ReportRouter(1, 0x00408000, 0x00400500), Lines());
    EXPECT_EQ(ReportRouter(2, 0x00408000, 0x00400600).size(), 5u);
    EXPECT_EQ(mDevices.GetDevicePorts(0x00408000, Routing::PRIMARY_PORT).remote, 3);
}

TEST_F(RemoteDeviceTest, ARemoteRouterTakesItsDevicesWithIt)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    ReportRouter(1, 0x00408000, 0x00400500);
    Report(1, 0x00400001, BehindIp, 0x00408000);
    Report(1, Behind, BehindIp);
    EXPECT_EQ(ReportRouter(1, 0x00408000, 0),
              (Lines{"P0 Cable 00400001 pri off", "P0 Cable 00400001 sec off", "P0 Io 1 00400001 0.0.0.0 00128000",
                     "P0 Cable 00408000 pri off", "P0 Cable 00408000 sec off",
                     "route del -net 0.64.0.0 netmask 255.255.0.0 2>/tmp/delroute.err",
                     "P0 Router 5 00408000 0.0.0.0 00308000", "changed 00400001 1 off", "changed 00404000 1 off"}));
    EXPECT_TRUE(mDevices.IsDeviceOnline(Behind, Routing::PRIMARY_PORT));
    EXPECT_EQ(mDevices.GetDeviceRecord(0x00408000), nullptr);
}

TEST_F(RemoteDeviceTest, WithoutARouterTheDataLinkOfAGoneOneIsClosed)
{
    PlugRouter(1, K2_HUB_TYPE);
    EXPECT_EQ(ReportRouter(1, 0x00408000, 0), (Lines{"disconnect slave 0.64.5.0", "P0 Cable 00408000 pri off",
                                                     "P0 Cable 00408000 sec off", "changed 00404000 1 off"}));
}

TEST_F(RemoteDeviceTest, DevicesWithoutEndMeetALimitThatLetsTheKnownOnesLive)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    for (std::uint32_t i = 0; i < 20; ++i)
        Report(1, Behind + i, BehindIp);
    EXPECT_EQ(All({ReportRouter(1, 0x00408000, 0x00400500), Report(1, Behind + 19, BehindIp),
                   Report(0, 0x00990001, 0x013F0100, Self)}),
              Lines());
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind + 6), nullptr);
    EXPECT_TRUE(mDevices.IsDeviceOnline(Behind + 5, Routing::PRIMARY_PORT));
    Report(1, Behind, 0);
    Report(1, Behind + 19, BehindIp);
    EXPECT_TRUE(mDevices.IsDeviceOnline(Behind + 19, Routing::PRIMARY_PORT)) << "there is room again";
}

TEST_F(RemoteDeviceTest, RatesWithoutEndAreCut)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    const RateList endless(100000, SampleRates::RATE_96K);
    mDevices.OnRemoteIoUpdate(std::make_shared<RemoteIoUpdate>(RemoteDeviceType::FixedFormat, Behind, BehindIp,
                                                               RouterHid, SampleRates::RATE_48K, endless),
                              1, StreamType::LOCAL_LINK);
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind)->SampleRates.size(), 16u);
}
