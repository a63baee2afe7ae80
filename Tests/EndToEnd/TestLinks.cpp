// The link layer in the rig: real interfaces and the real ifconfig, the simulated link driver as a process of its own,
// and a neighbour that speaks over real cables. What stands above the link layer is this program.

#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include "Common/KLV/Commands/RouterCommands.h"
#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/ControlChannel.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Tests/Support/LinkComms.h"
#include "Tests/Support/LinkEvents.h"
#include "Tests/Support/LinkNeighbour.h"
#include "Tests/Support/LogRecorder.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <ifaddrs.h>

using boost::asio::ip::udp;
using stage::ChildProcess;
using stage::ControlChannel;
using testing::ElementsAre;

namespace {

constexpr char DriverSocket[] = "/tmp/linkdriver.control";
constexpr char DriverIdFile[] = "/sys/class/net/k2link0/k2hid";
constexpr std::uint32_t Rack = 0x0023;
const std::vector<std::uint8_t> Box = HeartbeatPacket(0x0102, 0x0001, 3, {0x11, 0, 0, 0});

/// The IPv4 address of an interface, empty if it has none.
std::string AddressOf(const std::string& interface)
{
    std::string text;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return "getifaddrs failed";
    for (const ifaddrs* i = list; i; i = i->ifa_next) {
        if (interface != i->ifa_name || !i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
        const auto* const address = reinterpret_cast<const sockaddr_in*>(i->ifa_addr);
        text = AddressText(ntohl(address->sin_addr.s_addr));
    }
    freeifaddrs(list);
    return text;
}

/// What the driver was told of this node.
std::string DriverId()
{
    std::string text;
    std::getline(std::ifstream(DriverIdFile), text);
    return text;
}

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

class LinksTest : public testing::Test
{
protected:
    /// The addresses that follow from rack 0x0023 here and rack 0x0102 at the far ends.
    struct Port
    {
        const char* networkNamespace;
        const char* address;
        const char* remote;
    };
    static constexpr Port Ports[] = {{"pri", "0.64.128.1", "0.64.128.254"}, {"sec", "0.64.160.2", "0.64.160.254"}};

    ~LinksTest() override
    {
        mManager.reset();
        for (const char* name : {"pri", "sec"})
            Shell(std::string("ip -n ") + name + " address flush dev eth0");
    }

    void StartDriver()
    {
        mDriver = std::make_unique<ChildProcess>(stage::Command{{stage::ProgramPath("LinkDriverSim"), DriverSocket}});
        mDriver->WaitForOutput("LinkDriverSim ready");
        mControl = std::make_unique<ControlChannel>(DriverSocket);
    }
    void KillDriver()
    {
        mControl.reset();
        mDriver->Signal(SIGKILL);
        mDriver->Wait();
    }
    void Drive(const std::string& command) { mControl->Ask(command); }

    void StartManager()
    {
        mManager = std::make_unique<LinkManager>(mService, 2, mComms);
        mEvents = std::make_unique<LinkEvents>(mService, *mManager);
    }
    void BringUp(std::uint32_t rack = Rack)
    {
        mManager->ReceivedRouterTimeAllowanceCmd(std::make_shared<const RouterDetectTimeAllowanceCmd>(600000u), 0,
                                                 StreamType::LOCAL_LINK);
        mManager->OnLocalHidChanged((rack << 16) | 0x8000);
        mManager->OnDeviceChange((rack << 16) | 1, 0, true, StreamType::LOCAL_LINK);
    }
    void Start()
    {
        StartDriver();
        StartManager();
        BringUp();
    }

    /// The far end of a cable takes its address and listens.
    LinkNeighbour& FarEnd(int port) { return FarEnd(port, Ports[port].remote); }
    LinkNeighbour& FarEnd(int port, const std::string& address)
    {
        const std::string name = Ports[port].networkNamespace;
        Shell("ip -n " + name + " address add " + address + "/24 dev eth0");
        const stage::NamespaceScope scope(name);
        mFarEnds[port] =
            std::make_unique<LinkNeighbour>(udp::endpoint(boost::asio::ip::make_address_v4(address), 60001));
        return *mFarEnds[port];
    }
    bool RunUntil(const std::function<bool()>& condition) { return mEvents->RunUntil(condition); }
    bool RunUntilAddress(const std::string& interface, const std::string& address)
    {
        return RunUntil([&] { return AddressOf(interface) == address; });
    }
    /// A box at the far end of a port, known to the module.
    void PlugBox(int port)
    {
        LinkNeighbour& box = FarEnd(port);
        Drive("plug " + std::to_string(port) + " 0x204 0");
        ASSERT_TRUE(RunUntilAddress("k2link" + std::to_string(port), Ports[port].address));
        ASSERT_TRUE(RunUntilHeartbeat(box));
        box.Send(Box);
        ASSERT_TRUE(mEvents->RunUntilLine(Up(port)));
    }
    /// Takes the module's next heartbeat.
    bool RunUntilHeartbeat(LinkNeighbour& farEnd)
    {
        return RunUntil([&] { return farEnd.HasHeartbeat(); }) && farEnd.Receive().size() == 12;
    }
    /// Until the scan has worked through all reports so far.
    void RunThroughReports()
    {
        const std::string fence = "LID: 0.35 LG:H2 RID: 0x300(768) RG:H5 LS 1\n";
        const std::size_t before = mLog.Count(fence);
        Drive("plug 2 0x300 5");
        ASSERT_TRUE(RunUntil([&] { return mLog.Count(fence) > before; }));
        mService.restart();
        mService.poll();
    }
    static std::string Up(int port, const std::string& who = "1.2:1 Modular ")
    {
        return "device H" + std::to_string(port) + " " + Ports[port].address + " H0 " + Ports[port].remote + " " + who;
    }
    static std::string Down(int port, const std::string& who = "1.2:1 ")
    {
        return "device H" + std::to_string(port) + " 0.0.0.0 UNKNOWN_PORT 0.0.0.0 " + who + "Unknown(0)";
    }
    std::size_t CountAddressCommands(int port) const
    {
        return mLog.Count("SystemWithStderr: command:ifconfig k2link" + std::to_string(port) + " " +
                          Ports[port].address + " netmask 255.255.255.0, err_file:/tmp/ifup.err\r\n");
    }

    LogRecorder mLog{DebugFeature::RouterConnectionDebug, DebugFeature::CommsDebug};
    std::unique_ptr<ChildProcess> mDriver;
    std::unique_ptr<ControlChannel> mControl;
    boost::asio::io_service mService;
    LinkComms mComms;
    std::unique_ptr<LinkManager> mManager;
    std::unique_ptr<LinkEvents> mEvents;
    std::unique_ptr<LinkNeighbour> mFarEnds[2];
};
constexpr LinksTest::Port LinksTest::Ports[];

} // namespace

TEST_F(LinksTest, APluggedCableGetsItsAddressAndHeartbeatsLeaveAtOnceAndEvery300Milliseconds)
{
    StartDriver();
    LinkNeighbour& farEnd = FarEnd(0);
    Drive("plug 0 0x204 0");
    StartManager();
    // The ids of the ports are known before the module has an identity, and nothing is configured yet.
    EXPECT_EQ(mManager->GetAdmaEndpointId(0, std::chrono::seconds(5)), 1);
    EXPECT_EQ(mManager->GetAdmaEndpointId(1, std::chrono::seconds(5)), 2);
    EXPECT_TRUE(mLog.HasStart("LID: 255.255 LG:H0 RID: 0x204(516) RG:H0 LS "));
    EXPECT_EQ(AddressOf("k2link0"), "");

    BringUp();
    EXPECT_EQ(DriverId(), "70");
    std::chrono::nanoseconds last{0};
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(RunUntil([&] { return farEnd.HasHeartbeat(); }));
        EXPECT_THAT(farEnd.Receive(), ElementsAre(0x00, 0x80, 0x23, 0x00, 6, 0, 0, 0, 0x0F, 0x00, 0xFF, 0xFF));
        EXPECT_GE(farEnd.Arrival() - last, std::chrono::milliseconds(290));
        last = farEnd.Arrival();
        EXPECT_EQ(farEnd.TypeOfService(), 20);
        EXPECT_EQ(farEnd.GetModule(), udp::endpoint(boost::asio::ip::make_address_v4("0.64.128.1"), 60002));
    }
    EXPECT_EQ(AddressOf("k2link0"), "0.64.128.1");
    EXPECT_TRUE(mLog.Has("Local IP: 0.64.128.1Remote IP: 0.64.128.254\n"));
    EXPECT_TRUE(mLog.Has("IP Difference Local IP: 0.64.128.1Current IP: 0.0.0.0\n"));
}

