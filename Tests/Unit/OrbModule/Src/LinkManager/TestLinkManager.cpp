#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include "OrbModule/Inc/LinkManager/LinkDriverSocket.h"
#include "Simulation/LinkDriver/LinkDriver.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/OrbModule/Src/LinkManager/LinkManager.scenes.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/trim_all.hpp>
#include <boost/asio.hpp>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iomanip>
#include <netlink/netlink.h>
#include <poll.h>
#include <regex>
#include <unistd.h>

namespace {

using boost::asio::ip::address_v4;
using boost::asio::ip::udp;
using namespace std::string_literals;
using std::chrono::milliseconds;

const auto Loopback = address_v4::loopback();
constexpr StreamType Local = StreamType::LOCAL_LINK;
/// Those to the link driver so far.
std::atomic<int> sConnections{0};

/// Heartbeats of rack 1.2.
const std::map<std::string, std::string> Packets = {
    {"box", "\x01\x00\x02\x01\x03\x00\x00\x00\x11\x00\x00\x00"s},
    {"box2", "\x01\x00\x02\x01\x03\x00\x00\x00\x12\x00\x00\x00"s},
    {"router", "\x00\x80\x02\x01\x01\x00\x00\x00\x03\x00\x02\x01"s},
    {"router2", "\x00\x80\x02\x01\x01\x00\x00\x00\x04\x00\x03\x01"s},
    {"router44", "\x00\x80\x02\x01\x01\x00\x00\x00\x23\x00\x02\x01"s},
    {"orb", "\x00\x80\x02\x01\x06\x00\x00\x00\x00\x00\x00\x00"s},
    {"malformed", std::string(13, 1)},
};

/// A stream only to the first neighbour.
struct LinkComms : RecordingComms
{
    using RecordingComms::RecordingComms;
    StreamState GetState(const StreamName& stream) override
    {
        return stream.type == LOCAL_LINK && stream.port == 1 ? mState.load() : StreamState::None;
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
            if (localIp == 0 && remotePort == 0xFF && remoteIp == 0) return Add("lost ", LinkPortText(port), hid, type);
            Add("new ", LinkPortText(port), AddressText(localIp), " ", LinkPortText(remotePort), AddressText(remoteIp),
                " ", hid, type);
        });
        mManager.IoInternalsChanged.connect(
            [this](Hid hid, std::uint32_t variant) { Add("internals ", hid, std::hex, variant); });
        mManager.HeartbeatReceived.connect([this](UINT8GIGEPORT port) { Add("beat ", unsigned{port}); });
        mManager.MasterHidChanged.connect([this](Hid hid) { Add("master ", hid); });
        Play(R"(
 => ifconfig k2link0 up; ifconfig k2link1 up; ifconfig k2link2 up
rack 0x23; plug 0 -> ifconfig k2link0 down; ifconfig k2link1 down)");
    }
    ~LinkManagerTest() override { std::filesystem::remove_all(mEnvironment.interfaceDirectory); }

    /// Plays a script: each line has events and, after an arrow, all that comes of them: signals, commands, and what is
    /// remarkable in the log. With "=>" it comes without the main thread.
    void Play(const std::string& script)
    {
        std::istringstream lines(std::regex_replace(script, std::regex("\n +(?![=-]>)"), " "));
        for (std::string line; std::getline(lines, line);) {
            std::smatch parts;
            if (!std::regex_match(line, parts, std::regex("(.*) ([=-])> ?(.*)"))) continue;
            std::istringstream events(parts[1]);
            for (std::string event; std::getline(events >> std::ws, event, ';');)
                Do(event);
            const auto isSeen = [&] { return Seen() == parts[3]; };
            Await(isSeen, [&] {
                if (parts[2] == "-") mService.run_one_for(milliseconds(10));
            });
            // All that was posted meanwhile.
            if (parts[2] == "-") mService.poll();
            EXPECT_EQ(Seen(), parts[3]) << parts[1];
            Forget();
        }
    }
    void Do(const std::string& event)
    {
        std::istringstream words(event);
        std::string verb;
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        words >> verb >> std::setbase(0) >> first >> second;
        const auto port = static_cast<UINT8GIGEPORT>(first);
        if (Packets.count(verb) != 0) Send(port, Packets.at(verb));
        if (verb == "plug") Plug(port);
        if (verb == "unplug") mManager.DestroyConnection(LinkIndex{port});
        if (verb == "timeout") mManager.SetUdpTimeout(LinkIndex{port}, milliseconds(second));
        EXPECT_TRUE(verb != "hears" || Await([&] { return "hears " + Receive(port) == event; }, [] {})) << event;
        if (verb == "wait") WaitForBeats(port, second);
        EXPECT_TRUE(verb != "silent" || mNeighbours[port].available() == 0) << event;
        if (verb == "state") mComms.mState = static_cast<StreamState>(first);
        if (verb == "router-lost") mManager.RouterLost(port);
        if (verb == "device") mManager.OnDeviceChange(second, port, false, Local);
        if (verb == "rack") mManager.OnLocalHidChanged((first << 16) | 0x8000);
        const auto rate = static_cast<SampleRates::SystemSampleRate>(first);
        if (verb == "rate")
            mManager.ReceivedSetRouterSampleRateCmd(std::make_shared<SetRouterSampleRateCmd>(rate, 0u), 0, Local);
        if (verb == "allowance")
            mManager.ReceivedRouterTimeAllowanceCmd(std::make_shared<RouterDetectTimeAllowanceCmd>(first), 0, Local);
        if (verb == "driver") mDriver->Execute(event.substr(verb.size() + 1));
    }
    void Forget()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.clear();
        mLogged = mLog.Lines().size();
    }
    /// All since the last line of a script.
    std::string Seen()
    {
        const std::regex remarkable(
            "[Ff]ail|[Ee]rror|delay|IGNORING|ignore|malformed|incompatible|No connection|Start R|^\\*\\* ");
        const std::lock_guard<std::mutex> lock(mMutex);
        Lines seen = mLines;
        const Lines logged = mLog.Lines();
        for (std::size_t i = mLogged; i < logged.size(); ++i) {
            if (std::regex_search(logged[i], remarkable)) seen.push_back("log " + boost::trim_all_copy(logged[i]));
        }
        return std::regex_replace(boost::join(seen, "; "), std::regex("(delay of )[0-9]+"), "$1N");
    }

    /// Plugs a cable in; from here on the module's heartbeats come.
    void Plug(UINT8GIGEPORT port)
    {
        mManager.CreateConnection(LinkIndex{port}, {Loopback, 0}, 7, mNeighbours[port].local_endpoint(), 0x204);
        ASSERT_NE(Receive(port), "");
    }
    /// The module's next heartbeat, which also shows the address to answer; nothing if none comes.
    std::string Receive(UINT8GIGEPORT port)
    {
        std::uint8_t bytes[64];
        pollfd wait{mNeighbours[port].native_handle(), POLLIN, 0};
        if (::poll(&wait, 1, 10000) != 1) return "";
        if (mNeighbours[port].receive_from(boost::asio::buffer(bytes), mModule[port]) != 12) return "";
        const K2Heartbeat::LinkState beat(bytes);
        std::ostringstream text;
        text << unsigned{port} << ' ' << beat.GetHid() << beat.GetType() << ' ' << std::hex << beat.GetVariant();
        return text.str();
    }
    /// Drops the module's heartbeats on a port that have come, and lets time pass, counted by the next.
    void WaitForBeats(UINT8GIGEPORT port, std::uint32_t count)
    {
        while (mNeighbours[port].available() != 0)
            Receive(port);
        while (count-- > 0)
            EXPECT_NE(Receive(port), "");
    }
    void Send(UINT8GIGEPORT port, const std::string& packet)
    {
        mNeighbours[port].send_to(boost::asio::buffer(packet), mModule[port]);
    }
    template <class... Parts>
    void Add(const Parts&... parts)
    {
        std::ostringstream line;
        ((line << parts), ...);
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(boost::trim_all_copy(line.str()));
    }

    LogRecorder mLog{DebugFeature::RouterConnectionDebug, DebugFeature::RouterConnectionDebugVerbose};
    std::size_t mLogged = 0;
    boost::asio::io_service mService;
    const boost::asio::io_service::work mWork{mService};
    /// Signals, commands for the shell and those that are sent, in their order, from any thread.
    std::mutex mMutex;
    Lines mLines;
    LinkComms mComms{[this](const std::string& sent) { Add(sent); }, DeviceNames()};
    const std::string mInterfaces = testing::TempDir() + "/TestLinkManager." + std::to_string(getpid()) + "/";
    const bool mHasInterfaces = std::filesystem::create_directories(mInterfaces + "k2link0") &&
                                std::filesystem::create_directories(mInterfaces + "k2link1");
    /// What the shell answers.
    std::atomic<int> mResult{0};
    LinkEnvironment mEnvironment{[this](const std::string& command, const std::string&) {
                                     Add(command);
                                     return mResult.load();
                                 },
                                 mInterfaces, milliseconds(0), milliseconds(10), milliseconds(10)};
    std::unique_ptr<sim::LinkDriver> mDriver;
    LinkManager mManager{mService, 2, mComms, mEnvironment};
    std::array<udp::socket, 2> mNeighbours{udp::socket(mService, {address_v4(0x7F000002), 0}),
                                           udp::socket(mService, {address_v4(0x7F000003), 0})};
    std::array<udp::endpoint, 2> mModule;
};

