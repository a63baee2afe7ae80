#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include "Common/KLV/Commands/RouterCommands.h"
#include "Tests/Support/LinkComms.h"
#include "Tests/Support/LinkEvents.h"
#include "Tests/Support/LinkNeighbour.h"
#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <condition_variable>
#include <future>
#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

const auto Loopback = boost::asio::ip::address_v4::loopback();
constexpr std::uint32_t Rack = 0x0023;

const std::vector<std::uint8_t> Box = HeartbeatPacket(0x0102, 0x0001, 3, {0x11, 0, 0, 0});
const std::vector<std::uint8_t> Router = HeartbeatPacket(0x0102, 0x8000, 1, {0x03, 0, 0x02, 0x01});
const std::vector<std::uint8_t> Router44 = HeartbeatPacket(0x0102, 0x8000, 1, {0x23, 0, 0x02, 0x01});

class LinkManagerTest : public testing::Test
{
protected:
    /// Plugs a cable in; from here on the module's heartbeats come.
    void Plug(UINT8GIGEPORT port)
    {
        mManager.CreateConnection(LinkIndex{port}, {Loopback, 0}, 7, mNeighbours[port].GetEndpoint(), 0x204);
        ASSERT_EQ(mNeighbours[port].Receive().size(), 12u);
    }
    void SetRack(std::uint32_t rack = Rack) { mManager.OnLocalHidChanged((rack << 16) | 0x8000); }
    /// Time passes, counted by the module's heartbeats on a port.
    void WaitForBeats(UINT8GIGEPORT port, int count)
    {
        while (mNeighbours[port].HasHeartbeat())
            mNeighbours[port].Receive();
        for (int i = 0; i < count; ++i)
            EXPECT_EQ(mNeighbours[port].Receive().size(), 12u);
    }
    bool RunUntilSent(const std::string& text)
    {
        return mEvents.RunUntil([&] {
            const auto sent = mComms.Sent();
            return std::find(sent.begin(), sent.end(), text) != sent.end();
        });
    }

    LogRecorder mLog{DebugFeature::RouterConnectionDebug, DebugFeature::RouterConnectionDebugVerbose};
    boost::asio::io_service mService;
    LinkComms mComms;
    /// What was asked of the shell.
    std::vector<std::string> mCommands;
    LinkEnvironment mEnvironment{[this](const std::string& command, const std::string&) {
                                     mCommands.push_back(command);
                                     return 0;
                                 },
                                 "/no such directory/", std::chrono::milliseconds(0), std::chrono::milliseconds(10),
                                 std::chrono::milliseconds(10)};
    LinkManager mManager{mService, 2, mComms, mEnvironment};
    LinkEvents mEvents{mService, mManager};
    std::array<LinkNeighbour, 2> mNeighbours;
};

} // namespace

TEST_F(LinkManagerTest, ABoxBecomesKnownOnceAndItsInternalsAreReportedWhenTheyChange)
{
    SetRack();
    Plug(1);
    mNeighbours[1].Send(Box);
    mNeighbours[1].Send(Box);
    mNeighbours[1].Send(HeartbeatPacket(0x0102, 0x0001, 3, {0x12, 0, 0, 0}));
    ASSERT_TRUE(mEvents.RunUntil([&] { return mEvents.Heartbeats() == 3; }));
    EXPECT_THAT(mEvents.Take(), ElementsAre("device H1 127.0.0.1 H7 127.0.0.1 1.2:1 Modular ", "internals 1.2:1 11",
                                            "internals 1.2:1 12"));
    mManager.DestroyConnection(LinkIndex{1});
    EXPECT_THAT(mEvents.Take(), ElementsAre("device H1 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Unknown(0)"));
    EXPECT_TRUE(mLog.Has("Scan: Connection lost on H1  Was Router ? 0\n"));
}

