#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include "OrbModule/Inc/LinkManager/LinkDriverSocket.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"

#include <boost/asio.hpp>
#include <future>
#include <gmock/gmock.h>
#include <netlink/netlink.h>
#include <poll.h>
#include <set>

namespace {

using boost::asio::ip::udp;
using Lines = std::vector<std::string>;

const auto Loopback = boost::asio::ip::address_v4::loopback();
/// Whether there is a link driver, and the netlink ports of those that are connected to it, or were.
std::atomic<bool> sHasDriver{false};
std::mutex sMutex;
std::set<std::uint32_t> sPorts;

/// A heartbeat of rack 1.2, by its words.
std::string Heartbeat(std::uint32_t device, std::uint32_t type, std::uint32_t variant)
{
    std::string packet;
    for (const std::uint32_t word : {0x01020000 | device, type, variant}) {
        for (int shift = 0; shift < 32; shift += 8)
            packet += static_cast<char>(word >> shift);
    }
    return packet;
}
const std::string Box = Heartbeat(1, 3, 0x11);
const std::string Router = Heartbeat(0x8000, 1, 0x01020003);
const std::string Router44 = Heartbeat(0x8000, 1, 0x01020023);
const std::string NewBox = "device H0 127.0.0.1 H7 127.0.0.1 1.2:1 Modular ";
const std::string LostBox = "device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Unknown(0)";

/// Streams only to the neighbours.
class LinkComms : public RecordingComms
{
public:
    using RecordingComms::RecordingComms;
    StreamState GetState(const StreamName& stream) override
    {
        const bool isOfLink = stream.type == LOCAL_LINK && (stream.port == 1 || stream.port == 2);
        return isOfLink ? RecordingComms::GetState(stream) : StreamState::None;
    }
};

/// The neighbours are sockets of the test, which is the main thread too. The module has its rack and one neighbour.
class LinkManagerTest : public testing::Test
{
protected:
    LinkManagerTest()
    {
        mManager.DeviceChanged.connect([this](UINT8GIGEPORT port, std::uint32_t localIp, UINT8GIGEPORT remotePort,
                                              std::uint32_t remoteIp, Hid hid, LinkManager::LinkType type) {
            Add("device ", LinkPortText(port), AddressText(localIp), " ", LinkPortText(remotePort),
                AddressText(remoteIp), " ", hid, type);
        });
        mManager.IoInternalsChanged.connect(
            [this](Hid hid, std::uint32_t variant) { Add("internals ", hid, std::hex, variant); });
        mManager.HeartbeatReceived.connect([this](UINT8GIGEPORT port) { Add("beat ", unsigned{port}); });
        mManager.MasterHidChanged.connect([this](Hid hid) { Add("master ", hid); });
        SetRack();
        Plug(0);
    }