class LinkManagerScene : public LinkManagerTest, public testing::WithParamInterface<Scene>
{};

} // namespace

/// The driver of the simulation, if there is one.
int ConnectLinkDriverSocket(nl_sock* socket)
{
    ++sConnections;
    const int result = nl_connect(socket, NETLINK_USERSOCK);
    nl_socket_set_peer_port(socket, sim::LinkDriver::NETLINK_PORT);
    return result;
}

TEST_P(LinkManagerScene, Plays)
{
    Play(GetParam().script);
}
INSTANTIATE_TEST_SUITE_P(, LinkManagerScene, testing::ValuesIn(ScenesOf(LinkManagerScenes)), NameOfScene);

TEST_F(LinkManagerTest, TheFirstBeatLeavesAtOnceAndOneThatCannotLeaveIsTheLast)
{
    EXPECT_EQ(LinkEnvironment().heartbeatPeriod, milliseconds(300)) << "neighbours count on it";
    LinkEnvironment slow = mEnvironment;
    slow.heartbeatPeriod = std::chrono::hours(1);
    LinkManager manager(mService, 2, mComms, slow);
    manager.CreateConnection(LinkIndex{0}, {Loopback, 0}, 7, mNeighbours[1].local_endpoint(), 0x204);
    EXPECT_EQ(Receive(1), "1 255.255:8000 OrbDsp ffff000f");
    manager.CreateConnection(LinkIndex{1}, {Loopback, 0}, 7, {address_v4::broadcast(), 9}, 0x204);
    EXPECT_TRUE(mLog.WaitFor("Failed to send HB: Permission denied\n"));
}