TEST_F(LinkManagerTest, TheFirstBeatLeavesAtOnceAndOneThatCannotLeaveIsTheLast)
{
    LinkEnvironment slow = mEnvironment;
    slow.heartbeatPeriod = std::chrono::hours(1);
    LinkManager manager(mService, 2, mComms, slow);
    manager.CreateConnection(LinkIndex{0}, {Loopback, 0}, 7, mNeighbours[0].GetEndpoint(), 0x204);
    EXPECT_EQ(mNeighbours[0].Receive().size(), 12u);
    manager.CreateConnection(LinkIndex{1}, {Loopback, 0}, 7, {boost::asio::ip::address_v4::broadcast(), 9}, 0x204);
    EXPECT_TRUE(mLog.WaitFor("Failed to send HB: Permission denied\n"));
}

TEST_F(LinkManagerTest, WhatALinkHasPostedIsVoidOnceItIsGone)
{
    SetRack();
    Plug(0);
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1020001 Port H0 \r\n"));
    mManager.DestroyConnection(LinkIndex{0});
    mService.poll();
    EXPECT_THAT(mEvents.Take(), ElementsAre("device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Unknown(0)"));
}

TEST_F(LinkManagerTest, AFloodOfHeartbeatsDoesNotQueueUpForABusyMainThread)
{
    SetRack();
    Plug(0);
    // Each with news.
    for (int i = 0; i < 5000; ++i) {
        mNeighbours[0].Send(HeartbeatPacket(0x0102, 0x0001, 3, {static_cast<std::uint8_t>(i), 0, 0, 0}));
        if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // Whatever the link's thread has not taken in by then is still with the kernel.
    WaitForBeats(0, 20);
    Plug(1);
    mNeighbours[1].Send(Box);
    EXPECT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1020001 Port H1 \r\n")) << "another link";
    mService.restart();
    EXPECT_LT(mService.poll(), 1100u);
    mNeighbours[0].Send(HeartbeatPacket(0x0102, 0x0001, 3, {0x77, 0x77, 0, 0}));
    EXPECT_TRUE(mEvents.RunUntilLine("internals 1.2:1 7777"));
}

TEST_F(LinkManagerTest, ARouterBecomesTheMasterAndItsVariantTravelsOn)
{
    SetRack();
    Plug(0);
    Plug(1);
    mNeighbours[0].Send(Router);
    ASSERT_TRUE(mEvents.RunUntilLine("master 1.2:8000 "));
    EXPECT_TRUE(mNeighbours[0].WaitForVariant({0x03, 0x00, 0x02, 0x01}));
    EXPECT_TRUE(mNeighbours[1].WaitForVariant({0x0F, 0x00, 0xFF, 0xFF}));

    mNeighbours[0].Send(HeartbeatPacket(0x0102, 0x8000, 1, {0x04, 0, 0x03, 0x01}));
    ASSERT_TRUE(mEvents.RunUntilLine("master 1.3:8000 "));
    mNeighbours[1].Send(Router);
    ASSERT_TRUE(mEvents.RunUntilLine("device H1 127.0.0.1 H7 127.0.0.1 1.2:8000 Router "));
    EXPECT_TRUE(mNeighbours[1].WaitForVariant({0x03, 0x00, 0x02, 0x01}));
    EXPECT_TRUE(mLog.Has("** [0] 0102\n"));

    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::milliseconds(100));
    mManager.SetUdpTimeout(LinkIndex{1}, std::chrono::milliseconds(100));
    EXPECT_TRUE(mEvents.RunUntilLine("master INVALID_HID ")) << "when both stay silent";
}

TEST_F(LinkManagerTest, AfterAStallANeighbourWithALiveStreamIsLostAndThenNew)
{
    SetRack();
    Plug(0);
    Plug(1);
    mComms.mStreamExists = true;
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mEvents.RunUntilLine("internals 1.2:1 11"));
    mEvents.Take();
    std::ostringstream received;
    received << "Received HB on H0  from " << mNeighbours[0].GetEndpoint() << "\n";
    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::milliseconds(500));
    mLog.Hold(received.str());
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mLog.WaitFor(received.str(), 2));
    WaitForBeats(1, 55);
    mLog.Release();
    ASSERT_TRUE(mLog.WaitFor("-> Forcing heartbeat timeout.\n"));
    EXPECT_TRUE(mLog.HasStart("A heartbeat receive delay of "));
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mEvents.RunUntilLine("internals 1.2:1 11"));
    EXPECT_THAT(mEvents.Take(), ElementsAre("device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Modular ",
                                            "device H0 127.0.0.1 H7 127.0.0.1 1.2:1 Modular ", "internals 1.2:1 11"));
}

