#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

namespace {

/// Scenes, each under its name.
constexpr char Scenes[] = R"(== ABoxOnTheSecondaryThatIsStillCheckedGivesWayToThePrimary
self; link 2 box2 fixed; stream 2 | link 1 box fixed -> connect 0.32.0.254 1 55000; box2 2 off
checked 0.32.32.254; has box2; gone 2 ->
stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 box
stream 2 ->
checked 0.32.0.254 -> P1 IO_INFO_REQ
has box -> local; FixedFormat rates 0; pri 1 to 3 at 0.32.0.254 by 0.0.0.0
unplug 1; unplug 2; link 1 box fixed; link 2 box2 fixed; stream 2
stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 box; box2 2 off

== TheCheckOfADeviceNamesItsKind
stream 0 update -> connect 1.63.1.0 0 49190; update check '' '1.63.5.0' '' 1 1 10 3 nobody
gone 0 update; checked 1.63.5.0 1 ->
checked 1.63.5.0 -> connect 1.63.1.0 0 55000
link 1 box fixed | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 box
unplug 1; link 1 box aoip | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 11 2 box
unplug 1; link 1 00200201 fixed | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 00200201
checked 0.32.0.254 -> P1 IO_INFO_REQ_EX 1; P2 IO_INFO_REQ_EX 1
unplug 1; link 1 00200201 modular | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 8 2 00200201
unplug 1; link 1 00200101 modular | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 0 2 00200101
checked 0.32.0.254 -> P1 IO_INFO_REQ_EX 1; P2 IO_INFO_REQ_EX 1

== OfTwoLinksTheFirstStreamAsksForTheCheckAndBothForTheDescription
link 1 box modular | link 2 box modular -> connect 0.32.32.254 2 55000
link 1 box modular -> connect 0.32.0.254 1 55000
stream 2 -> update check '1.63.5.0' '0.32.32.254' '' 0 1 0 2 box
stream 1; checked 0.32.32.254 1 ->
checked 0.32.0.254 -> P1 IO_INFO_REQ; P2 IO_INFO_REQ
stream 2 -> P2 IO_INFO_REQ
unlink 1; link 1 box modular | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 0 2 box

== AHubIsCheckedOnEachLinkAndARouterOnNone
link 2 hub hub | stream 2 -> update check '1.63.5.0' '0.32.32.254' '' 1 1 7 1 48
stream 2 -> P2 ROUTER_INFO_REQ
checked 9.9.9.9 -> P2 ROUTER_INFO_REQ
link 1 hub hub | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 1 1 7 0 48
link 1 hub orb | stream 1 -> P1 ROUTER_INFO_REQ
info 1 orb; io 1 far 10.20.30.40 | unlink 1 hub -> disconnect 1

== TheCheckOfAHubLetsNoBoxIn
hub 1; checked 0.32.0.254; gone 1; link 1 box fixed | stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 box

== AStreamWithoutADeviceIsNotUsedAndLeavesNoTrace
link 2 box fixed; unlink 2; stream 2; stream 1; gone 1; stream 255; stream 2 master; stream 2 unknown
link 3 box2 fixed; has box2 ->
stream 1; unlink 1 | link 1 hub router -> network
unlink 1; stream 1 | link 1 hub router -> P1 ROUTER_INFO_REQ; network

== ABoxIsReportedGoneWithItsLastLinkOnly
self; plug 1; plug 2; box 1 box; master-hid self; master-hid hub | gone 1 -> P0 cable box pri off; box 1 off
gone 2 -> P0 io 1 box 0.0.0.0 self 0; P0 cable box sec off; P0 cable box pri off; box 2 off
has box -> local; Unknown(0) rates 0
log EraseDeviceInfo: -> DeviceInfoStorage::EraseDeviceInfo: device: 0.32:1 \n
log Master -> DeviceManager::OnMasterHidChanged Current 255.255:8000  New 0.18:8000 \n;
    DeviceManager::OnMasterHidChanged Current 0.18:8000  New 0.48:8000 \n

== TheEndOfTheOrbRoutersStreamTouchesNoDevice
self | stream 0 -> P0 ROUTER_INFO_REQ
hub 2; io 2 far 10.20.30.40; far-box 2 far | gone 0 ->
gone 2 -> disconnect slave 0.18.6.0; disconnect slave 0.18.6.0; disconnect slave 0.48.6.0; P0 cable far sec off;
    P0 cable far pri off; P0 io 1 far 0.0.0.0 self 0; P0 router 5 hub 0.0.0.0 00000000; P0 cable hub sec off;
    P0 cable hub pri off; far 2 off; no network; hub-node 2 off
has desk -> own; Modular rates 1; pri 0 to 0 at 1.63.1.0 by 0.18.5.0; sec 0 to 0 at 1.63.1.0 by 0.18.6.0
has far; has hub ->
log EraseDeviceInfo -> DeviceInfoStorage::EraseDeviceInfo: device: 0.48:5 \n

== ABoxThatAnotherReplacesIsGoneAtOnceAndMayComeBack
self; plug 1; plug 2; box 2 box QV1320; unplug 1 | link 1 box2 fixed -> disconnect 2; P0 io 1 box 0.0.0.0 self 0;
    P0 cable box sec off; P0 cable box pri off; connect 0.32.0.254 1 55000; box 2 off
gone 2; has box ->
stream 1 -> update check '1.63.5.0' '0.32.0.254' '' 0 1 1 2 box2
link 1 hub router -> P0 io 1 box2 0.0.0.0 self 0; P0 cable box2 pri off; P0 cable box2 sec off; box2 1 off; network
unplug 1 | link 1 box fixed -> connect 0.32.0.254 1 55000; connect 0.32.32.254 2 55000; no network
link 1 hub hub -> connect 0.32.0.254 1 55000

== ADescriptionFromBeforeABoxIsLocalIsForgotten
link 1 box2 fixed; box 2 box QV1320; plug 1; box 1 box QV1320 | in 3 -> 3

== AHubThatABoxReplacesTakesItsDevicesWithIt
self; hub 1; hub 2; io 1 far 10.20.30.40; io 2 far 10.20.30.40; unplug 1 | link 1 box fixed -> disconnect 2;
    disconnect slave 0.48.6.0; disconnect slave 0.18.6.0; disconnect slave 0.18.6.0; disconnect slave 0.48.6.0;
    P0 cable far sec off; P0 cable far pri off; P0 io 1 far 0.0.0.0 self 0; P0 router 5 hub 0.0.0.0 00000000;
    P0 cable hub sec off; P0 cable hub pri off; connect 0.32.0.254 1 55000; far 2 off; no network; hub-node 2 off
has far ->
unplug 1; hub 1; link 2 hub hub; stream 2; gone 1 | link 1 hub hub -> connect 0.32.0.254 1 55000
link 1 box fixed -> disconnect 2; disconnect slave 0.48.6.0; disconnect slave 0.18.6.0; disconnect slave 0.18.6.0;
    P0 router 5 hub 0.0.0.0 00000000; P0 cable hub sec off; P0 cable hub pri off; connect 0.32.0.254 1 55000;
    no network; hub-node 2 off

== AnUnusedBoxIsUsedOnBothLinksOnceItHasThePrimary
plug 1 | link 2 box2 fixed -> P0 SORN_MIXED_HID_ERROR 1
unlink 2 -> P0 SORN_MIXED_HID_ERROR 0
link 2 box2 fixed -> P0 SORN_MIXED_HID_ERROR 1
unplug 1 | link 1 box2 fixed -> connect 0.32.0.254 1 55000; P0 SORN_MIXED_HID_ERROR 0; connect 0.32.32.254 2 55000
unplug 1; unplug 2; hub 1 | link 2 box2 fixed -> P0 SORN_MIXED_HID_ERROR 1
unplug 1 | link 1 box2 fixed -> connect 0.32.0.254 1 55000; P0 SORN_MIXED_HID_ERROR 0; connect 0.32.32.254 2 55000
unplug 1; unplug 2; link 2 box2 fixed; stream 2; hub 1; unplug 1
link 1 box2 fixed -> connect 0.32.0.254 1 55000; connect 0.32.32.254 2 55000
unplug 1; unplug 2; plug 1; link 2 box2 fixed; stream 2; gone 1
stream 2 -> P0 SORN_MIXED_HID_ERROR 0; update check '1.63.5.0' '0.32.32.254' '' 0 1 1 2 box2

== AStreamThatComesBackAloneIsUsedAsBefore
self; router 1; gone 1 | stream 1 -> P1 ROUTER_INFO_REQ; network
info 1 router -> P0 router 3 hub 0.48.5.0 self; P1 info self 5 512 512 0; P1 io 0 desk 0.32.0.1 self 2 2;
    route add -host 0.48.5.0 k2link0 2>/tmp/addroute.err; P0 cable hub pri on; hub-node 1 on
router 2; gone 1; stream 1; info 1 router
has hub -> Router rates 0; pri 1 to 3 at 0.32.0.254 by 0.0.0.0; sec 2 to 3 at 0.32.32.254 by 0.0.0.0
ask-router 0 -> P0 info self 5 512 512 0
ask-router 2 -> P2 info self 5 512 512 0; P2 io 0 desk 0.32.32.1 self 2 2

== TheEndOfAHubTakesItsDevicesAndLeavesOurOwn
self; hub 1; io 1 far 10.20.30.40; node 1 hub2 0.64.5.0
gone 1 -> disconnect slave 0.18.5.0; disconnect slave 0.18.5.0; disconnect slave 0.48.5.0; P0 cable far pri off;
    P0 cable far sec off; P0 io 1 far 0.0.0.0 self 0; disconnect slave 0.64.5.0; P0 cable hub2 pri off;
    P0 cable hub2 sec off; P0 router 5 hub2 0.0.0.0 00000000; P0 router 5 hub 0.0.0.0 00000000; P0 cable hub pri off;
    P0 cable hub sec off; far 1 off; hub2-node 1 off; no network; hub-node 1 off
link 1 hub router; link 1 hub hub -> network; connect 0.32.0.254 1 55000; no network

== ARouterOnItsOtherLinkKeepsItsDevices
router 1; router 2; io 1 far 10.20.30.40; io 2 far 10.20.30.40
gone 1 -> P0 cable far pri off; P0 cable hub pri off; far 1 off; hub-node 1 off
has far -> FixedFormat rates 1; sec 2 to 3 at 10.20.30.40 by 0.48.6.0
unlink 1 hub -> disconnect 1
log Offline -> DeviceManager::OnLocalLinkChanged Local Device Link Offline Hid 0.48:8000 Router Pri Link false Sec Link
    true\n; Remote Device Link Offline Hid 0.48:5 FixedFormat Pri Link true Sec Link true\n

== ARouterThatOnlySentHeartbeatsDoesNotBlockAHub
link 1 00088000 router; unlink 1 00088000 | link 1 hub hub -> connect 0.32.0.254 1 55000; no network
stream 1 | info 1 hub -> P0 router 5 hub 0.48.5.0 nobody; P1 info nobody 5 512 512 0;
    route add -host 0.48.5.0 k2link0 2>/tmp/addroute.err; connect 0.48.5.0 1 55100; P0 cable hub pri on; hub-node 1 on
log AddSlave -> AddSlaveLinkDataRoute route add -host 0.48.5.0 k2link0\n
info 1 hub ->

== InternalsOfBoxesAreReportedToTheOrbRouter
internals hub; internals box -> connect 1.63.1.0 0 49190; P0 internals 171 box '2097153'

== CardsOfAFixedBoxAreNumberedWithoutAGap
plug 1 | timeout box -> 1000
box 1 box QV1410 - XX0000 QV1180 QV1660 -> P0 io 1 box 0.32.0.254 nobody 0; P0 cable box pri on; P1 IO_ACTIVE_ROUTER;
    box 1 on
timeout box; timeout far -> 2000; none
in 7; in 8; in 20 -> 7; 384
out 8; out 12 -> 96; 256
box 1 box QV1790 -> P0 io 7 box 0.32.0.254 nobody 0; P0 cable box pri on; P1 IO_ACTIVE_ROUTER; box 1 on
in 8 -> 384
plug 2 | box 2 box -> P0 io 7 box 0.32.0.254 nobody 0; P0 cable box sec on; box 2 on

== AtADoubleRateAPortTakesTwoSlots
plug 1; rate 1
box 1 box QV1660 QV1320 -> P0 io 1 box 0.32.0.254 nobody 1 1; P0 cable box pri on; P1 IO_ACTIVE_ROUTER; box 1 on
in 32; out 32 -> 128; 144; 32; 48
unplug 1; plug 1 box module; rate 1; module 1 box 64 64 | in 32 -> 64; 65
unplug 1; plug 1 box modular; rate 3; card 1 box 1 10 11 12; card 1 box 255 | in 64; in 65 -> 10; 11; 12

== AModularBoxIsKnownWithItsLastCard
plug 1 box modular | card 1 box 0 3 9; card 1 box 2 5 -1 600 / 11; card 1 box 0 4 8; in 0 ->
card 1 box 255 -> P0 io 0 box 0.32.0.254 nobody 0; P1 IO_ACTIVE_ROUTER; P0 cable box pri on; box 1 on
in 0; in 128; in 129; in 130; out 128 -> 4; 5; 11
card 1 box 255 -> P0 cable box pri on; P1 IO_ACTIVE_ROUTER; box 1 on
card 2 box 3 ->
has box -> local; Modular rates 0; pri 1 to 3 at 0.32.0.254 by 0.0.0.0; sec 255 to 255 at 0.0.0.0 by 0.0.0.0

== AModuleHasItsPortsInARow
plug 1 box module
module 1 box 600 4294967295 -> P0 io 4 box 0.32.0.254 nobody 0; P0 cable box pri on; P1 IO_ACTIVE_ROUTER; box 1 on
in 0; in 511; in 512; out 511 -> 0; 511; 511
ask 0 box -> P0 IO_INFO_K2MOD; P1 IO_REQUEST_GPI_STATES

== RequestsAreAnsweredFromWhatWasStored
ask-all 2 -> connect 1.63.1.0 0 49190
self | ask-all 2 -> master2 IO_INFO_CARD; P0 IO_REQUEST_GPI_STATES
ask 1 desk slave -> slave 0.0.0.0 IO_INFO_CARD; P0 IO_REQUEST_GPI_STATES
plug 2; box 2 box | ask 0 box -> P0 IO_INFO; P2 IO_REQUEST_GPI_STATES
ask 0 far ->

== AChainGetsItsRoute
ping | chain 2 10.20.30.41 -> route add -net 10.20.30.0 netmask 255.255.255.0 k2link1 2>/tmp/addioroute.err;
    P0 CHAIN_LENGTH_CMD
chain 255 10.20.30.40 -> P0 CHAIN_LENGTH_CMD
log ADD -> OS ROUTE ADD route add -net 10.20.30.0 netmask 255.255.255.0 k2link1\n

== ADeviceOfAHubIsReportedOnceDescribed
self; hub 2 | io 2 far 10.20.30.40 -> route add -net 10.20.30.0 netmask 255.255.255.0 k2link1 2>/tmp/addioroute.err;
    slave 0.48.6.0 describe far
has far -> FixedFormat rates 1; sec 2 to 3 at 10.20.30.40 by 0.48.6.0
far-box 2 far -> P0 io 1 far 10.20.30.40 self 2 2; P0 cable far sec on; far 2 on by another stream

== WhatAHubReportsBeforeItsDataLinkIsAskedForWithThat
self; hub 1; io 1 far 10.20.30.40; hub 2; io 2 far 10.20.30.40; far-box 1 far
stream 2 slave 0.48.6.0 -> slave 0.48.6.0 IO_INFO_REQ; slave 0.48.6.0 describe far
stream 1 slave 0.48.5.0 -> slave 0.48.5.0 IO_INFO_REQ
stream 2 slave 0.64.6.0 -> slave 0.64.6.0 IO_INFO_REQ

== ADeviceIsGoneWithItsLastLink
self; hub 1; hub 2; io 1 far 10.20.30.40; io 2 far 10.20.30.40 | io 1 far 0.0.0.0 -> P0 cable far pri off; far 1 off
io 2 far 0.0.0.0 -> P0 cable far sec off; P0 cable far pri off; P0 io 1 far 0.0.0.0 self 2 2; far 2 off
has far ->
io 2 far 0.0.0.0 -> P0 io 1 far 0.0.0.0 self 2 2

== TheOrbRoutersReportsGoToTheRoutingDeviceOnBothLinks
self | io 0 desk 1.63.1.0 self ->
router 1; router 2
io 0 desk 1.63.1.0 00990000 modular -> P1 io 0 desk 1.63.1.0 self 2 2; P2 io 0 desk 1.63.1.0 self 2 2
io 0 desk 0.0.0.0 self -> P0 cable desk sec off; P1 io 1 desk 0.0.0.0 self 2 2; P2 io 1 desk 0.0.0.0 self 2 2;
    desk 0 off
has desk -> own
io 1 far 10.20.30.40 hub aoip -> route add -net 10.20.30.0 netmask 255.255.255.0 k2link0 2>/tmp/addioroute.err;
    P0 cable far pri on; P0 io 7 far 10.20.30.40 self 2 2; far 1 on

== ARemoteRouterTakesItsDevicesWithIt
self; router 1; node 1 hub2 0.64.5.0; io 1 00400001 10.20.30.40 hub2; io 1 00400002 10.20.30.40 hub2
io 1 00400003 10.20.30.40 hub2; io 1 00400002 0.0.0.0 hub2; io 1 far 10.20.30.40
node 1 hub2 0.0.0.0 -> P0 cable 00400001 pri off; P0 cable 00400001 sec off; P0 io 1 00400001 0.0.0.0 self 0;
    P0 cable 00400003 pri off; P0 cable 00400003 sec off; P0 io 1 00400003 0.0.0.0 self 0; P0 cable hub2 pri off;
    P0 cable hub2 sec off; route del -net 0.64.0.0 netmask 255.255.0.0 2>/tmp/delroute.err;
    P0 router 5 hub2 0.0.0.0 hub; 00400001 1 off; 00400003 1 off; hub2-node 1 off
has 00400001; has hub2; has far -> FixedFormat rates 1; pri 1 to 3 at 10.20.30.40 by 0.48.5.0
log DEL -> OS ROUTE DEL CMD route del -net 0.64.0.0 netmask 255.255.0.0\n
log Unknown -> DeviceInfoStorage::EraseDeviceInfo: Unknown device: 0.64:2 \n;
    DeviceInfoStorage::EraseDeviceInfo: Unknown device: 0.64:1 \n;
    DeviceInfoStorage::EraseDeviceInfo: Unknown device: 0.64:3 \n

== AReportOfTheLocalDeviceAsARemoteOneIsKeptApart
self; hub 1; node 1 hub 0.48.5.0 | node 1 hub 0.48.5.0 ->
node 1 hub 0.0.0.0 -> disconnect slave 0.48.5.0; P0 cable hub pri off; P0 cable hub sec off;
    route del -net 0.48.0.0 netmask 255.255.0.0 2>/tmp/delroute.err; P0 router 5 hub 0.0.0.0 hub; hub-node 1 off
node 1 hub 0.48.5.0 -> route add -host 0.48.5.0 k2link0 2>/tmp/addroute.err; connect 0.48.5.0 1 55100;
    P0 router 5 hub 0.48.5.0 hub; P0 cable hub pri on; hub-node 1 on
unplug 1; plug 1; io 2 box 10.20.30.40
io 2 box 0.0.0.0 -> P0 cable box sec off; P0 io 1 box 0.0.0.0 self 2 2; box 2 off

== CommandsForTheLocalBoxTakeThePrimaryFirst
self; plug 2 | send 0 box -> P2 IO_OUTPUTS_OFFSET
send 1 box; set-rate 1 -> P0 IO_OUTPUTS_OFFSET; P0 SET_ROUTER_SAMPLE_RATE
set-rate 0 -> P2 SET_ROUTER_SAMPLE_RATE
card-failure 0 box ->
card-failure 2 box -> P0 MODIO_CARD_FAILURE
plug 1 | send 0 box -> P1 IO_OUTPUTS_OFFSET
dolby 0 far box; rename 0 box; io-rate 0 box -> P1 IO_SET_DOLBYE_SOURCE; P1 RENAME_PORT; P1 IO_SET_SAMPLE_RATE
dolby 0 box far; rename 0 far; io-rate 0 far; gone 1; gone 2 | send 0 box ->
log ForwardCmd -> ForwardCmd No link to device INVALID_HID \n; ForwardCmd No link to device INVALID_HID \n;
    ForwardCmd No link to device INVALID_HID \n; ForwardCmd No link to local device\r\n
commands -> 35

== CommandsForABoxOfAHubTakeTheSideThatReachesBoth
self; hub 1; hub 2; io 2 far 10.20.30.40 | send 0 far -> slave 0.48.6.0 IO_OUTPUTS_OFFSET
io 1 far 10.20.30.40 | send 0 far -> slave 0.48.5.0 IO_OUTPUTS_OFFSET
send 0 00300099; gone 1; gone 2; send 0 far; router 1; io 1 far 10.20.30.40; send 0 far
log ForwardCmd -> ForwardCmd No link to device INVALID_HID \n; ForwardCmd No link to device INVALID_HID \n;
    ForwardCmd When Connected to a network.....\r\n

== TheMasterControlIsNamedOnTheMasterStream
self -> connect 1.63.1.0 0 49190; P0 IO_INFO_REQ; own self; P0 cable desk sec on; desk 0 on
master 2 -> master2 forward 70 3 0 28 16 0 0 0 ff ff 1 3f 5 0 c 0 0 0 3f 3 0 28 4 0 0 0 0 1 12 0

== HubsArePingedOnEveryLinkUnlessARouterIsThere
self; hub 1; node 1 hub2 0.64.5.0; node 2 hub2 0.64.6.0; node 1 00508000 0.80.5.0 router
ping -> slave 0.48.5.0 ping 'ORBMODULE' 0 0; slave 0.64.5.0 ping 'ORBMODULE' 0 0; slave 0.64.6.0 ping 'ORBMODULE' 0 0
pong; pong; router 1 | ping; pong ->
log Ping -> Send Ping To 0.48.5.0\n; Send Ping To 0.64.5.0\n; Send Ping To 0.64.6.0\n; Ping Response  PC 3 TD 4\n;
    Ping Response  PC 3 TD 4\n

== CableChecksWithoutEndMeetALimit
router 2; ten io 2 far 10.20.30.40 | wait cable 6 -> P0 cable hub pri off; P0 cable far pri off; P0 cable far pri off;
    P0 cable far pri off; P0 cable far pri off; P0 cable far pri off
io 2 far 10.20.30.40 | wait cable 1 -> P0 cable far pri off
log Too -> Too many cable checks are pending (6), further ones are left out\n

== TheActiveRouterOfTheSecondaryWaitsAndACancelledWaitSendsAtOnce
plug 2; box 2 | wait router 1 -> P2 IO_ACTIVE_ROUTER
box 2 -> P0 io 7 box 0.32.32.254 nobody 0; P0 cable box sec on; box 2 on
box 2 -> P0 io 7 box 0.32.32.254 nobody 0; P0 cable box sec on; box 2 on; P2 IO_ACTIVE_ROUTER
wait router 1 -> P2 IO_ACTIVE_ROUTER

== DevicesWithoutEndMeetALimitThatLetsTheKnownOnesLive
self; router 1; ten io 1 0030001# 10.20.30.40
node 1 hub2 0.64.5.0; io 1 00300019 10.20.30.40; io 0 00990001 1.63.1.0 self; has 00300016 ->
has 00300015 -> FixedFormat rates 1; pri 1 to 3 at 10.20.30.40 by 0.48.5.0
io 1 00300010 0.0.0.0; io 1 00300019 10.20.30.40
has 00300019 -> FixedFormat rates 1; pri 1 to 3 at 10.20.30.40 by 0.48.5.0
log full -> Device directory is full (8 devices), ignoring device 0.48:16 and all further ones\n

== ACardWithPortsWithoutEndIsCut
plug 1 box modular; card 1 box 0 3 7*65536; card 1 box 255 | in 0; in 65535 -> 3; 7

== RatesWithoutEndAreCutAlsoInTheLog
router 1; io 1 far 10.20.30.40 nobody; io 1 far 10.20.30.40 hub no-type; io 1 far 10.20.30.40 hub hub 1*100000
log wrong -> RemoteIoUpdate type is wrong: Hid=0.48:5 Type=Unknown(0)10.20.30.40RouterHid=0.48:8000 44.1kHzSupported
    Rates\r\n44.1kHz\n; RemoteIoUpdate type is wrong: Hid=0.48:5 Type=KorvoHub10.20.30.40RouterHid=0.48:8000
    96kHzSupported
    Rates\r\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n96kHz\n
io 1 far 10.20.30.40 hub fixed 1*100000; node 1 hub2 0.64.5.0 modular; io 255 far 10.20.30.40; node 3 hub2 0.64.5.0
info 255 hub | has hub2 ->
has far -> FixedFormat rates 16; pri 1 to 3 at 10.20.30.40 by 0.48.5.0
node 1 self 0.18.5.0; self; node 1 self 0.18.5.0
log about; has self -> RemoteRouterUpdate is about us (Hid: 0.18:8000 \n; own; KorvoHub rates 0;
    pri 1 to 3 at 0.18.5.0 by 0.18.5.0

== NoReportTouchesTheRoutesOfTheUnit
self; hub 1 | chain 1 1.63.1.5 -> P0 CHAIN_LENGTH_CMD
io 1 far 1.63.1.5 -> slave 0.48.5.0 describe far
io 1 00300006 0.18.9.1 -> slave 0.48.5.0 describe 00300006
node 1 013f8000 1.2.3.4 -> connect 1.63.5.0 1 55100; P0 router 5 013f8000 1.2.3.4 hub; P0 cable 013f8000 pri on;
    013f4000 1 on
node 1 013f8000 0.0.0.0 -> disconnect slave 1.63.5.0; P0 cable 013f8000 pri off; P0 cable 013f8000 sec off;
    P0 router 5 013f8000 0.0.0.0 hub; 013f4000 1 off
log 0.18.9.1 -> A device reports 0.18.9.1, which is an address of this unit: its route is left alone\r\n

== TheListingsShowTheDevicesOfTheirKindAndThePortsOfABox
self; hub 1; io 1 far 10.20.30.40 | list io -> Local devices:\n; Remote devices:\n;
    Hid: 0.18:1 , Type: Modular \n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n\tSec Rem GigE: H0  Sec Rem
    Address: 1.63.1.0 Link true\n\tOwning ROuter 0.18:8000  SR 44.1kHz:44.1kHz \n;
    Hid: 0.48:5 , Type: FixedFormat \n\tPri Rem GigE: H3  Pri Rem Address: 10.20.30.40 Link true\n\tSec Rem GigE:
    UNKNOWN_PORT  Sec Rem Address: 0.0.0.0 Link false\n\tOwning ROuter 0.48:8000  SR 44.1kHz:44.1kHz \n
list -> Local devices:\n; KorvoHub 0.48:8000 \n\tPri Rem Address: 0.32.0.254Pri Link true\n\tSec Rem Address: 0.0.0.0
    Sec Link false\n SR 48kHz:\n; Remote devices:\n;
    Hid: 0.18:8000 , Type: OrbDsp\n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n\tSec Rem GigE: H0  Sec Rem
    Address: 1.63.1.0 Link true\n\tOwning ROuter 0.18:8000  SR 48kHz:\n
unplug 1; plug 1 box modular; card 1 box 0 3 9 / 11; card 1 box 255
port-map box -> Inputs for device 0.32:1 :\n; A0  -> 3\n; A1  -> 9\n; Outputs for device 0.32:1 :\n; A0  -> 11\n
)";

struct NamedScript
{
    std::string name;
    std::string script;
};

std::vector<NamedScript> GetScenes()
{
    std::vector<NamedScript> scenes;
    std::istringstream lines(Scenes);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 3, "== ") == 0) {
            scenes.push_back({line.substr(3), ""});
        } else {
            scenes.back().script += line + '\n';
        }
    }
    return scenes;
}

class DirectoryTest : public testing::TestWithParam<NamedScript>
{};

} // namespace

TEST_P(DirectoryTest, DoesAsWritten)
{
    using namespace std::chrono;
    const std::string& script = GetParam().script;
    // The timers do not expire unless the scene waits for them.
    const auto delay = [&](const char* wait) -> milliseconds {
        return script.find(wait) == std::string::npos ? hours(1) : milliseconds(100);
    };
    Directory directory({delay("wait cable"), delay("wait router")});
    ExpectTranscript(script, [&](const std::string& event) { return directory.Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, DirectoryTest, testing::ValuesIn(GetScenes()),
                         [](const auto& info) { return info.param.name; });
