// The link layer of the real program: real interfaces and the real ifconfig, the simulated link driver as a process of
// its own, and neighbours over real cables.

#include "Simulation/Stage/UdpSocket.h"
#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

using namespace stage;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// The IPv4 address of an interface, empty if it has none.
std::string AddressOf(const std::string& interface)
{
    ChildProcess process({{"ip", "-4", "-brief", "address", "show", "dev", interface}});
    process.Wait();
    std::istringstream words(process.Output());
    std::string address;
    words >> address >> address >> address;
    return address.substr(0, address.find('/'));
}

void ExpectAddress(const std::string& interface, const std::string& address)
{
    const Deadline deadline(Patience);
    while (AddressOf(interface) != address && !deadline.HasPassed())
        std::this_thread::yield();
    EXPECT_EQ(AddressOf(interface), address) << interface;
}

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

/// Until the scan has worked through all reports so far.
void RunThroughReports(Network& network)
{
    static unsigned int port = 1;
    network.TellDriver("plug 2 0x300 " + std::to_string(++port));
    network.GetLog().WaitForLine("LG:H2 RID: 0x300(768) RG:H" + std::to_string(port) + " LS 1");
}

TEST(Links, APluggedCableGetsItsAddressAndHeartbeatsLeaveEvery300Milliseconds)
{
    Network network;
    Shell("ip -n pri address add 0.8.0.254/24 dev eth0");
    UdpSocket farEnd(LinkNamespace(0), "0.8.0.254", 60001);
    network.Start();
    EXPECT_EQ(AddressOf("k2link0"), "");
    network.TellDriver(PlugLine(0, Box.rack));
    EXPECT_EQ(farEnd.Receive().bytes, std::string("\0\x80\x12\0\6\0\0\0\x0F\0\xFF\xFF", 12));
    // One that is read late makes the next seem early.
    auto took = std::chrono::milliseconds(0);
    for (int attempt = 0; attempt < 3 && took < std::chrono::milliseconds(1160); ++attempt) {
        const auto start = std::chrono::steady_clock::now();
        for (int beat = 0; beat < 4; ++beat) {
            const Datagram heartbeat = farEnd.Receive();
            EXPECT_EQ(heartbeat.address + ":" + std::to_string(heartbeat.port), "0.8.0.1:60002");
        }
        took = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
    }
    EXPECT_GE(took, std::chrono::milliseconds(1160));
    EXPECT_EQ(AddressOf("k2link0"), "0.8.0.1");
    Shell("ip -n pri address flush dev eth0");
}

TEST(Links, AnUnpluggedPortAndTheEndTakeTheAddressAwayAndAnExchangedNeighbourGetsALinkOfItsOwn)
{
    Network network;
    network.Start();
    network.Plug(0, Box);
    network.WaitForCable(BoxOnWire, "01 01");
    network.Plug(1, Box);
    network.WaitForCable(BoxOnWire, "00 01");
    network.Unplug(0);
    ExpectAddress("k2link0", "");
    network.TellDriver(PlugLine(1, OtherBox.rack));
    ExpectAddress("k2link1", "0.8.96.2");
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid, false);
    EXPECT_EQ(network.GetModule().Stop().Text(), "exit code 0");
    EXPECT_EQ(AddressOf("k2link1"), "");
}

TEST(Links, AFailedBindLeavesThePortAloneUntilItsAddressChanges)
{
    Network network;
    network.Start();
    {
        const UdpSocket taken({}, "0.0.0.0", 60002);
        network.TellDriver(PlugLine(0, Box.rack));
        network.GetLog().WaitForLine("Unable to bind GigePort H0  to Port 0.8.0.1:60002: Error Address already in use");
    }
    network.TellDriver(PlugLine(0, Box.rack));
    RunThroughReports(network);
    EXPECT_EQ(network.CountInLog("SystemWithStderr: command:ifconfig k2link0 0.8.0.1 netmask 255.255.255.0, "), 1u);
    EXPECT_EQ(AddressOf("k2link2"), "") << "a third port is logged and no more";
    network.Plug(0, OtherBox);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, OtherBox.hid);
}

TEST(Links, ReportsThatAreLostAreAskedForAgainAndBadOnesDoNoHarm)
{
    Network network("CommsDebug");
    network.Start();
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    network.GetOrb().Tell("clear");
    for (const char* bad : {"raw 00", "raw 1000000022000000000000000000000000", "error 19"})
        network.TellDriver(bad);
    network.GetLog().WaitForLine("Error reply returned: No such device");
    RunThroughReports(network);
    EXPECT_THAT(network.GetOrb().GetReceived(peers::REMOTE_IO_UPDATE), IsEmpty()) << "the box stays";
    // The module stops while more comes than its socket holds, and the news last.
    network.GetModule().Process().Signal(SIGSTOP);
    network.TellDriver("burst 20000");
    network.TellDriver("unplug 0");
    network.GetModule().Process().Signal(SIGCONT);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid, false);
    network.GetLog().WaitForLine("Error receiving reply to netlink message: ");
}

TEST(Links, ADriverThatIsRestartedIsFoundAgain)
{
    constexpr char idFile[] = "/sys/class/net/k2link1/k2hid";
    Network network;
    network.Start();
    network.Plug(0, Box);
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
    network.TellDriver("quit");
    // A port without a link, whose address would be taken away, and which would be up by that.
    Shell("ip link set k2link1 down");
    std::filesystem::resize_file(idFile, 0);
    ChildProcess driver(Module::MakeLinkDriverCommand());
    driver.WaitForOutput("LinkDriverSim ready");
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid, false);
    std::string id;
    const Deadline deadline(Patience);
    const auto isUp = [] { return std::system("ip -o link show up | grep -q ' k2link1[@:]'") == 0; };
    while ((id != "36" || !isUp()) && !deadline.HasPassed())
        std::getline(std::ifstream(idFile), id);
    EXPECT_EQ(id, "36") << "twice the rack";
    EXPECT_TRUE(isUp());
    network.GetOrb().Tell("clear");
    network.TellDriver(PlugLine(0, Box.rack));
    network.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid);
}

TEST(Links, ADriverThatHangsAtTheStartIsWaitedForAndAnEndpointIdThatIsNoneEndsIt)
{
    ChildProcess driver(Module::MakeLinkDriverCommand());
    driver.WaitForOutput("LinkDriverSim ready");
    for (const std::string id : {"2", "257"}) {
        ControlChannel(LinkDriverPath).Ask("endpoint 1 " + id);
        driver.Signal(SIGSTOP);
        unlink(LogPath);
        LogFile log;
        ChildProcess module(Module::MakeCommand({}));
        log.WaitForLine("Started HubLinkManager");
        driver.Signal(SIGCONT);
        if (id == "2") {
            module.WaitForOutput("Run...........");
            EXPECT_EQ(module.Stop().Text(), "exit code 0");
        } else {
            EXPECT_EQ(module.Wait().Text(), "exit code 3");
            EXPECT_THAT(module.Errors(), HasSubstr("of k2link1 is not 1 to"));
        }
    }
}

} // namespace
