#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>

using namespace stage;

namespace {

/// However busy it is, so long may the module take to end.
constexpr Milliseconds TimeToEnd{5000};

void ExpectOrderlyEnd(ChildProcess& process)
{
    process.Signal(SIGTERM);
    EXPECT_EQ(process.Wait(TimeToEnd).Text(), "exit code 0");
    EXPECT_EQ(process.Errors(), "");
}

/// The lines that the log has from the first of all to the last before the run, each the moment of a signal.
const std::vector<std::string> LinesOfTheStart{
    "DebugConfig : ",         "Starting OrbRouterKLVComms", "starting... Hid 0xc002",   "Starting HubLinkManager",
    "Started HubLinkManager", "Starting DeviceManager",     "Starting PatchController", "Run..........."};

class DuringTheStart : public testing::TestWithParam<std::string>
{};

TEST_P(DuringTheStart, TheModuleEndsInGoodOrder)
{
    unlink(LogPath);
    // The driver answers, and has a neighbour on each link.
    ChildProcess driver(Module::MakeLinkDriverCommand());
    driver.WaitForOutput("ready");
    for (const std::string link : {"0", "1"})
        ControlChannel(LinkDriverPath).Ask("plug " + link + " 64 0");
    LogFile log;
    ChildProcess module(Module::MakeCommand({}));
    log.WaitForLine(GetParam());
    ExpectOrderlyEnd(module);
}

INSTANTIATE_TEST_SUITE_P(Ending, DuringTheStart, testing::ValuesIn(LinesOfTheStart),
                         [](const auto& each) { return "AtLine" + std::to_string(each.index); });

struct Moment
{
    const char* name;
    std::function<void(Network&)> play;
};

void PrintTo(const Moment& moment, std::ostream* out)
{
    *out << moment.name;
}

void LearnIdentity(Network& network)
{
    network.StartOrbRouter();
    network.StartUpdateService();
    network.StartModule();
    network.GetLog().WaitForLine("LinkManager::OnLocalHidChanged");
}

void RunWithStreams(Network& network)
{
    network.Start();
    network.Plug(0, HubWithBox);
    network.GetOrb().WaitForUpdate(RemoteIoUpdate, HubBoxHid);
}

void Flood(Network& network)
{
    RunWithStreams(network);
    network.GetNeighbour(0).Tell("flood 0x00400000 20000");
    network.GetNeighbour(0).WaitFor(IoInfoDevReq, 10);
}

/// The source is lost, the new table stands in the FPGA, and its activation does not come.
void SwingOver(Network& network)
{
    network.Start();
    network.Plug(0, Box);
    network.WaitForCable(BoxOnWire, "01 01");
    network.Plug(1, Box);
    network.WaitForCable(BoxOnWire, "00 01");
    ControlChannel control = network.GetModule().OpenControl();
    network.GetOrb().Tell("patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5");
    control.WaitForRoute({BulkEndpoint, 0}, Sample{FirstLinkEndpoint, 3});
    control.Ask("hold on");
    network.TellDriver("unplug 0");
    constexpr std::uint32_t syncRequest = 1u << 5;
    control.WaitForRegister(AudioDmaBlock, ControlRegister, syncRequest, syncRequest);
    EXPECT_EQ(control.Probe({BulkEndpoint, 0}), (Sample{FirstLinkEndpoint, 3}));
}

class WhileItWorks : public testing::TestWithParam<Moment>
{};

TEST_P(WhileItWorks, TheModuleEndsInGoodOrder)
{
    Network network;
    GetParam().play(network);
    ExpectOrderlyEnd(network.GetModule().Process());
}

INSTANTIATE_TEST_SUITE_P(Ending, WhileItWorks,
                         testing::Values(Moment{"AsItLearnsItsIdentity", LearnIdentity},
                                         Moment{"WithStreams", RunWithStreams}, Moment{"InAFloodOfReports", Flood},
                                         Moment{"InASwingOver", SwingOver}),
                         [](const auto& each) { return each.param.name; });

/// The lines of several slots of one signal stand in this order, from the first line on.
void ExpectInOrder(Network& network, const std::vector<std::string>& lines)
{
    for (const std::string& line : lines)
        network.GetLog().WaitForLine(line);
    const std::string log = network.GetLog().Text();
    std::size_t position = log.find(lines.front());
    for (const std::string& line : lines) {
        position = log.find(line, position);
        ASSERT_NE(position, std::string::npos) << "not in its place: " << line;
    }
}

TEST(Slots, ActInTheOrderOfTheirConnections)
{
    Network network("CmdDebug RouterAudioRoute");
    network.Start();
    ExpectInOrder(network, {"LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000", "PatchController::OnLocalHidChanged",
                            "ifconfig eth0:1280 0.18.5.0", "ifconfig eth0:1536 0.18.6.0"});
    ExpectInOrder(network, {"LinkManager::OnDeviceChange Device Online", "PatchController::OnDeviceChange Hid"});

    network.GetOrb().Tell("command 674 u32:3 u32:0");
    ExpectInOrder(network,
                  {"LinkManager::ReceivedSetRouterSampleRateCmd", "Forwarding ", "Main lamda SetRouterSampleRateCmd"});

    network.Plug(0, Box);
    ExpectInOrder(network, {"PatchController::OnDeviceChange Hid 0.32:1", "Setting UDP timeout on Gige port"});
}

} // namespace