TEST_F(LinkManagerTest, ARouterAtAnotherBaseRateMakesThisModuleItsOwnMaster)
{
    SetRack();
    Plug(0);
    Plug(1);
    mNeighbours[0].Send(Router44);
    ASSERT_TRUE(mLog.WaitFor("Router detected on downstream ports IGNORING.\n"));
    EXPECT_THAT(mEvents.Take(), ElementsAre("master 0.35:0 ")) << "without the main thread";
    EXPECT_THAT(mComms.Sent(),
                ElementsAre("notification 0 to ORB PORT LOCAL_LINK ", "restart 0x230100 to ORB PORT LOCAL_LINK "));
    EXPECT_TRUE(mLog.Has("Network at incompatible base rate... Our Rate 48kHz Network Rate 44.1kHz\r\n"));
    EXPECT_TRUE(mNeighbours[1].WaitForVariant({0x00, 0x00, 0x23, 0x00}));
    while (mNeighbours[0].HasHeartbeat())
        mNeighbours[0].Receive();
    WaitForBeats(1, 3);
    EXPECT_FALSE(mNeighbours[0].HasHeartbeat()) << "silent towards that router";
}

TEST_F(LinkManagerTest, TheRateOfThisSystemDecidesWhatIsCompatible)
{
    SetRack();
    mManager.ReceivedSetRouterSampleRateCmd(std::make_shared<const SetRouterSampleRateCmd>(SampleRates::RATE_88K2, 0u),
                                            0, StreamType::LOCAL_LINK);
    Plug(0);
    EXPECT_TRUE(mNeighbours[0].WaitForVariant({0x2F, 0x00, 0xFF, 0xFF}));
    mNeighbours[0].Send(Router44);
    EXPECT_TRUE(mEvents.RunUntilLine("master 1.2:8000 "));
}

TEST_F(LinkManagerTest, WithTheDefaultIdRoutersAreDisallowedFromTheStart)
{
    SetRack(0xC001);
    EXPECT_THAT(mEvents.Take(), ElementsAre("master 192.1:0 "));
    Plug(0);
    EXPECT_TRUE(mNeighbours[0].WaitForVariant({0x00, 0x00, 0x01, 0xC0}));
    mNeighbours[0].Send(Router);
    ASSERT_TRUE(RunUntilSent("notification 1 to ORB PORT LOCAL_LINK "));
    Plug(1);
    mNeighbours[1].Send(HeartbeatPacket(0x0102, 0x8000, 6, {0, 0, 0, 0}));
    EXPECT_TRUE(mLog.WaitFor("ORB detected on downstream ports IGNORING\r\n"));
    EXPECT_TRUE(mEvents.Take().empty());
}

TEST_F(LinkManagerTest, AMalformedHeartbeatStopsReceptionUntilTheTimeout)
{
    SetRack();
    Plug(0);
    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::milliseconds(200));
    mNeighbours[0].Send(std::vector<std::uint8_t>(13, 1));
    ASSERT_TRUE(mLog.WaitFor("Received malformed HB on H0  (received 13 bytes instead of 12)\n"));
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mEvents.RunUntilLine("device H0 127.0.0.1 H7 127.0.0.1 1.2:1 Modular "));
    const auto lines = mEvents.Take();
    EXPECT_EQ(lines.front(), "device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 0x204(516) Unknown(0)");
}

TEST_F(LinkManagerTest, ANeighbourIsNotTakenUpWhileItsStreamIsClosing)
{
    SetRack();
    mComms.mStreamExists = true;
    mComms.mStreamClosing = true;
    Plug(0);
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mLog.WaitFor("* Received a heartbeat on H0 but the connected stream is about to be closed: ignore.\n"));
    mComms.mStreamClosing = false;
    mNeighbours[0].Send(Box);
    ASSERT_TRUE(mEvents.RunUntilLine("internals 1.2:1 11"));
    EXPECT_EQ(mEvents.Heartbeats(), 0);
}

