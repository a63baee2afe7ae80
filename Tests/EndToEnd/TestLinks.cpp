// The link layer of the real program: real interfaces and the real ifconfig, the simulated link driver as a process of
// its own, and neighbours over real cables.

#include "Simulation/Stage/UdpSocket.h"
#include "Tests/EndToEnd/Network.h"

#include <csignal>
#include <cstdlib>

#include <sys/stat.h>

using namespace stage;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

std::string OutputOf(const std::string& command)
{
    ChildProcess process({{"sh", "-c", command}});
    EXPECT_EQ(process.Wait().Text(), "exit code 0") << command << ": " << process.Errors();
    return process.Output();
}

/// The IPv4 address of an interface, empty if it has none.
std::string AddressOf(const std::string& interface)
{
    return OutputOf("ip -4 -brief address show dev " + interface + " | tr / ' ' | awk '{printf $3}'");
}

void ExpectAddress(const std::string& interface, const std::string& address)
{
    EXPECT_TRUE(Await([&] { return AddressOf(interface) == address; })) << interface << " has " << AddressOf(interface);
}

/// Until the scan has worked through all reports so far.
void RunThroughReports(Unit& unit)
{
    static unsigned int port = 1;
    unit.TellDriver("plug 2 0x300 " + std::to_string(++port));
    unit.log.WaitForLine("LG:H2 RID: 0x300(768) RG:H" + std::to_string(port) + " LS 1");
}

TEST(Links, APluggedCableGetsItsAddressAndHeartbeatsLeaveEvery300Milliseconds)
{
    Unit unit;
    OutputOf("ip -n pri address add 0.8.0.254/24 dev eth0");
    UdpSocket farEnd(LinkNamespace(0), "0.8.0.254", 60001);
    unit.Start();
    EXPECT_EQ(AddressOf("k2link0"), "");
    unit.TellDriver(PlugLine(0, Box.rack));
    EXPECT_EQ(farEnd.Receive().bytes, std::string("\0\x80\x12\0\6\0\0\0\x0F\0\xFF\xFF", 12));
    // One that is read late makes the next seem early.
    constexpr Milliseconds FourBeats{1160};
    Milliseconds took{0};
    for (int attempt = 0; attempt < 3 && took < FourBeats; ++attempt) {
        const auto start = std::chrono::steady_clock::now();
        for (int beat = 0; beat < 4; ++beat) {
            const Datagram heartbeat = farEnd.Receive();
            EXPECT_EQ(heartbeat.address + ":" + std::to_string(heartbeat.port), "0.8.0.1:60002");
        }
        took = std::chrono::duration_cast<Milliseconds>(std::chrono::steady_clock::now() - start);
    }
    EXPECT_GE(took, FourBeats);
    EXPECT_EQ(AddressOf("k2link0"), "0.8.0.1");
    EXPECT_THAT(OutputOf("ss -uan --tos | grep 0.8.0.1:60002"), HasSubstr(" tos:0x14 "));
    OutputOf("ip -n pri address flush dev eth0");
}

TEST(Links, AnUnpluggedPortAndTheEndTakeTheAddressAwayAndAnExchangedNeighbourGetsALinkOfItsOwn)
{
    Unit unit("IODiscovery");
    unit.Start();
    unit.Plug(0, Box);
    unit.WaitForCable("01 01");
    unit.Plug(1, Box);
    unit.WaitForCable("00 01");
    // The check for the second cable finds it. What it sends has come once a later command has.
    unit.log.WaitForLine("DelayedCableCheck: for Hid: 0.32:1 , port: Sec");
    unit.neighbours[0]->Tell("command 816 u32:0x00200001 u16:1 u8:1");
    unit.orb->WaitFor(peers::IO_OUTPUT_MUTE);
    EXPECT_THAT(Unit::Values(*unit.orb, peers::REMOTE_CABLE_STATE), Not(Contains("01 00 20 00 00 00")));
    unit.Unplug(0);
    ExpectAddress("k2link0", "");
    unit.TellDriver(PlugLine(1, OtherBox.rack));
    ExpectAddress("k2link1", "0.8.96.2");
    unit.WaitForDevice(Box.hid, false);
    EXPECT_EQ(unit.module->Stop().Text(), "exit code 0");
    EXPECT_EQ(AddressOf("k2link1"), "");
}

TEST(Links, AFailedBindLeavesThePortAloneUntilItsAddressChanges)
{
    Unit unit;
    unit.Start();
    {
        const UdpSocket taken({}, "0.0.0.0", 60002);
        unit.TellDriver(PlugLine(0, Box.rack));
        unit.log.WaitForLine("Unable to bind GigePort H0  to Port 0.8.0.1:60002: Error Address already in use");
    }
    unit.TellDriver(PlugLine(0, Box.rack));
    RunThroughReports(unit);
    EXPECT_EQ(unit.CountInLog("SystemWithStderr: command:ifconfig k2link0 0.8.0.1 netmask 255.255.255.0, "), 1u);
    EXPECT_EQ(AddressOf("k2link2"), "") << "a third port is logged and no more";
    unit.Connect(0, OtherBox);
}

