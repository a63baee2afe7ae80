#include "Tests/EndToEnd/Network.h"

#include <csignal>

using namespace stage;
using testing::HasSubstr;
using testing::Not;

namespace {

/// However busy it is, so long may the module take to end.
constexpr Milliseconds TimeToEnd{5000};

void ExpectOrderlyEnd(ChildProcess& process)
{
    process.Signal(SIGTERM);
    EXPECT_EQ(process.Wait(TimeToEnd).Text(), "exit code 0");
    EXPECT_EQ(process.Errors(), "");
}

TEST(Ending, IsOrderlyAtEachLineOfTheStart)
{
    // From the first of all to the last before the run.
    for (const std::string line :
         {"DebugConfig : ", "Starting OrbRouterKLVComms", "starting... Hid 0xc002", "Starting HubLinkManager",
          "Started HubLinkManager", "Starting DeviceManager", "Starting PatchController", "Run..........."}) {
        SCOPED_TRACE(line);
        Unit unit;
        // The driver answers, and has a neighbour on each link.
        ChildProcess driver(Module::MakeLinkDriverCommand());
        driver.WaitForOutput("ready");
        for (const unsigned int link : {0, 1})
            ControlChannel(LinkDriverPath).Ask(PlugLine(link, 0x20));
        ChildProcess module(Module::MakeCommand({}));
        unit.log.WaitForLine(line);
        ExpectOrderlyEnd(module);
    }
}

void LearnIdentity(Unit& unit)
{
    unit.StartOrbRouter();
    unit.StartUpdateService();
    unit.module.emplace();
    unit.log.WaitForLine("LinkManager::OnLocalHidChanged");
}

void Flood(Unit& unit)
{
    unit.Start();
    unit.Connect(0, HubWithBox);
    unit.neighbours[0]->Tell("flood 0x00400000 20000");
    unit.neighbours[0]->WaitFor(peers::IO_INFO_DEV_REQ, 10);
}

/// The source is lost, the new table is written, and its activation does not come.
void SwingOver(Unit& unit)
{
    unit.Start();
    unit.Plug(0, Box);
    unit.WaitForCable("01 01");
    unit.Plug(1, Box);
    unit.WaitForCable("00 01");
    ControlChannel control = unit.module->OpenControl();
    unit.orb->Tell(PatchFromBox);
    control.WaitForRoute({BulkEndpoint, 0}, Sample{FirstLinkEndpoint, 3});
    control.Ask("hold on");
    unit.TellDriver("unplug 0");
    constexpr std::uint32_t syncRequest = 1u << 5;
    control.WaitForRegister(AudioDmaBlock, ControlRegister, syncRequest, syncRequest);
    EXPECT_EQ(control.Probe({BulkEndpoint, 0}), (Sample{FirstLinkEndpoint, 3}));
}

TEST(Ending, IsOrderlyWhateverTheModuleIsDoing)
{
    for (void (*const play)(Unit&) : {LearnIdentity, Flood, SwingOver}) {
        Unit unit;
        play(unit);
        ExpectOrderlyEnd(unit.module->Process());
    }
}

/// The lines of several slots of one signal are in this order, from the first line on.
void ExpectInOrder(Unit& unit, const std::vector<std::string>& lines)
{
    for (const std::string& line : lines)
        unit.log.WaitForLine(line);
    const std::string log = unit.log.Text();
    std::size_t position = log.find(lines.front());
    for (const std::string& line : lines) {
        position = log.find(line, position);
        ASSERT_NE(position, std::string::npos) << "not in its place: " << line;
    }
}

TEST(Slots, ActInTheOrderOfTheirConnections)
{
    Unit unit("CmdDebug RouterAudioRoute");
    unit.Start();
    ExpectInOrder(unit, {"LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000", "PatchController::OnLocalHidChanged",
                         "ifconfig eth0:1280 0.18.5.0 netmask 255.255.0.0 up, err_file:/tmp/ifeth0up.err",
                         "ifconfig eth0:1536 0.18.6.0 netmask 255.255.0.0 up, err_file:/tmp/ifeth0up.err"});
    ExpectInOrder(unit, {"LinkManager::OnDeviceChange Device Online", "PatchController::OnDeviceChange Hid"});
    unit.orb->Tell("command 674 u32:3 u32:0");
    ExpectInOrder(unit,
                  {"LinkManager::ReceivedSetRouterSampleRateCmd", "Forwarding ", "Main lamda SetRouterSampleRateCmd"});
    unit.Plug(0, Box);
    ExpectInOrder(unit, {"PatchController::OnDeviceChange Hid 0.32:1", "Setting UDP timeout on Gige port"});
}

/// What a client that tails sees of a command and its result.
std::string Shown(ShellClient& shell, const std::string& line)
{
    shell.Type(line);
    shell.Stream().TakeThrough("CommandLine: Received " + line);
    const std::string shown =
        shell.Stream().TakeThrough("CommandLine: Sent " + line.substr(0, line.find(' ')) + " Result\r\n");
    return line == "rs" ? shell.Stream().TakeThrough("Link 2\n") : shown;
}

TEST(Slots, HearWhatANeighbourReports)
{
    Unit unit("RouterAudioRoute HardwareDebug");
    unit.Start();
    unit.Connect(0, Box);
    unit.neighbours[0]->Tell("internals 0xFFFF000F");
    // Its internals, its identity, and that in decimal.
    Unit::WaitForValue(*unit.orb, peers::IO_BOX_INTERNALS, "0f 00 ff ff 01 00 20 00 07 00 00 00 32 30 39 37 31 35 33");

    unit.Unplug(0);
    unit.Connect(0, HubWithBox);
    ShellClient shell = unit.module->OpenShell();
    EXPECT_THAT(Shown(shell, "sio"), HasSubstr("Hid: 0.48:2 "));
    EXPECT_THAT(Shown(shell, "sr"), AllOf(HasSubstr("Local devices:\n"), Not(HasSubstr("Hid: 0.48:2 "))));
    shell.Type("ping");
    unit.log.WaitForLine("Ping Response ");

    unit.Unplug(0);
    unit.Connect(0, {"router", "0x00408000", 0x40, {"internals 0x00400003"}});
    unit.log.WaitForLine(" New 0.64:8000");
    Peer& router = *unit.neighbours[0];
    router.Tell("command 841 u32:0x00400001 u32:5 on=data");
    unit.log.WaitForLine("ReceivedPatchSucessfulCmd ");
    router.Tell("command 835 u32:0x00400001 on=data");
    unit.log.WaitForLine("ReceivedAudioPatchRetryForHid 0.64:1 ");
    router.Tell("command 839 str:ORBMODULE u32:0 u32:0 on=data");
    // The text 0.18.5.0.
    Unit::WaitForValue(router, peers::PING, "08 00 00 00 30 2e 31 38 2e 35 2e 30 00 00 00 00 00 00 00 00");
    router.Tell("command 846 on=data");
    // The address of this module, wrapped about that of its master control, 0.18.1.0.
    Unit::WaitForValue(router, peers::FORWARD_TO_ACTIVE, "3f 03 00 28 04 00 00 00 00 01 12 00");
}

TEST(Shell, TheTopLevelCommandsShowAndSendWhatTheyShould)
{
    Unit unit;
    unit.Start();
    unit.Plug(0, Box);
    unit.WaitForCable("01 01");
    ControlChannel control = unit.module->OpenControl();
    unit.orb->Tell(PatchFromBox);
    control.WaitForRoute({BulkEndpoint, 0}, Sample{FirstLinkEndpoint, 3});

    ShellClient shell = unit.module->OpenShell();
    for (const auto& [line, parts] : std::vector<std::pair<std::string, std::vector<std::string>>>{
             {"rs", {"Link 0\n\tSlot 0  Source0.32:1  Port ", "\t\tDest 0.18:1  Port ", "Link 2\n"}},
             {"showlinkmap 2097153", {"Inputs for device 0.32:1 ", "Outputs for device 0.32:1 "}},
             {"db -1",
              {"0    -  Assert ", "3    -  Information                      -  On \r\n",
               "206  -  OutputPatchReadDebug "}},
             {"db 60", {"60   -  CommsDebug                       -  On \r\n"}},
             {"db 60", {"60   -  CommsDebug                       -  Off \r\n"}},
             {"db 207", {"207  -  MaxDebugLevels                   -  Off \r\n"}},
             {"ps", {"PI  Src ", "Pri Patch Success"}},
             {"spb 2097153 3 1", {}},
             {"ssr 2097153 3", {}},
         }) {
        const std::string shown = Shown(shell, line);
        for (const std::string& part : parts)
            EXPECT_THAT(shown, HasSubstr(part)) << line;
    }
    EXPECT_THAT(Shown(shell, "db -1"), Not(HasSubstr("207  -")));
    // Port 3 to the secondary link; 88.2 kHz, with the links down for 30 s.
    Unit::WaitForValue(*unit.neighbours[0], peers::PORT_BITMAP,
                       "01 00 20 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 03 00 ff ff ff ff 01");
    Unit::WaitForValue(*unit.neighbours[0], peers::IO_SET_SAMPLE_RATE, "03 01 00 20 00 30 75 00 00");
}

} // namespace
