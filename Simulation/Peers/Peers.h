#pragma once

#include "Simulation/Peers/Kinds.h"

// A table has one row a line.
// clang-format off

/// The virtual peers: programs that speak the network's real protocols over real sockets, and take commands.
///
/// One program, `Peer KIND --control PATH [option...]`, one process a peer, run in the namespace of the rig where the
/// peer belongs: `orb` and `update` in `unit`; `fixed`, `modular`, `aoip`, `module`, `hub` and `router` in `pri` or
/// `sec`. It prints "ready" when its control socket accepts, and ends on `quit`, SIGTERM or SIGINT. `--do LINE` (any
/// number of times) plays lines of the control channel first, `--appear` appears at once, `Peer --help` lists the
/// rest. For example, the two ends of a link between the module (rack 0x12) and a box (rack 0x20, port 0):
///
///     Peer orb --control /tmp/orb --hid 0x00128000 --io-hid 0x00120001 --do "card 0 Mic in=0-15 out=0-15" --appear
///     Peer update --control /tmp/update --appear
///     Peer fixed --control /tmp/box --hid 0x00200001 --module-rack 0x12 --rack 0x20 --link 0 --do "card 0 QV1410"
///
/// and then, on the control socket of the box, `appear` once the link driver has reported the neighbour with the
/// driver id 2 * 0x20 and the port 0 on link 0. A peer that appears on a link puts the addresses of the link, and for
/// a hub that of its data link, on its interface.
///
/// The control channel is a Unix stream socket. One line, one answer; the answer's lines end with a line ".". An
/// answer that begins with "error:" says what was wrong. Numbers are decimal or 0x; LIST is "0-15,32"; ID is the
/// number of a command; NAME is the name of a stream: local (TCP 55000), data (55100), update (49190), by default
/// local, and of several the newest.
///
/// All kinds
///
/// | Line | What it does |
/// |---|---|
/// | `help` | all verbs of this peer |
/// | `appear`, `vanish` | comes up; goes, with every stream reset and every port closed |
/// | `reboot MS` | vanishes, and appears MS milliseconds later |
/// | `state`, `streams` | `present` or `absent`; one line a stream: name, own and far endpoint |
/// | `received [ID]` | what was received since the start or `clear`, one line a command: `NUMBER NAME ID BYTES`, the bytes of the whole item in hex |
/// | `clear` | forgets what was received |
/// | `wait ID MS [COUNT]` | answers with the last such line once COUNT (or 1) of this id have been received since `clear`, or `timeout` |
/// | `wait-stream NAME MS`, `wait-no-stream NAME MS` | an empty answer once there is, or is no, such stream, or `timeout` |
/// | `answer ID MODE` | how requests of this id are answered from now on: `normal`, `never`, `late MS`, `wrong` (a false identity or address), `short` (half of the value), `garbage` (no command at all) |
/// | `stall on`, `stall off` | reads nothing while on |
/// | `connect PORT [address=A] [source=PORT]` | opens a stream to the module, as the Orb router and the update service do after a restart (the latter from its own port: `connect 55000 source=49190`) |
/// | `disconnect [NAME]` | resets the streams |
/// | `patch [src=HID:STYLE:INDEX] [link=255] [slots=LIST] [dest=HID:STYLE:INDEX] [orig=..] [make=1] [useme=0] [on=NAME]` | sends RouterPatchAudio; orig is src if not given |
/// | `command ID[/VERSION] FIELD... [on=NAME]` | sends any command, its fields in the order of the wire: `u8:N`, `u16:N`, `u32:N`, `ip:A` (host order), `str:TEXT`, `list16:LIST`, `list32:LIST` |
/// | `raw HEX [on=NAME]`, `udp PORT HEX` | sends bytes on a stream; sends a datagram to the module |
/// | `quit` | ends the program |
///
/// Peers on a link
///
/// | Line | What it does |
/// |---|---|
/// | `internals WORD` | the word after the type in the heartbeat |
/// | `heartbeats on`, `heartbeats off` | stops and resumes the heartbeats alone |
/// | `module-heartbeat` | count and bytes of the last heartbeat heard from the module |
/// | `identity HID [TYPE]` | what the heartbeat says, also of a type that does not exist |
/// | `module-rack RACK` | the module has another rack id: vanishes and appears with the new addresses |
/// | `cable out`, `cable in` | takes the interface down and up: nothing is sent any more, and no stream ends |
/// | `address` | own address and the module's on this link |
///
/// Boxes: `card SLOT MODEL` (fixed, aoip), `card SLOT NAME [in=LIST] [out=LIST]` (modular; hardware port numbers),
/// `ports IN OUT` (module), `rate RATE [RATES]` (reports the rates before the description), `describe` (unasked).
///
/// Hub and master router: `device HID fixed|modular|aoip|module ADDRESS` (a device at it appears), `of HID LINE`
/// (a line of a box for that device), `device-gone HID`, `own-io HID` (the device that represents its internal I/O),
/// `router HID ADDRESS [type=5]`, `router-gone HID`, `report` (reports everything again), `flood FIRST-HID COUNT`
/// (reports that many devices). They answer pings. The hub listens for its data link; `at-once on` makes it report its
/// devices as soon as it has a local stream and not again once the data link is up. The router opens a local and a master stream
/// (named data) to the module, and has `master RACK [NUMBER [RATE]]`, what its heartbeat says of the
/// master.
///
/// Orb router: `card ...` and `rate ...` of its internal I/O, `identity HID [IO-HID]`, `name` (sends RouterInfo
/// unasked), `io-report`, `io-gone`, `module-heartbeat` (of UDP 49157).
///
/// Update service: `result 0..4|never`, `result-of ADDRESS 0..4|never`, `tell ADDRESS RESULT` (unasked). Late and
/// wrong answers by `answer 6000 ...`.