TEST_F(LinksTest, UnpluggedAndPluggedAgainABoxIsLostAndNew)
{
    Start();
    PlugBox(0);
    PlugBox(1);
    mEvents->Take();

    // Nothing new in the same report.
    Drive("plug 0 0x204 0");
    RunThroughReports();
    EXPECT_EQ(CountAddressCommands(0), 1u);

    Drive("unplug 0");
    ASSERT_TRUE(mEvents->RunUntilLine(Down(0)));
    EXPECT_TRUE(RunUntilAddress("k2link0", ""));
    EXPECT_EQ(AddressOf("k2link1"), Ports[1].address);
    EXPECT_THAT(mEvents->Take(), ElementsAre(Down(0)));

    Drive("plug 0 0x204 0");
    ASSERT_TRUE(RunUntilHeartbeat(*mFarEnds[0]));
    mFarEnds[0]->Send(Box);
    EXPECT_TRUE(mEvents->RunUntilLine(Up(0)));
    EXPECT_EQ(CountAddressCommands(0), 2u);
}

TEST_F(LinksTest, AThirdPortIsLoggedAndNoMore)
{
    Start();
    RunThroughReports();
    EXPECT_EQ(AddressOf("k2link2"), "");
    EXPECT_FALSE(mLog.HasStart("SystemWithStderr: command:ifconfig k2link2 0"));
}