    /// Plugs a cable in; from here on the module's heartbeats come.
    void Plug(UINT8GIGEPORT port)
    {
        mManager.CreateConnection(LinkIndex{port}, {Loopback, 0}, 7, mNeighbours[port].local_endpoint(), 0x204);
        ASSERT_NE(Receive(port), 0u);
    }
    void SetRack(std::uint32_t rack = 0x0023) { mManager.OnLocalHidChanged((rack << 16) | 0x8000); }
    /// The variant of the module's next heartbeat, which also shows the address to answer; 0 if none comes.
    std::uint32_t Receive(UINT8GIGEPORT port)
    {
        std::uint8_t bytes[64];
        pollfd wait{mNeighbours[port].native_handle(), POLLIN, 0};
        if (::poll(&wait, 1, 10000) != 1) return 0;
        if (mNeighbours[port].receive_from(boost::asio::buffer(bytes), mModule[port]) != 12) return 0;
        return K2Heartbeat::LinkState(bytes).GetVariant();
    }
    bool WaitForVariant(UINT8GIGEPORT port, std::uint32_t variant)
    {
        return Await([&] { return Receive(port) == variant; }, [] {});
    }
    /// Time passes, counted by the module's heartbeats on a port.
    void WaitForBeats(UINT8GIGEPORT port, int count)
    {
        while (mNeighbours[port].available() != 0)
            Receive(port);
        for (int i = 0; i < count; ++i)
            EXPECT_NE(Receive(port), 0u);
    }
    void Send(UINT8GIGEPORT port, const std::string& packet)
    {
        mNeighbours[port].send_to(boost::asio::buffer(packet), mModule[port]);
    }
    /// Runs the main service until there are that many lines, and takes them.
    void Expect(const Lines& expected)
    {
        RunUntil([&](const Lines& lines) { return lines.size() >= expected.size(); });
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto end = mLines.begin() + static_cast<std::ptrdiff_t>(std::min(mLines.size(), expected.size()));
        EXPECT_EQ(Lines(mLines.begin(), end), expected);
        mLines.erase(mLines.begin(), end);
    }
    /// As the lines are now, all of them.
    void ExpectNow(const Lines& expected)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        EXPECT_EQ(std::exchange(mLines, {}), expected);
    }
    bool RunUntil(const std::function<bool(const Lines&)>& condition)
    {
        const auto isTrue = [&] {
            const std::lock_guard<std::mutex> lock(mMutex);
            return condition(mLines);
        };
        return Await(isTrue, [this] {
            mService.restart();
            mService.run_one_for(std::chrono::milliseconds(10));
        });
    }
    template <class... Parts>
    void Add(const Parts&... parts)
    {
        std::ostringstream line;
        ((line << parts), ...);
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line.str());
    }

    LogRecorder mLog{DebugFeature::RouterConnectionDebug, DebugFeature::RouterConnectionDebugVerbose};
    boost::asio::io_service mService;
    /// Signals and sent commands in their order, from any thread.
    std::mutex mMutex;
    Lines mLines;
    std::function<void(const std::string&)> mOnSend = [](auto&&) {};
    LinkComms mComms{[this](const std::string& sent) {
                         Add(sent);
                         mOnSend(sent);
                     },
                     DeviceNames()};
    /// What was asked of the shell, and what it answers.
    Lines mCommands;
    std::atomic<int> mResult{0};
    LinkEnvironment mEnvironment{[this](const std::string& command, const std::string&) {
                                     const std::lock_guard<std::mutex> lock(mMutex);
                                     mCommands.push_back(command);
                                     return mResult.load();
                                 },
                                 "/no such directory/", std::chrono::milliseconds(0), std::chrono::milliseconds(10),
                                 std::chrono::milliseconds(10)};
    LinkManager mManager{mService, 2, mComms, mEnvironment};
    std::array<udp::socket, 2> mNeighbours{udp::socket(mService, {Loopback, 0}), udp::socket(mService, {Loopback, 0})};
    std::array<udp::endpoint, 2> mModule;
};

} // namespace

/// A driver on a netlink port of a process, as in the simulation, but one that resolves no family.
int ConnectLinkDriverSocket(nl_sock* socket)
{
    if (!sHasDriver) return -1;
    const std::lock_guard<std::mutex> lock(sMutex);
    sPorts.insert(nl_socket_get_local_port(socket));
    return nl_connect(socket, NETLINK_USERSOCK);
}

TEST_F(LinkManagerTest, ABoxBecomesKnownOnceAndItsInternalsAreReportedWhenTheyChange)
{
    Send(0, Box);
    Send(0, Box);
    Send(0, Heartbeat(1, 3, 0x12));
    Expect({NewBox, "internals 1.2:1 11", "beat 0", "beat 0", "internals 1.2:1 12", "beat 0"});
    mManager.DestroyConnection(LinkIndex{0});
    ExpectNow({LostBox});
    EXPECT_TRUE(mLog.Has("Scan: Connection lost on H0  Was Router ? 0\n"));
}