TEST_F(LinkManagerTest, AFloodOfHeartbeatsDoesNotQueueUpForABusyMainThread)
{
    for (int i = 1; i <= 1100; ++i) {
        Send(0, Packets.at("box"));
        // A hundred fit into the kernel's queue. The last are dropped.
        ASSERT_TRUE(i % 100 != 0 || i > 1000 || mLog.WaitFor("Received HB on H0 ", i));
    }
    WaitForBeats(0, 20);
    Plug(1);
    Send(1, Packets.at("box"));
    WaitForBeats(1, 3);
    mService.poll();
    EXPECT_EQ(mLines.size(), 1002u + 3u) << "a thousand heartbeats, and the other link's";
    Forget();
    Play("box2 0 -> internals 1.2:1 12; beat 0");
}

TEST_F(LinkManagerTest, AfterAStallANeighbourWithALiveStreamIsLostAndThenNew)
{
    Play("state 1; plug 1; box 0 -> new H0 127.0.0.1 H7 127.0.0.2 1.2:1 Modular; internals 1.2:1 11; beat 0");
    std::ostringstream received;
    received << "Received HB on H0  from " << mNeighbours[0].local_endpoint() << "\n";
    mLog.Hold(received.str());
    Do("timeout 0 500");
    Do("box 0");
    ASSERT_TRUE(mLog.WaitFor(received.str(), 2));
    WaitForBeats(1, 85);
    mLog.Release();
    Play(R"(
 => log A heartbeat receive delay of N/500 ms has occurred on H0; log * Received a heartbeat on H0 but the connected
  stream is about to be closed: ignore.; log A heartbeat send delay of Nms has occurred on H0
box 0 -> lost H0 1.2:1 Modular; new H0 127.0.0.1 H7 127.0.0.2 1.2:1 Modular; internals 1.2:1 11; beat 0)");
}

TEST_F(LinkManagerTest, ALinkCanBeDestroyedWhileItsThreadAsksForARestart)
{
    mLog.Hold("Routers Disallowed\r\n");
    Do("plug 1");
    Do("router44 1");
    ASSERT_TRUE(mLog.WaitFor("Routers Disallowed"));
    // The link's thread comes to the lock of the restart when the main thread is at work.
    const auto release = std::async(std::launch::async, [this] {
        WaitForBeats(0, 5);
        mLog.Release();
    });
    Play(R"(
unplug 1 -> P0 notification 0; master 0.35:0; P0 restart 00230100; lost H1 0x204(516) Unknown(0); P0 notification 3;
  log Network at incompatible base rate... Our Rate 48kHz Network Rate 44.1kHz;
  log Router detected on downstream ports IGNORING.)");
}