TEST_F(LinksTest, ANeighbourThatIsExchangedUnderTheModuleGetsALinkOfItsOwn)
{
    Start();
    PlugBox(0);
    mEvents->Take();
    LinkNeighbour& other = FarEnd(0, "0.64.192.254");
    Drive("plug 0 0x206 0");
    ASSERT_TRUE(RunUntilHeartbeat(other));
    EXPECT_EQ(other.GetModule().address().to_string(), "0.64.192.1");
    EXPECT_THAT(mEvents->Take(), ElementsAre(Down(0)));
    EXPECT_EQ(AddressOf("k2link0"), "0.64.192.1");
}

TEST_F(LinksTest, AFailedBindLeavesThePortAloneUntilItsAddressChanges)
{
    Start();
    {
        udp::socket taken(mService, udp::endpoint(udp::v4(), 60002));
        Drive("plug 0 0x204 0");
        ASSERT_TRUE(RunUntil([&] {
            return mLog.Has("Unable to bind GigePort H0  to Port 0.64.128.1:60002: Error Address already in use\n");
        }));
    }
    Drive("plug 0 0x204 0");
    RunThroughReports();
    EXPECT_EQ(CountAddressCommands(0), 1u);
    LinkNeighbour& other = FarEnd(0, "0.64.192.254");
    Drive("plug 0 0x206 0");
    EXPECT_TRUE(RunUntilHeartbeat(other));
}