TEST_F(LinkManagerTest, ALinkCanBeDestroyedWhileItsThreadAsksForARestart)
{
    std::promise<void> asking;
    mComms.mOnSend = [&](const std::string& sent) {
        if (sent.compare(0, 14, "notification 0") != 0) return;
        asking.set_value();
        // A slow send: the link's thread comes to the lock of the restart when the main thread is at work.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    SetRack();
    Plug(0);
    mNeighbours[0].Send(Router44);
    ASSERT_EQ(asking.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    mManager.DestroyConnection(LinkIndex{0});
    EXPECT_EQ(mComms.Sent().size(), 3u);
}

TEST_F(LinkManagerTest, PortsOutOfRangeAreAssertionsAndNoMore)
{
    SetRack();
    mManager.SetUdpTimeout(LinkIndex{2}, std::chrono::seconds(1));
    mManager.HandleHeartbeatTimeout(2, {});
    EXPECT_EQ(mManager.GetAdmaEndpointId(2, std::chrono::seconds(5)), 0);
    const auto lines = mLog.Lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.compare(0, 13, "Assert failed") == 0; }),
              3);
    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::seconds(1));
    EXPECT_TRUE(mLog.Has("No heartbeat timer running on Gige port H0 , ignoring timeout settings\n"));
    mManager.HandleHeartbeatTimeout(0, {});
    EXPECT_TRUE(mLog.Has("HandleHeartbeatTimeout: No connection on local Gige port H0  to destroy\n"));
}

TEST_F(LinkManagerTest, ThePortsComeUpWithTheLocalDeviceAndRoutersAreIgnoredAfterTheAllowance)
{
    SetRack();
    mCommands.clear();
    mManager.OnDeviceChange(0x00230001, 1, true, StreamType::LOCAL_LINK);
    mManager.OnDeviceChange(0x00234000, 0, true, StreamType::LOCAL_LINK);
    EXPECT_TRUE(mCommands.empty());

    mManager.ReceivedRouterTimeAllowanceCmd(std::make_shared<const RouterDetectTimeAllowanceCmd>(0xFFFFFFFFu), 0,
                                            StreamType::LOCAL_LINK);
    mManager.OnDeviceChange(0x00230001, 0, false, StreamType::LOCAL_LINK);
    EXPECT_THAT(mCommands, ElementsAre("ifconfig k2link0 up", "ifconfig k2link1 up"));
    // A second identity brings the ports up again, and the timer starts anew.
    SetRack();
    EXPECT_EQ(mLog.Count("Start Router Ignore Timer\r\n"), 2u);
    mService.poll();
    EXPECT_TRUE(mEvents.Take().empty());
}

TEST_F(LinkManagerTest, ARouterThatComesJustInTimeIsFollowed)
{
    mManager.OnDeviceChange(0x00230001, 0, true, StreamType::LOCAL_LINK);
    SetRack();
    Plug(0);
    mNeighbours[0].Send(Router);
    ASSERT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1028000 Port H0 \r\n"));
    // The time that routers have is over, but its end has not been handled yet.
    ASSERT_TRUE(mEvents.RunUntilLine("master 1.2:8000 "));
    mService.restart();
    mService.poll();
    EXPECT_FALSE(mLog.Has("Routers Disallowed\r\n"));
}

TEST_F(LinkManagerTest, WithoutAnAllowanceRoutersAreIgnoredAsSoonAsThePortsAreUp)
{
    mManager.OnDeviceChange(0x00230001, 0, true, StreamType::LOCAL_LINK);
    SetRack();
    ASSERT_TRUE(RunUntilSent("restart 0x230100 to ORB PORT LOCAL_LINK "));
    EXPECT_THAT(mEvents.Take(), ElementsAre("master 0.35:0 "));
}