TEST_F(LinkManagerTest, TheFirstBeatLeavesAtOnceAndOneThatCannotLeaveIsTheLast)
{
    LinkEnvironment slow = mEnvironment;
    slow.heartbeatPeriod = std::chrono::hours(1);
    LinkManager manager(mService, 2, mComms, slow);
    manager.CreateConnection(LinkIndex{0}, {Loopback, 0}, 7, mNeighbours[0].local_endpoint(), 0x204);
    EXPECT_NE(Receive(0), 0u);
    manager.CreateConnection(LinkIndex{1}, {Loopback, 0}, 7, {boost::asio::ip::address_v4::broadcast(), 9}, 0x204);
    EXPECT_TRUE(mLog.WaitFor("Failed to send HB: Permission denied\n"));
}

TEST_F(LinkManagerTest, WhatALinkHasPostedIsVoidOnceItIsGone)
{
    Send(0, Box);
    ASSERT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1020001 Port H0 \r\n"));
    mManager.DestroyConnection(LinkIndex{0});
    mService.poll();
    ExpectNow({LostBox});
}

TEST_F(LinkManagerTest, AFloodOfHeartbeatsDoesNotQueueUpForABusyMainThread)
{
    // Each with news.
    for (std::uint32_t i = 0; i < 5000; ++i) {
        Send(0, Heartbeat(1, 3, i % 256));
        if (i % 100 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    // Whatever the link's thread has not taken in by then is still with the kernel.
    WaitForBeats(0, 20);
    Plug(1);
    Send(1, Box);
    EXPECT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1020001 Port H1 \r\n")) << "another link";
    EXPECT_LT(mService.poll(), 1100u);
    Send(0, Heartbeat(1, 3, 0x7777));
    EXPECT_TRUE(RunUntil([](const Lines& lines) {
        return std::find(lines.begin(), lines.end(), "internals 1.2:1 7777") != lines.end();
    }));
}

TEST_F(LinkManagerTest, ARouterBecomesTheMasterAndItsVariantTravelsOn)
{
    Plug(1);
    Send(0, Router);
    Expect({"master 1.2:8000 ", "device H0 127.0.0.1 H7 127.0.0.1 1.2:8000 Router ", "internals 1.2:8000 1020003",
            "beat 0"});
    EXPECT_TRUE(WaitForVariant(0, 0x01020003));
    EXPECT_TRUE(WaitForVariant(1, 0xFFFF000F));
    Send(0, Heartbeat(0x8000, 1, 0x01030004));
    Expect({"master 1.3:8000 ", "beat 0"});
    Send(1, Router);
    Expect({"master 1.2:8000 ", "device H1 127.0.0.1 H7 127.0.0.1 1.2:8000 Router ", "internals 1.2:8000 1020003",
            "beat 1"});
    EXPECT_TRUE(WaitForVariant(1, 0x01020003));
    EXPECT_TRUE(mLog.Has("** [0] 0102\n"));
    for (const UINT8GIGEPORT port : std::array<UINT8GIGEPORT, 2>{0, 1}) {
        mManager.SetUdpTimeout(LinkIndex{port}, std::chrono::milliseconds(50));
        const std::string lost = "device " + LinkPortText(port) + "0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:8000 Router ";
        Expect(port == 0 ? Lines{lost} : Lines{lost, "master INVALID_HID "});
    }
}

TEST_F(LinkManagerTest, AfterAStallANeighbourWithALiveStreamIsLostAndThenNew)
{
    Plug(1);
    mComms.mState = StreamState::Open;
    Send(0, Box);
    Expect({NewBox, "internals 1.2:1 11", "beat 0"});
    std::ostringstream received;
    received << "Received HB on H0  from " << mNeighbours[0].local_endpoint() << "\n";
    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::milliseconds(500));
    mLog.Hold(received.str());
    Send(0, Box);
    ASSERT_TRUE(mLog.WaitFor(received.str(), 2));
    WaitForBeats(1, 55);
    mLog.Release();
    ASSERT_TRUE(mLog.WaitFor("-> Forcing heartbeat timeout.\n"));
    EXPECT_TRUE(mLog.HasStart("A heartbeat receive delay of "));
    Send(0, Box);
    Expect({"device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Modular ", NewBox, "internals 1.2:1 11", "beat 0"});
}

TEST_F(LinkManagerTest, ARouterAtAnotherBaseRateMakesThisModuleItsOwnMaster)
{
    Plug(1);
    Send(0, Router44);
    ASSERT_TRUE(mLog.WaitFor("Router detected on downstream ports IGNORING.\n"));
    // Without the main thread.
    ExpectNow({"P0 notification 0", "master 0.35:0 ", "P0 restart 00230100"});
    EXPECT_TRUE(mLog.Has("Network at incompatible base rate... Our Rate 48kHz Network Rate 44.1kHz\r\n"));
    EXPECT_TRUE(WaitForVariant(1, 0x00230000));
    while (mNeighbours[0].available() != 0)
        Receive(0);
    WaitForBeats(1, 3);
    EXPECT_EQ(mNeighbours[0].available(), 0u) << "silent towards that router";
}

TEST_F(LinkManagerTest, TheRateOfThisSystemDecidesWhatIsCompatible)
{
    mManager.ReceivedSetRouterSampleRateCmd(std::make_shared<const SetRouterSampleRateCmd>(SampleRates::RATE_88K2, 0u),
                                            0, StreamType::LOCAL_LINK);
    EXPECT_TRUE(WaitForVariant(0, 0xFFFF002F));
    Send(0, Router44);
    Expect({"master 1.2:8000 "});
}

TEST_F(LinkManagerTest, WithTheDefaultIdRoutersAreDisallowedFromTheStart)
{
    SetRack(0xC001);
    ExpectNow({"master 192.1:0 "});
    EXPECT_TRUE(WaitForVariant(0, 0xC0010000));
    Send(0, Router);
    Expect({"P0 notification 1"});
    Plug(1);
    Send(1, Heartbeat(0x8000, 6, 0));
    EXPECT_TRUE(mLog.WaitFor("ORB detected on downstream ports IGNORING\r\n"));
    ExpectNow({});
}

TEST_F(LinkManagerTest, AMalformedHeartbeatStopsReceptionUntilTheTimeout)
{
    mManager.SetUdpTimeout(LinkIndex{0}, std::chrono::milliseconds(200));
    Send(0, std::string(13, 1));
    ASSERT_TRUE(mLog.WaitFor("Received malformed HB on H0  (received 13 bytes instead of 12)\n"));
    Send(0, Box);
    Expect({"device H0 0.0.0.0 UNKNOWN_PORT 0.0.0.0 0x204(516) Unknown(0)", NewBox, "internals 1.2:1 11"});
}

TEST_F(LinkManagerTest, ANeighbourIsNotTakenUpWhileItsStreamIsClosing)
{
    mComms.mState = StreamState::Closing;
    Send(0, Box);
    ASSERT_TRUE(mLog.WaitFor("* Received a heartbeat on H0 but the connected stream is about to be closed: ignore.\n"));
    mComms.mState = StreamState::Open;
    Send(0, Box);
    Expect({NewBox, "internals 1.2:1 11", "beat 0"});
}

TEST_F(LinkManagerTest, ALinkCanBeDestroyedWhileItsThreadAsksForARestart)
{
    std::promise<void> asking;
    mOnSend = [&](const std::string& sent) {
        if (sent != "P0 notification 0") return;
        asking.set_value();
        // A slow send: the link's thread comes to the lock of the restart when the main thread is at work.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    };
    Plug(1);
    Send(1, Router44);
    ASSERT_EQ(asking.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    mManager.DestroyConnection(LinkIndex{1});
    ExpectNow({"P0 notification 0", "master 0.35:0 ", "P0 restart 00230100",
               "device H1 0.0.0.0 UNKNOWN_PORT 0.0.0.0 0x204(516) Unknown(0)", "P0 notification 3"});
}

TEST_F(LinkManagerTest, PortsOutOfRangeAreAssertionsAndNoMore)
{
    mManager.SetUdpTimeout(LinkIndex{2}, std::chrono::seconds(1));
    mManager.HandleHeartbeatTimeout(2, {});
    EXPECT_EQ(mManager.GetAdmaEndpointId(2, std::chrono::seconds(5)), 0);
    EXPECT_TRUE(mLog.WaitFor("Assert failed", 3));
    mManager.SetUdpTimeout(LinkIndex{1}, std::chrono::seconds(1));
    EXPECT_TRUE(mLog.Has("No heartbeat timer running on Gige port H1 , ignoring timeout settings\n"));
    mManager.HandleHeartbeatTimeout(1, {});
    EXPECT_TRUE(mLog.Has("HandleHeartbeatTimeout: No connection on local Gige port H1  to destroy\n"));
}

TEST_F(LinkManagerTest, ThePortsComeUpWithTheLocalDeviceAndRoutersAreIgnoredAfterTheAllowance)
{
    mCommands.clear();
    mManager.OnDeviceChange(0x00230001, 1, true, StreamType::LOCAL_LINK);
    mManager.OnDeviceChange(0x00234000, 0, true, StreamType::LOCAL_LINK);
    EXPECT_EQ(mCommands, Lines());
    mManager.ReceivedRouterTimeAllowanceCmd(std::make_shared<const RouterDetectTimeAllowanceCmd>(0xFFFFFFFFu), 0,
                                            StreamType::LOCAL_LINK);
    mManager.OnDeviceChange(0x00230001, 0, false, StreamType::LOCAL_LINK);
    EXPECT_EQ(mCommands, (Lines{"ifconfig k2link0 up", "ifconfig k2link1 up"}));
    // A second identity brings the ports up again, and the timer starts anew.
    SetRack();
    EXPECT_EQ(mLog.Count("Start Router Ignore Timer\r\n"), 2u);
    mService.poll();
    ExpectNow({});
}

TEST_F(LinkManagerTest, WithoutAnAllowanceRoutersAreIgnoredAsSoonAsThePortsAreUpButOneThatComesJustInTimeIsFollowed)
{
    mManager.OnDeviceChange(0x00230001, 0, true, StreamType::LOCAL_LINK);
    Send(0, Router);
    ASSERT_TRUE(mLog.WaitFor("LinkManager::Receive New device Hid 0x1028000 Port H0 \r\n"));
    // The time that routers have is over, but its end has not been handled yet.
    Expect({"master 1.2:8000 ", "device H0 127.0.0.1 H7 127.0.0.1 1.2:8000 Router ", "internals 1.2:8000 1020003",
            "beat 0"});
    mService.poll();
    ExpectNow({});
    SetRack();
    Expect({"master 0.35:0 ", "P0 restart 00230100"});
}

TEST_F(LinkManagerTest, AReportOfTheDriverGivesTheInterfaceItsAddressAndAFailureIsLogged)
{
    const std::unique_ptr<nl_sock, decltype(&nl_socket_free)> driver(nl_socket_alloc(), nl_socket_free);
    if (nl_connect(driver.get(), NETLINK_USERSOCK) != 0) GTEST_SKIP() << "no netlink between processes here";
    nl_socket_set_nonblocking(driver.get());
    sHasDriver = true;
    LinkManager manager(mService, 2, mComms, mEnvironment);
    manager.OnLocalHidChanged(0x00238000);
    mResult = 3;
    for (const auto& [remoteId, command] : {std::pair(0x50u, "ifconfig k2link0 0.10.0.1 netmask 255.255.255.0"),
                                            {0xFFFFFFFFu, "ifconfig k2link0 0.0.0.0 "}}) {
        std::uint32_t report[] = {36, 0x0022, 0, 0, 0x0101, 0x00010008, 0, 0x00020008, remoteId};
        ASSERT_TRUE(Await(
            [&, text = command] {
                const std::lock_guard<std::mutex> lock(mMutex);
                return !mCommands.empty() && mCommands.back() == text;
            },
            [&] {
                const std::lock_guard<std::mutex> lock(sMutex);
                for (const std::uint32_t port : sPorts) {
                    nl_socket_set_peer_port(driver.get(), port);
                    nl_sendto(driver.get(), report, sizeof report);
                }
            }))
            << command;
    }
    EXPECT_TRUE(mLog.WaitFor("LinkManager::Scan Error 3\r\n", 2));
    sHasDriver = false;
}
