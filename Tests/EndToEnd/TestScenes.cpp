// The real program in its unit: real interfaces, tools and sockets, the simulated link driver and FPGA, and peers over
// real cables. A command has its number on the wire; endpoint 3 of the FPGA is the Orb side, 1 and 2 are the links.

#include "Tests/EndToEnd/Unit.h"
#include "Tests/Support/Supervisor.h"
#include "Tests/Support/Transcript.h"

namespace {

struct Scenes : testing::TestWithParam<Scene>
{};

TEST_P(Scenes, Play)
{
    Unit().Play(GetParam().script);
}

const Scene Links[] = {{"APluggedCableGetsItsAddressAndHeartbeatsLeaveFromIt", R"(
start
address k2link0 ->
connect 0 box
address k2link0 -> 0.8.0.1
0 module-heartbeat -> * 00 80 12 00 06 00 00 00 0f 00 ff ff
run ss -uan --tos | grep 0.8.0.1:60002 -> * tos:0x14 *
)"},
                       {"AnUnpluggedPortAndTheEndTakeTheAddressAwayAndAnExchangedNeighbourGetsALinkOfItsOwn", R"(
features IODiscovery
start
# The Orb router's own, then the box's.
plug 0 box
orb received 893 -> local 01 00 12 00 00 01 | local 01 00 20 00 01 01
plug 1 box
orb received 893 -> local 01 00 12 00 00 01 | local 01 00 20 00 01 01 | local 01 00 20 00 00 01
# The check for the second cable finds it. What it sends has come once a later command has.
log -> *DelayedCableCheck: for Hid: 0.32:1 , port: Sec*
0 command 816 u32:0x00200001 u16:1 u8:1
orb received 816 -> local 01 00 20 00 01 00 01
orb received 893 -> local 01 00 12 00 00 01 | local 01 00 20 00 01 01 | local 01 00 20 00 00 01
unplug 0
address k2link0 ->
driver plug 1 66 0
address k2link1 -> 0.8.96.2
forgets 0x00200001
end -> exit code 0
address k2link1 ->
)"},
                       {"AFailedBindLeavesThePortAloneUntilItsAddressChanges", R"(
start
occupy 60002
driver plug 0 64 0
log -> *Unable to bind GigePort H0  to Port 0.8.0.1:60002: Error Address already in use*
release
driver plug 0 64 0
driver plug 2 0x300 7
log -> *LG:H2 RID: 0x300(768) RG:H7 LS 1*
count SystemWithStderr: command:ifconfig k2link0 0.8.0.1 netmask 255.255.255.0, -> 1
# A third port is logged and no more.
address k2link2 ->
connect 0 other-box
)"},
                       {"ReportsThatAreLostAreAskedForAgainAndBadOnesDoNoHarm", R"(
features CommsDebug
start
connect 0 box
orb clear
driver raw 00
driver raw 1000000022000000000000000000000000
driver error 19
log -> *Error reply returned: No such device*
driver plug 2 0x300 7
log -> *LG:H2 RID: 0x300(768) RG:H7 LS 1*
orb received 826 ->
# The module stops while more comes than its socket holds, and the news last.
run kill -STOP $(pidof OrbModuleSim)
driver burst 20000
driver unplug 0
run kill -CONT $(pidof OrbModuleSim)
forgets 0x00200001
log -> *Error receiving reply to netlink message: *
)"},
                       {"ADriverThatIsRestartedIsFoundAgain", R"(
start
connect 0 box
driver quit
# A port without a link, whose address would be taken away, and which would be up by that.
run ip link set k2link1 down; : >/sys/class/net/k2link1/k2hid
start-driver
forgets 0x00200001
# Twice the rack.
run cat /sys/class/net/k2link1/k2hid -> 36
run ip -o link show up | grep -c ' k2link1[@:]' -> 1
orb clear
driver plug 0 64 0
knows 0x00200001
)"},
                       {"ADriverThatHangsAtTheStartIsWaitedForAndAnEndpointIdThatIsNoneEndsIt", R"(
start-driver
run kill -STOP $(pidof LinkDriverSim)
start-module
log -> *Started HubLinkManager*
run kill -CONT $(pidof LinkDriverSim)
log -> *Run...........*
end -> exit code 0
driver endpoint 1 257
start-module
await-end -> exit code 3 | OrbModule cannot start: *of k2link1 is not 1 to*
)"},
                       {"ToolsThatHangStopNoHeartbeatsAndAreReported", R"(
run mkdir -p /tmp/tools; for tool in ifconfig route; do
  printf '#!/bin/sh\nwhile [ -e /tmp/hang ]; do sleep 0.05; done; PATH=${PATH#*:}; exec %s "$@"\n' $tool
  >/tmp/tools/$tool; done; chmod +x /tmp/tools/*
features RouterConnectionDebugVerbose
start
connect 0 hub
# The main thread hangs in route as the hub reports one more device, the scan in ifconfig.
run touch /tmp/hang
0 device 0x00300003 fixed 0.48.10.1
driver plug 1 66 0
log -> *: ifconfig k2link1 0.8.96.2 netmask 255.255.255.0 is still running*
log -> *: route add -net 0.48.10.0 netmask 255.255.255.0 k2link0 is still running*Sent HB on*Sent HB on*Sent HB on*
run rm -r /tmp/hang /tmp/tools
knows 0x00300003
)"}};

const Scene Network[] = {
    {"TheUpdateServiceIsAbsentThenRefusesThenAllowsAndChecksAgainAfterItsRestart", R"(
start-orb
# The first attempt to reach it has failed by the time the module runs.
start-alone
start-update result 1
update received 6000 -> update *
update tell 1.63.5.0 2
update tell 1.63.5.0 3
update tell 1.63.5.0 4
update tell 1.63.5.0 0
# The results are taken in order: had a refusal counted, there would be more than this one connection.
orb received 800 -> local*
orb received 829 -> local
count Connect to the ORB Router -> 1
log -> *Start Router Ignore Timer*
update clear
update result 0
update vanish
update appear
update connect 55000 source=49190
update received 6000 -> update *
# And serves again: a box that comes now is checked.
connect 0 box
)"},
    {"CommandsPassBothWaysToABoxOfAHubAndTheHubLeavesWithItsBox", R"(
start
connect 0 hub
# A command that only goes up is dropped on its way down.
orb command 871 u32:0x00300002 u8:4 u32:1
orb command 816 u32:0x00300002 u16:3 u8:0
0 received 816 -> data 02 00 30 00 03 00 00
0 received 871 ->
0 command 816 u32:0x00300002 u16:3 u8:0 on=data
orb received 816 -> local 02 00 30 00 03 00 00
0 device-gone 0x00300002
forgets 0x00300002
orb clear
0 device 0x00300002 fixed 0.48.9.1
0 of 0x00300002 card 0 QV1410
knows 0x00300002
orb clear
unplug 0
forgets 0x00300002
forgets 0x00308000
)"},
    {"AnOrbRouterThatRestartsLeavesTheRoutesAndIsInformedAgain", R"(
start
connect 1 hub
orb patch src=0x00120001:1:2 link=0 slots=21 dest=0x00300002:2:1
1 patch src=0x00300002:1:3 slots=7 dest=0x00120001:2:5 on=data
fpga probe 2 0 -> 3 21
fpga probe 3 0 -> 2 7
run truncate -s 0 /var/log/K2.log
orb vanish
log -> *OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false*
# What the end of the stream has posted is done when a command that came later is answered.
shell version -> OrbModuleSim 1.0.2452
fpga probe 2 0 -> 3 21
fpga probe 3 0 -> 2 7
# It names itself, the module takes its links down and up, and the patches are made again.
orb clear
orb appear
orb connect 55000
knows 0x00300002
count LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000 -> 1
orb patch src=0x00120001:1:2 link=0 slots=21 dest=0x00300002:2:1
1 patch src=0x00300002:1:3 slots=7 dest=0x00120001:2:5 on=data
fpga probe 2 0 -> 3 21
fpga probe 3 0 -> 2 7
# What leaves while the Orb router is away leaves no route.
run truncate -s 0 /var/log/K2.log
orb vanish
log -> *OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false*
shell version -> OrbModuleSim 1.0.2452
unplug 1
fpga probe 2 0 -> silence
fpga probe 3 0 -> silence
)"},
    {"TheTimeOfTheNetworkIsTheTimeOfTheLog", R"(
start
# 3 February 2033, 04:05:06 UTC.
orb udp 49156 14727fac76
log -> *Added to Audit*
plug 0 box
run grep -c '^.03/02/33 04:05:.*LinkManager::Receive New device' /var/log/K2.log -> 1
)"},
    // A router's word says, from the low bits on, its number, the network's base rate and the master's rack.
    {"MasterRoutersAreFollowedWhereverTheyNameTheMasterUntilBothAreGone", R"(
start
plug 0 router internals 0x00400003
orb module-heartbeat -> * 96 00 80 40 00
plug 1 router internals 0x00400004
count Router detected on downstream ports ACCEPTING -> 2
1 internals 0x00510004
orb module-heartbeat -> * 96 00 80 51 00
unplug 0
1 internals 0x00520004
orb module-heartbeat -> * 96 00 80 52 00
unplug 1
orb module-heartbeat -> * 96 ff ff ff ff
orb received 7020 ->
orb received 667 ->
)"},
    {"MasterRoutersThatComeTooLateAreReportedOnceAndIgnored", R"(
start 0
orb received 667 -> local 00 01 12 00
orb received 7020 ->
plug 0 router internals 0x00400003
count Router detected on downstream ports IGNORING. -> 1
plug 1 router internals 0x00400003
count Router detected on downstream ports IGNORING. -> 2
unplug 0
unplug 1
orb received 7020 -> local 02 | local 03
orb received 667 -> local 00 01 12 00
)"}};

const Scene Slots[] = {{"ActInTheOrderOfTheirConnections", R"(
features CmdDebug RouterAudioRoute
start
orb command 674 u32:3 u32:0
connect 1 box
log -> *LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000*PatchController::OnLocalHidChanged 0.18:8000*
  *:ifconfig eth0:1280 0.18.5.0 netmask 255.255.0.0 up, err_file:/tmp/ifeth0up.err*
  *:ifconfig eth0:1536 0.18.6.0 netmask 255.255.0.0 up, err_file:/tmp/ifeth0up.err*
  *LinkManager::OnDeviceChange Device Online 0.18:1*PatchController::OnDeviceChange Hid 0.18:1  Port ORB PORT*
  *LinkManager::ReceivedSetRouterSampleRateCmd 88.2kHz*Forwarding *Main lamda SetRouterSampleRateCmd88.2kHz Port ORB*
  *PatchController::OnDeviceChange Hid 0.32:1  Port Sec Korvo*Setting UDP timeout on Gige port H1  to 2000*
)"},
                       {"TellAllOfABox", R"(
start
connect 0 box
update received -> 6000 update 00 00 00 00 01 00 00 00 08 00 00 00 31 2e 36 33 2e 35 2e 30 00 00 00 00 01 01 0a 03 ff ff
  ff ff | 6000 update 08 00 00 00 31 2e 36 33 2e 35 2e 30 01 00 00 00 09 00 00 00 30 2e 38 2e 30 2e 32 35 34 00 00 00
  00 00 01 01 02 01 00 20 00
0 received -> 800 local | 806 local
# Its internals, its identity, and that in decimal; the device; its cables.
orb received -> 829 local | 800 local | 893 local 01 00 12 00 00 01 |
  844 local 00 00 00 00 01 00 20 00 07 00 00 00 32 30 39 37 31 35 33 |
  826 local 01 01 00 20 00 fe 00 08 00 00 80 12 00 00 00 00 00 00 00 00 00 | 893 local 01 00 20 00 01 01 |
  893 local 01 00 20 00 00 00
0 internals 0xFFFF000F
orb received 844 -> *local 0f 00 ff ff 01 00 20 00 07 00 00 00 32 30 39 37 31 35 33
)"},
                       {"TellAllOfAHub", R"(
start
connect 0 hub
0 received -> 829 local | 825 local 00 80 12 00 05 00 02 00 00 00 02 00 00 00 00 00 00 | 800 data |
  826 local 00 01 00 12 00 01 00 0c 00 00 80 12 00 00 00 00 00 00 00 00 00 | 814 data 02 00 30 00 | 806 local
orb received -> 829 local | 800 local | 893 local 01 00 12 00 00 01 |
  827 local 05 00 80 30 00 00 05 30 00 00 80 12 00 | 893 local 00 80 30 00 01 01 |
  826 local 01 02 00 30 00 01 09 30 00 00 80 12 00 00 00 00 00 00 00 00 00 | 893 local 02 00 30 00 01 01 |
  893 local 00 80 30 00 00 00 | 893 local 02 00 30 00 00 00
shell sio
log -> *Received sio | Local devices: | Remote devices: | Hid: 0.18:1 , Type: Modular*Hid: 0.48:2 *Sent sio Result*
shell sr
log -> *Received sr | Local devices: | KorvoHub 0.48:8000*Remote devices: | Hid: 0.18:8000 *Sent sr Result*
shell ping
log -> *Send Ping To 0.48.5.0*Ping Response 0.12.0.254 PC 0 TD 0*
count Couldn't find timeout -> 0
)"},
                       {"TellAllOfARouter", R"(
features RouterAudioRoute
start
connect 0 router internals 0x00400003
log -> *DeviceManager::OnMasterHidChanged Current 255.255:8000  New 0.64:8000*
0 received -> 829 local | 825 local 00 80 12 00 05 00 02 00 00 00 02 00 00 00 00 00 00 |
  826 local 00 01 00 12 00 01 00 10 00 00 80 12 00 00 00 00 00 00 00 00 00
orb received -> 829 local | 800 local | 893 local 01 00 12 00 00 01 |
  827 local 03 00 80 40 00 00 05 40 00 00 80 12 00 | 893 local 00 80 40 00 01 01 | 893 local 00 80 40 00 00 00
0 command 841 u32:0x00400001 u32:5 on=data
log -> *ReceivedPatchSucessfulCmd *
0 command 835 u32:0x00400001 on=data
log -> *ReceivedAudioPatchRetryForHid 0.64:1*
# The answer has the text 0.18.5.0.
0 command 839 str:ORBMODULE u32:0 u32:0 on=data
0 received 839 -> data 08 00 00 00 30 2e 31 38 2e 35 2e 30 00 00 00 00 00 00 00 00
# The address of this module, wrapped about that of its master control, 0.18.1.0.
0 command 846 on=data
0 received 880 -> data * 3f 03 00 28 04 00 00 00 00 01 12 00
)"},
                       {"OfTheShellShowAndSendWhatTheyShould", R"(
start
connect 0 box
orb patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5
fpga probe 3 0 -> 1 3
shell rs -> Link 0 | Slot 0  Source0.32:1  Port 3Pri Korvo 3 | Dest 0.18:1  Port 5 | Link 1 | Link 2
shell showlinkmap 2097153
log -> *Inputs for device 0.32:1 : | A0  -> 0 | *A7  -> 7 | Outputs for device 0.32:1 : | A0  -> 0 | *A7  -> 7 | *
shell db -1
log -> *0    -  Assert *3    -  Information                      -  On *206  -  OutputPatchReadDebug *Sent db Result*
shell db 60
log -> *Received db 60*60   -  CommsDebug                       -  On *
shell db 60
log -> *Received db 60*Received db 60*60   -  CommsDebug                       -  Off *
shell db 207
count 207  -  MaxDebugLevels                   -  Off -> 1
shell ps
log -> *PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 | Dst HID:1179649(0.18:1 ), Style:2(Output), Idx:5 |
  Pri Patch Success | Sec Patch Not Sent | Pri  GigE:TDM Pri Korvo 3 | Sec  GigE:TDM UNKNOWN 255 |
  Swap GigE:TDM ORB PORT 0 | *
# Port 3 to the secondary link; 88.2 kHz, with the links down for 30 s.
shell spb 2097153 3 1
0 received 815 -> *local 01 00 20 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 03 00 ff ff ff ff 01
shell ssr 2097153 3
0 received 875 -> *local 03 01 00 20 00 30 75 00 00
)"}};

const Scene Fpga[] = {{"IsSilentUntilItIsPatchedByHand", R"(
start-alone
shell db --help -> Set debug level <level> | Usage: db 'int'
shell adma/patch nosuch k0 -> Error: Unknown or invalid source 'nosuch'
# Bit 5, the request for an activation, is gone.
fpga reg 0003 38 -> 0x00000000
fpga syncs -> 1
# One word for each sink sample but that with the name 0, none of which has a source.
run ORB_SIM_CONTROL=/tmp/OrbModuleSim.control OrbControl table | grep -c ' 0x00000...$' -> 1536
# Sink 7 of endpoint 1 after the 512 words of the bulk endpoint; source 5 of endpoint 3.
shell patch 0 5 1 7
fpga probe 1 7 -> 3 5
fpga table -> * | 519 0x00605207 | *
fpga syncs -> 2
shell unpatch 0 5 1 7
fpga probe 1 7 -> silence
fpga syncs -> 3
# What names no port or slot reaches nothing.
shell patch 3 5 1 7 -> Error: ports are 0 to 2 and slots are 0 to 511
shell patch 0 512 1 7 -> Error: ports are 0 to 2 and slots are 0 to 511
shell patch 0 5 1 512 -> Error: ports are 0 to 2 and slots are 0 to 511
shell patch -1 5 1 7 -> Error: ports are 0 to 2 and slots are 0 to 511
fpga syncs -> 3
)"},
                      {"HasTheClockThatIsEnabledUnlessItIsLostOrOverruled", R"(
start-alone
shell clock/status -> Clock Ids: bulk (4) k0 (1) k1 (2) Internal (0) | Id Enabled Measure    State |
  4    true       0 unstable | 1   false       0 unstable | 2   false       0 unstable | 3    true       0 unstable |
  5    true       0 unstable | 6    true       0 unstable | 7    true       0 unstable | 0    true       0 unstable
# Within the range of the 48 kHz family.
fpga measure 1 1150000
log -> *Clock 1 inside accept measurements*
fpga pll -> 0
shell clock/enable k0
fpga pll -> 1
shell clock/enable bulk
fpga measure 4 1150000
fpga pll -> 4
# Overruled, it stays so whatever the clocks do. A reply comes after what the measurements posted.
shell clock/use_internal true
fpga pll -> 0
fpga measure 4 1
fpga measure 4 1150000
shell clock/active -> Internal
fpga pll -> 0
shell clock/use_internal false
fpga pll -> 4
shell clock/set_pll_source k1
fpga pll -> 2
fpga measure 4 1
fpga measure 4 1150000
shell clock/active -> Internal
fpga pll -> 2
log -> *SetExternalPllSource 1*
shell clock/auto_pll_select
fpga pll -> 4
shell clock/disable bulk
fpga pll -> 1
shell clock/disable k0
fpga pll -> 0
shell clock/enable_phase_freeze true
fpga reg 0004 38 -> 0x00000010
shell clock/enable_phase_freeze false
fpga reg 0004 38 -> 0x00000000
shell clock/set_measurement_range 5 9000
fpga range -> 5 9000
)"},
                      {"HasTheClockOfTheRateOfTheSystem", R"(
start
fpga lock on
# The first measurement is for the choice, the second finds it locked; or out of range. First 88.2 kHz, then 96 kHz.
orb command 674 u32:3 u32:0
fpga reg 0004 38 -> 0x00000008
fpga measure 4 1250000
fpga reg 0004 18 -> 0x00000000
fpga measure 4 1250000
fpga pll -> 4
log -> *Stable Clock 4*
orb command 674 u32:1 u32:0
fpga reg 0004 38 -> 0x00000000
fpga measure 4 1250000
fpga pll -> 0
fpga measure 4 1150000
fpga measure 4 1150000
fpga pll -> 4
)"}};

const Scene Watch[] = {{"ShowsABoxAPatchAndItsSecondLink", R"(
start
start-watch
get /healthz -> * 200 OK*
connect 0 box
get /api/state -> *"orb":{"stream":"yes"}*
  *"beating":"yes","cable":"yes","check":"yes","described":"yes","localAddress":"0.8.0.1"*
  *"hid":"0.32:1","local":true*"hid":"0.18:1","local":false,"owner":"0.18:8000"*"active":"Internal"*"name":"bulk"*
orb patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5
get /api/state -> *"primary":{"link":{"port":"primary","slots":[3]},"state":"success"}*
  *"source":{"hid":"0.32:1","index":3,"style":"Input"}*"orb":[{"destinations":1,"from":{"port":"primary","slots":[3]}*
  *"slot":0,"source":"0.32:1","sourcePort":3}]*
  *"runs":[{"from":[3,3],"source":"k0","to":[0,0]}],"samples":512,"sink":"bulk"*
plug 1 box
get /api/state -> *"secondary":{"link":{"port":"secondary","slots":[3]},"state":"reserved"}*
unplug 0
get /api/state -> *"primary":{"beating":"no","cable":"no"*
  *"secondary":{"link":{"port":"secondary","slots":[3]},"state":"success"}*
get /metrics -> *orbmodule_link_up{link="primary"} 0*orbmodule_link_up{link="secondary"} 1*
  *orbmodule_patches{state="success"} 1*orbmodule_slots_in_use{port="orb"} 1*
run kill $(pidof OrbWatch)
)"},
                       {"ShowsWhatIsBeyondAHubLongListingsAndThatInformationIsOff", R"(
start
start-watch
connect 0 hub
get /api/state -> *"described":"yes"*"neighbour":"0.48:8000"*"hid":"0.48:2","local":false,"owner":"0.48:8000"*
shell db 3
shell patch 0 5 1 7
get /api/state -> *"information":false*"from":[5,5],"source":"bulk","to":[7,7]*
shell db 3
get /api/state -> *"information":true*
# More patches by hand than a message of the log can list.
run bash -c 'exec 3<>/dev/tcp/127.0.0.1/55555; for ((i = 0; i < 200; i += 2)); do echo "patch 0 $i 1 $i" >&3; done;
  grep -qm 1 "Received patch 0 198" <&3'
get /api/state -> *"contact":"live"*"longListings":["adma/status"]*"from":[198,198],"source":"bulk","to":[198,198]*
)"}};

const Scene Process[] = {{"AnOptionEndsItBeforeItTouchesAnything", R"(
# As for a user who may not write there.
run touch /var/lib/ostrel
run OrbModuleSim --version; echo $? -> Sorn Module 1.0.2452 | 1
run OrbModuleSim --nosuch 2>&1; echo $? -> OrbModuleSim: *nosuch*; see --help | 2
run test -e /var/log/K2.log || echo none -> none
)"},
                         {"OptionsChooseTheShellEndpointAndTheLogAndAsManyDescriptorsAsAllowedUpTo4096AreTaken", R"(
start-driver
start-module ulimit -Sn 256; exec OrbModuleSim -t 127.0.0.1:7000 -l /tmp/other.log --top 5
# The banner does not follow "top".
run tail -n +1 -F /tmp/other.log 2>/dev/null | grep -m 1 -o 'starting... Hid 0x.*' -> starting... Hid 0xc002
run prlimit --pid $(pidof OrbModuleSim) --nofile --noheadings -o SOFT -> 4096
run bash -c 'exec 3<>/dev/tcp/127.0.0.1/7000; grep -om 1 "Ostrel .*Sim" <&3' -> Ostrel command shell: OrbModuleSim
run bash -c ': </dev/tcp/1.63.5.0/7000' -> *refused*
)"},
                         {"AStartThatFailsIsOneLineWithTheCause", R"(
run ip address del 1.63.5.0/16 dev eth0
start-module
await-end -> exit code 3 | OrbModule cannot start: The module heartbeat cannot bind UDP 1.63.5.0:49157 (Cannot assign
  requested address): give eth0 the address 1.63.5.0, and end any other program that uses this port
log -> *Start-up failed: The module heartbeat cannot bind UDP 1.63.5.0:49157 *
run ip address add 1.63.5.0/16 dev eth0
# The product, without an FPGA.
run OrbModule 2>&1 >/dev/null; echo $? -> OrbModule cannot start: *: load the FPGA and its UIO driver, and let /dev/uioN
  be read and written | 3
# Beside a module that runs, and that no broken pipe ends.
start-alone
run OrbModuleSim 2>&1 >/dev/null; echo $? -> OrbModule cannot start: *55555* | 3
run OrbModuleSim -t :7000 2>&1 >/dev/null; echo $? -> OrbModule cannot start: *49156* | 3
run kill -PIPE $(pidof OrbModuleSim)
count Built without crash dumps -> 0
end -> exit code 0
)"},
                         {"EndsInOrderInAFloodOfReports", R"(
start
connect 0 hub
0 flood 0x00400000 20000
0 wait 814 9000 10 -> * 814 *
end -> exit code 0
)"},
                         {"EndsInOrderWhileATableIsNotActivated", R"(
start
plug 0 box
orb received 893 -> *local 01 00 20 00 01 01
plug 1 box
orb received 893 -> *local 01 00 20 00 00 01
orb patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5
fpga probe 3 0 -> 1 3
fpga hold on
# The source is lost, and the request for the new table, bit 5, is not served.
driver unplug 0
fpga reg 0003 38 -> 0x00000020
fpga probe 3 0 -> 1 3
end -> exit code 0
)"}};

TEST(Process, EndsInOrderAtEachLineOfItsStart)
{
    // Each neighbour answers, and there is one on each link.
    for (const std::string line : {"DebugConfig : ", "Starting OrbRouterKLVComms", "starting... Hid 0xc002",
                                   "Starting HubLinkManager", "Started HubLinkManager", "Starting DeviceManager",
                                   "Starting PatchController", "Run...........", "LinkManager::OnLocalHidChanged"}) {
        Unit().Play("start-orb\nstart-update\nstart-driver\ndriver plug 0 64 0\ndriver plug 1 64 0\nstart-module\n"
                    "log -> *" +
                    line + "*\nend -> exit code 0");
    }
}

#ifdef ORB_STACKWALK
TEST(Process, LeavesADumpThatNamesTheThreadThatCrashed)
{
    Unit unit;
    for (const auto& [choice, number] : {std::pair("head", "0"), {"tail", "N"}}) {
        unit.Play("run rm -rf /var/lib/ostrel /var/log/K2.log\nstart-alone\n"
                  "run kill -SEGV $(ls /proc/$(pidof OrbModuleSim)/task | " +
                  std::string(choice) +
                  " -n 1)\n"
                  "await-end -> killed by signal 11 | MINIDUMP=/var/lib/ostrel/crashdumps/OrbModuleSim/*.dmp\n"
                  "run " ORB_STACKWALK " /var/lib/ostrel/crashdumps/OrbModuleSim/*.dmp 2>/dev/null |"
                  " grep -o 'SIGSEGV\\|Thread .* (crashed)' | sed 's/[1-9][0-9]*/N/' -> SIGSEGV | Thread " +
                  number + " (crashed)");
    }
    unit.Play("run rm -r /var/lib/ostrel; touch /var/lib/ostrel\nstart-module\n"
              "await-end -> exit code 3 | OrbModule cannot start: *Not a directory: \"/var/lib/ostrel/crashdumps\"");
}
#endif