TEST_F(LinksTest, WhatTheDriverSaysBadlyDoesNoHarm)
{
    Start();
    PlugBox(0);
    Drive("raw 00");
    Drive("raw 1000000022000000000000000000000000");
    Drive("error 19");
    ASSERT_TRUE(RunUntil([&] { return mLog.Has("Error reply returned: No such device\n"); }));
    RunThroughReports();
    const std::vector<std::string> events = mEvents->Take();
    EXPECT_EQ(std::count(events.begin(), events.end(), Down(0)), 0) << "the box stays";
    EXPECT_EQ(AddressOf("k2link0"), Ports[0].address);
    EXPECT_THROW(Drive("raw 0"), std::runtime_error);
    EXPECT_THROW(Drive("plug 3 1 1"), std::runtime_error);
    EXPECT_THROW(Drive("dance"), std::runtime_error);
}

TEST_F(LinksTest, ReportsThatAreLostAreAskedForAgain)
{
    Start();
    PlugBox(0);
    // The scan stands still while more comes than its socket holds, and the news last.
    mLog.Hold("Scanned\r\n");
    Drive("burst 20000");
    Drive("unplug 0");
    mLog.Release();
    EXPECT_TRUE(mEvents->RunUntilLine(Down(0)));
    EXPECT_TRUE(mLog.HasStart("Error receiving reply to netlink message: "));
}

TEST_F(LinksTest, ANeighbourWhoseHeartbeatsStayAwayIsLostAndTheCableStays)
{
    Start();
    PlugBox(1);
    mManager->SetUdpTimeout(1, std::chrono::milliseconds(1000));
    ASSERT_TRUE(mEvents->RunUntilLine("device H1 0.0.0.0 UNKNOWN_PORT 0.0.0.0 1.2:1 Modular "));
    mEvents->Take();
    EXPECT_TRUE(RunUntilHeartbeat(*mFarEnds[1]));
    mFarEnds[1]->Send(Box);
    EXPECT_TRUE(mEvents->RunUntilLine(Up(1)));
    EXPECT_EQ(CountAddressCommands(1), 1u);
}

TEST_F(LinksTest, TheEndTakesTheAddressesAway)
{
    Start();
    PlugBox(0);
    PlugBox(1);
    mManager.reset();
    EXPECT_EQ(AddressOf("k2link0"), "");
    EXPECT_EQ(AddressOf("k2link1"), "");
}

TEST_F(LinksTest, ADriverThatDiesAndReturnsIsFoundAgain)
{
    Start();
    PlugBox(0);
    mEvents->Take();
    KillDriver();
    Shell("ip link set k2link0 down");
    std::ofstream(DriverIdFile, std::ios::trunc);
    StartDriver();
    EXPECT_TRUE(mEvents->RunUntilLine(Down(0)));
    EXPECT_TRUE(RunUntil([] { return DriverId() == "70"; }));
    Drive("plug 0 0x204 0");
    ASSERT_TRUE(RunUntilHeartbeat(*mFarEnds[0]));
    while (mFarEnds[0]->HasHeartbeat())
        mFarEnds[0]->Receive();
    ASSERT_TRUE(RunUntilHeartbeat(*mFarEnds[0]));
    mFarEnds[0]->Send(Box);
    EXPECT_TRUE(mEvents->RunUntilLine(Up(0)));
}

TEST_F(LinksTest, ADriverThatHangsHoldsNobodyUp)
{
    Start();
    PlugBox(0);
    Drive("endpoint 1 257");
    mDriver->Signal(SIGSTOP);
    mManager.reset();
    StartManager();
    EXPECT_EQ(mManager->GetAdmaEndpointId(0, std::chrono::seconds(1)), 0);
    mDriver->Signal(SIGCONT);
    EXPECT_EQ(mManager->GetAdmaEndpointId(0, std::chrono::seconds(10)), 1);
    EXPECT_EQ(mManager->GetAdmaEndpointId(1, std::chrono::seconds(1)), 0) << "no id of an endpoint";
}