TEST_F(LinkManagerTest, PortsOutOfRangeAreAssertionsAndNoMore)
{
    mManager.SetUdpTimeout(LinkIndex{2}, milliseconds(1));
    mManager.HandleHeartbeatTimeout(2, {});
    EXPECT_EQ(mManager.GetAdmaEndpointId(2, std::chrono::seconds(5)), 0);
    EXPECT_TRUE(mLog.WaitFor("Assert failed", 3));
    mManager.SetUdpTimeout(LinkIndex{1}, milliseconds(1));
    EXPECT_TRUE(mLog.Has("No heartbeat timer running on Gige port H1 , ignoring timeout settings\n"));
    mManager.HandleHeartbeatTimeout(1, {});
    EXPECT_TRUE(mLog.Has("HandleHeartbeatTimeout: No connection on local Gige port H1  to destroy\n"));
}

TEST_F(LinkManagerTest, TheScanFollowsTheDriverItsReportsAndItsRestart)
{
    const auto start = [this] { mDriver = std::make_unique<sim::LinkDriver>(); };
    const auto readHid = [path = mInterfaces + "k2link1/k2hid"] {
        std::string text;
        std::ifstream(path) >> text;
        std::filesystem::remove(path);
        return text;
    };
    EXPECT_EQ(readHid(), "70");
    Play("allowance 0xFFFFFFFF; device 0 0x230001 -> ifconfig k2link0 up; ifconfig k2link1 up; log Start Router Ignore "
         "Timer");
    // The scan has come up without a driver, and looks for one.
    Await([before = sConnections.load()] { return sConnections > before + 1; }, [] {});
    try {
        start();
    } catch (const std::system_error& error) {
        GTEST_SKIP() << error.what() << ": no netlink between processes here";
    }
    EXPECT_EQ(mManager.GetAdmaEndpointId(0, std::chrono::hours(1)), 1);
    Play(" => ifconfig k2link0 up; ifconfig k2link1 up");
    EXPECT_EQ(readHid(), "70");

    mNeighbours[1] = udp::socket(mService, {address_v4(0x7F0027FE), 60001});
    Play("driver plug 1 0x3F800 0x307 => ifconfig k2link1 127.0.39.2 netmask 255.255.255.0");
    Await([this] { return mNeighbours[1].available() != 0; }, [this] { mService.run_one_for(milliseconds(10)); });
    WaitForBeats(1, 1);
    Play(R"(
box 1 -> new H1 127.0.39.2 H7 127.0.39.254 1.2:1 Modular; internals 1.2:1 11; beat 1
driver burst 3; driver plug 1 0x3F800 8 => ifconfig k2link1 127.0.40.2 netmask 255.255.255.0
 -> lost H1 1.2:1 Unknown(0))");
    mDriver.reset();
    start();
    Play(R"(
 => ifconfig k2link0 up; ifconfig k2link1 0.0.0.0; ifconfig k2link1 up
 -> lost H1 0.3:f800 Unknown(0)
driver plug 1 0x3F800 8 => ifconfig k2link1 127.0.40.2 netmask 255.255.255.0)");
    // Lost reports change nothing.
    mLog.Hold("Scanned\r\n");
    Do("driver burst 10000");
    mLog.Release();
    Play(" => log Error receiving reply to netlink message: Out of memory");
    mResult = 3;
    Play(R"(
driver unplug 1 => ifconfig k2link1 0.0.0.0; log LinkManager::Scan Error 3
 -> lost H1 0.3:f800 Unknown(0))");

    // Another module, which has no identity yet, takes no address. The first keeps the endpoint that it has.
    Do("driver endpoint 0 255");
    Do("driver endpoint 1 256");
    Play(R"(
driver plug 1 0x3F800 8 => ifconfig k2link1 127.0.40.2 netmask 255.255.255.0; log LinkManager::Scan Error 3)");
    {
        LinkManager manager(mService, 2, mComms, mEnvironment);
        EXPECT_EQ(manager.GetAdmaEndpointId(0, std::chrono::seconds(10)), 255);
        EXPECT_EQ(manager.GetAdmaEndpointId(1, std::chrono::seconds(1)), 0);
    }
    EXPECT_EQ(mManager.GetAdmaEndpointId(0, std::chrono::seconds(0)), 1);
    EXPECT_TRUE(mLog.Has("LID: 255.255 LG:H1 RID: 0.3:f800 RG:H8 LS 1\n"));
    Play(R"(
 => ifconfig k2link0 up; ifconfig k2link1 up; ifconfig k2link2 up; ifconfig k2link0 0.0.0.0; ifconfig k2link1 0.0.0.0;
  log Failed to perform initial interface bring up on H0; log Failed to perform initial interface bring up on H1;
  log Failed to perform initial interface bring up on H2; log Failed to get FSI endpoint id for K2link 1;
  log Failed to perform destructor interface take down on H0;
  log Failed to perform destructor interface take down on H1)");
}