TEST(Process, EndsInOrderAndSystemdLearnsOfReadinessLifeAndStop)
{
    for (const std::string how :
         {"end", "run kill -INT $(pidof OrbModuleSim)\nawait-end",
          "run bash -c 'exec 3<>/dev/tcp/127.0.0.1/55555; echo quit >&3; cat <&3 >/dev/null'\nawait-end"}) {
        Supervisor supervisor;
        supervisor.AskForWatchdog(200);
        Unit unit;
        unit.Play("start-alone");
        for (const char* sign : {"READY=1", "WATCHDOG=1", "WATCHDOG=1"})
            EXPECT_EQ(supervisor.Receive(), sign);
        // One that cannot start is never ready.
        unit.Play("run OrbModuleSim >/dev/null 2>&1; echo $? -> 3\n" + how + " -> exit code 0");
        EXPECT_EQ(supervisor.ReceiveOtherThan("WATCHDOG=1"), "STOPPING=1");
        EXPECT_EQ(supervisor.Receive(0), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Links, Scenes, testing::ValuesIn(Links), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Network, Scenes, testing::ValuesIn(Network), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Slots, Scenes, testing::ValuesIn(Slots), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Fpga, Scenes, testing::ValuesIn(Fpga), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Watch, Scenes, testing::ValuesIn(Watch), NameOfScene);
INSTANTIATE_TEST_SUITE_P(Process, Scenes, testing::ValuesIn(Process), NameOfScene);

} // namespace