TEST(Links, ReportsThatAreLostAreAskedForAgainAndBadOnesDoNoHarm)
{
    Unit unit("CommsDebug");
    unit.Start();
    unit.Connect(0, Box);
    unit.orb->Tell("clear");
    for (const char* bad : {"raw 00", "raw 1000000022000000000000000000000000", "error 19"})
        unit.TellDriver(bad);
    unit.log.WaitForLine("Error reply returned: No such device");
    RunThroughReports(unit);
    EXPECT_THAT(unit.orb->GetReceived(peers::REMOTE_IO_UPDATE), IsEmpty()) << "the box stays";
    // The module stops while more comes than its socket holds, and the news last.
    unit.module->Process().Signal(SIGSTOP);
    unit.TellDriver("burst 20000");
    unit.TellDriver("unplug 0");
    unit.module->Process().Signal(SIGCONT);
    unit.WaitForDevice(Box.hid, false);
    unit.log.WaitForLine("Error receiving reply to netlink message: ");
}

TEST(Links, ADriverThatIsRestartedIsFoundAgain)
{
    constexpr char idFile[] = "/sys/class/net/k2link1/k2hid";
    Unit unit;
    unit.Start();
    unit.Connect(0, Box);
    unit.TellDriver("quit");
    // A port without a link, whose address would be taken away, and which would be up by that.
    OutputOf("ip link set k2link1 down");
    std::filesystem::resize_file(idFile, 0);
    ChildProcess driver(Module::MakeLinkDriverCommand());
    driver.WaitForOutput("LinkDriverSim ready");
    unit.WaitForDevice(Box.hid, false);
    std::string id;
    EXPECT_TRUE(Await([&] { return std::getline(std::ifstream(idFile), id) && id == "36"; })) << "twice the rack";
    EXPECT_TRUE(Await([] { return std::system("ip -o link show up | grep -q ' k2link1[@:]'") == 0; }));
    unit.orb->Tell("clear");
    unit.TellDriver(PlugLine(0, Box.rack));
    unit.WaitForDevice(Box.hid);
}

TEST(Links, ADriverThatHangsAtTheStartIsWaitedForAndAnEndpointIdThatIsNoneEndsIt)
{
    ChildProcess driver(Module::MakeLinkDriverCommand());
    driver.WaitForOutput("LinkDriverSim ready");
    for (const std::string id : {"2", "257"}) {
        ControlChannel(LinkDriverPath).Ask("endpoint 1 " + id);
        driver.Signal(SIGSTOP);
        Unit unit;
        ChildProcess module(Module::MakeCommand({}));
        unit.log.WaitForLine("Started HubLinkManager");
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

TEST(Tools, ThatHangStopNoHeartbeatsAndAreReported)
{
    // They hang as long as there is a file.
    const std::string directory = "/tmp/hung-tools/";
    const std::string path = std::getenv("PATH");
    std::filesystem::create_directory(directory);
    for (const std::string tool : {"ifconfig", "route"}) {
        std::ofstream(directory + tool) << "#!/bin/sh\nwhile [ -e " << directory << "hang ]; do sleep 0.05; done\n"
                                        << "PATH=${PATH#*:}\nexec " << tool << " \"$@\"\n";
        chmod((directory + tool).c_str(), 0755);
    }
    setenv("PATH", (directory + ":" + path).c_str(), 1);
    Unit unit;
    unit.Start();
    setenv("PATH", path.c_str(), 1);
    unit.Connect(0, HubWithBox);
    // How many heartbeats of the module the neighbour on the primary link has heard.
    const auto heard = [&] { return std::stoul(unit.neighbours[0]->Tell("module-heartbeat").front()); };
    // The main thread hangs in route as the hub reports one more device, the scan in ifconfig.
    std::ofstream(directory + "hang").close();
    const unsigned long before = heard();
    unit.neighbours[0]->Tell("device 0x00300003 fixed 0.48.10.1");
    unit.TellDriver("plug 1 66 0");
    unit.log.WaitForLine("SystemWithStderr: route add -net 0.48.10.0 netmask 255.255.255.0 k2link0 is still");
    unit.log.WaitForLine("SystemWithStderr: ifconfig k2link1 0.8.96.2 netmask 255.255.255.0 is still running");
    // It is reported after 2 s, in which six beats are due.
    EXPECT_GE(heard() - before, 5u);
    std::filesystem::remove(directory + "hang");
    unit.WaitForDevice("0x00300003");
    EXPECT_EQ(unit.CountInLog("A heartbeat send delay"), 0u);
    std::filesystem::remove_all(directory);
}

} // namespace
