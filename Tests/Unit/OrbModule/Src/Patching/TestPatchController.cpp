#include "OrbModule/Inc/Patching/PatchController.h"

#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"

#include <iterator>

namespace {

using Slots = std::vector<std::uint32_t>;

/// "unit" is the unit itself, as the network names it, "desk" the I/O of its Orb router, "box" the I/O box that is
/// plugged in. A hub or router has the other boxes and two DSPs, "zero" in a rack without a number.
const DeviceNames Names({{"unit", 0xC0018000},
                         {"desk", 0xC0010005},
                         {"box", 0xC0020001},
                         {"far", 0xC0030001},
                         {"far2", 0xC0030002},
                         {"far3", 0xC0030003},
                         {"node", 0xC0034001},
                         {"node-link", 0xC0038000},
                         {"zero", 0},
                         {"zero-node", 0x4000},
                         {"zero-link", 0x8000},
                         {"nobody", 0xC0090001}});

/// Plays what happens to the controller. The directory answers as the real one does, also for the own unit's devices.
/// After what is done comes how many faults the log tells of.
///
///     [PORT] make|break SOURCE [at LINK[SLOTS]] to DEST    a command, from port 0 if none is named
///     [PORT] success DEST, retry DEVICE, ping, null        other commands, and each without content
///     router comes, router goes
///     DEVICE comes PORT, DEVICE leaves PORT    in the directory, and as reported to the controller
///     DEVICE silent                            in the directory alone
///     turn DEST pri|sec                        from the shell
///     fill                                     the slots with as many destinations as there may be
///     show DEST                                its states on both links and its swap target
///     counts                                   slots in use and destinations
class PatchControllerTest : public testing::TestWithParam<Scene>, iDevices, iPatcher
{
protected:
    PatchControllerTest()
    {
        Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
        mController.OnLocalHidChanged(0xC0014001);
    }

    Lines Play(const std::string& event)
    {
        static const std::regex form(R"((?:(\d) )?(\S+) ?(\S*)(?: at (\d+)\[([\dx ]*)\])?(?: to)? ?(\S*))");
        std::smatch part;
        std::regex_match(event, part, form);
        const auto port = static_cast<UINT8GIGEPORT>(std::stoul('0' + part.str(1)));
        const std::string verb = part[2], first = part[3], second = part[6];
        const auto receive = [&](auto handler, const auto& command) {
            (mController.*handler)(std::make_shared<std::decay_t<decltype(command)>>(command), port, Local);
        };
        mDeeds.clear();
        const std::size_t logged = mLog.Lines().size();
        if (verb == "make" || verb == "break") {
            const IoPort source = ToPort(first, 1);
            const PatchSource from(source, static_cast<std::uint8_t>(std::stoul('0' + part.str(4))), ToSlots(part[5]));
            receive(&PatchController::ReceivedRouterPatchAudioCmd,
                    RouterPatchAudio(from, ToPort(second, 2), source, verb == "make", false));
        } else if (verb == "success") {
            receive(&PatchController::ReceivedPatchSucessfulCmd, PatchSucessfulCmd(ToPort(first, 2)));
        } else if (verb == "retry") {
            receive(&PatchController::ReceivedAudioPatchRetryForHid, AudioPatchRetryForHidCmd(Names.HidOf(first)));
        } else if (verb == "ping") {
            receive(&PatchController::ReceivedPingCmd, OstrelPingCmd("ORBMODULE", 0, 0));
        } else if (verb == "null") {
            mController.ReceivedRouterPatchAudioCmd(nullptr, port, Local);
            mController.ReceivedPatchSucessfulCmd(nullptr, port, Local);
            mController.ReceivedAudioPatchRetryForHid(nullptr, port, Local);
            mController.ReceivedPingCmd(nullptr, port, Local);
        } else if (verb == "router") {
            mController.OnNetworkConnectionChanged(first == "comes");
        } else if (verb == "turn") {
            mController.SendPortBitmap(ToPort(first, 2).GetHid(), ToPort(first, 2).GetIndex(), second == "sec");
        } else if (verb == "fill") {
            for (int i = 0; i < 256; ++i)
                Play("make desk/1 at 0[7x512] to far/" + std::to_string(i));
        } else if (verb == "show") {
            Show(ToPort(first, 2));
        } else if (verb == "counts") {
            const LinkAllocation::Counts counts = mController.GetLinkAllocation().GetCounts();
            mDeeds.push_back(std::to_string(counts.slotsInUse) + " slots, " + std::to_string(counts.destinations) +
                             " destinations");
        } else if (first == "silent") {
            mRemotePorts[verb] = {255, 255, 255};
        } else {
            ChangeDevice(Names.HidOf(verb), first == "comes", static_cast<UINT8GIGEPORT>(std::stoul(second)));
        }
        const std::size_t faults = mLog.Lines().size() - logged;
        if (faults != 0) mDeeds.push_back(std::to_string(faults) + (faults == 1 ? " fault" : " faults"));
        return mDeeds;
    }

private:
    static constexpr StreamType Local = StreamType::LOCAL_LINK;

    static IoPort ToPort(const std::string& text, std::uint32_t style)
    {
        const auto slash = text.find('/');
        return {Names.HidOf(text.substr(0, slash)), style,
                static_cast<std::uint32_t>(std::stoul(text.substr(slash + 1)))};
    }
    /// "4 5", or "7x513" for many of one
    static Slots ToSlots(const std::string& text)
    {
        const auto times = text.find('x');
        if (times != std::string::npos) return Slots(std::stoul(text.substr(times + 1)), text.front() - '0');
        std::istringstream words(text);
        return {std::istream_iterator<std::uint32_t>(words), {}};
    }

    void ChangeDevice(Hid hid, bool online, UINT8GIGEPORT port)
    {
        const std::string kept = Names.NameOf(IsIoHid(hid) ? hid : MakeLinkHid(hid));
        if (port == Routing::ORB_PORT && !online) {
            mRemotePorts.erase(kept);
        } else if (port < 3) {
            mRemotePorts[kept][port] = online ? UINT8GIGEPORT{9} : UNKNOWN_GIGE_PORT;
        }
        mController.OnDeviceChange(hid, port, online, Local);
    }
    void Show(const IoPort& dest)
    {
        const OrbPatchInfo* const patch = mController.GetPatchStore().Find(dest);
        std::ostringstream text;
        for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
            if (patch) text << patch->GetState(port) << LinkText(patch->GetLink(port)) << " | ";
        }
        mDeeds.push_back(patch ? text.str() + LinkText(patch->GetSwapTarget()) : "unknown");
    }

    bool IsDeviceOnline(Hid hid, Routing::PortsEnum port) const override { return GetDevicePorts(hid, port).IsValid(); }
    bool IsLocalIo(Hid hid) const override { return Names.NameOf(hid) == "box"; }
    bool IsOwnDevice(Hid hid) const override { return GetRackId(hid) == GetRackId(Names.HidOf("unit")); }
    Slots GetInputLinkSlot(Hid, AudioPortNumber port) const override
    {
        return std::map<AudioPortNumber, Slots>{{1, {40}}, {5, {45, 46}}, {7, {70000}}}[port];
    }
    Slots GetOutputLinkSlot(Hid, AudioPortNumber port) const override
    {
        return std::map<AudioPortNumber, Slots>{{2, {50}}, {6, {56, 57}}, {8, {512}}}[port];
    }
    DevicePorts GetDevicePorts(Hid hid, Routing::PortsEnum port) const override
    {
        const auto device = mRemotePorts.find(Names.NameOf(hid));
        if (device == mRemotePorts.end()) return {};
        if (IsOwnDevice(hid)) return {Routing::ORB_PORT, 0};
        // The real directory knows but two links.
        const Routing::PortsEnum link = IsPrimaryPort(port) ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT;
        if (device->second[link] == UNKNOWN_GIGE_PORT) return {};
        return {link, device->second[link]};
    }
    /// As if every remote device were its own router; nobody has reported the local box.
    std::uint32_t GetSlaveAddress(Hid hid, Routing::PortsEnum port) const override
    {
        return !IsLocalIo(hid) && mRemotePorts.count(Names.NameOf(hid)) ? ::GetPortAddress(hid, port) : 0;
    }
    void ProcessPatchUnpatch(const LinkPatch& patch, bool make) override
    {
        mDeeds.push_back((make ? "route " + LinkText(patch.source) + " to " : std::string("silence ")) +
                         LinkText(patch.destination));
    }
    void ProcessUnpatches(const std::vector<LinkPatch>& patches) override
    {
        mDeeds.push_back("drop");
        for (const LinkPatch& patch : patches)
            mDeeds.back() += ' ' + LinkText(patch.destination);
    }
    void RemoveAllPatches() override { mDeeds.push_back("remove all"); }

    const LogRecorder mLog;
    Lines mDeeds;
    /// Gigabit port at the remote end by port, 0xFF if not heard there; nodes by their link form.
    std::map<std::string, std::array<UINT8GIGEPORT, 3>> mRemotePorts{
        {"unit", {0, 0, 0}},   {"desk", {0, 0, 0}},   {"box", {255, 3, 4}},       {"far", {255, 7, 8}},
        {"far2", {255, 7, 8}}, {"far3", {255, 7, 8}}, {"node-link", {255, 7, 8}}, {"zero-link", {255, 5, 6}}};
    RecordingComms mComms{[this](const std::string& deed) { mDeeds.push_back(deed); }, Names};
    PatchController mController{*this, mComms, *this};
};

const Scene Scenes[] = {
    {"ToTheLocalBoxBothPortsAreMadeAndOneBitmapIsSent", R"(
make desk/1 at 0[4] to box/2 -> route 0[4] to 1[50]; P1 bitmap box 2pri; route 0[4] to 2[50]
make box/5 to box/6 -> route 1[45 46] to 1[56 57]; P1 bitmap box 6pri; route 2[45 46] to 2[56 57]
show box/6 -> Patch Success 1[45 46] | Patch Success 2[45 46] | 255[]
break box/5 to box/6 -> silence 1[56 57]; P1 bitmap box 6pri; silence 2[56 57]; 2 faults
box leaves 1 -> drop 1[50]; slave 0.0.0.0 bitmap box 2sec
make far/1 at 0[11] to box/6 -> route 2[11] to 2[56]; P2 bitmap box 6sec
make far/1 at 2[12] to box/6 -> route 2[12] to 2[56]
far silent; make far/1 at 0[13] to box/6 ->
counts -> 2 slots, 2 destinations
)"},
    {"FromTheOrbRouterToALinkTheNextNodeLearnsPortAndSlots", R"(
make desk/1 at 0[30 31] to far/2 -> route 0[30 31] to 1[0 1]; P1 make unit/0 at 7[0 1] to far/2 orig desk/1;
    route 0[30 31] to 2[0 1]; P2 make unit/0 at 8[0 1] to far/2 orig desk/1
2 success far/2 ->
show far/2 -> Patch Sent 0[30 31] | Patch Success 0[30 31] | 255[]
make desk/1 at 1[30 31] to far/5 -> P1 make unit/0 at 7[0 1] to far/5 orig desk/1
1 retry far -> slave 192.1.5.0 make desk/1 at 255[] to far/2; slave 192.1.5.0 make desk/1 at 255[] to far/5
show far/2 -> Patch Sent 255[] | Patch Success 0[30 31] | 255[]
break desk/1 at 0[30 31] to far/2 -> P1 break unit/0 at 7[0 1] to far/2 orig desk/1; silence 2[0 1];
    P2 break unit/0 at 8[0 1] to far/2 orig desk/1; 2 faults
)"},
    {"ARemoteSourceIsAskedForAtItsNode", R"(
make node/3 to far/2 -> slave 192.3.5.0 make node/3 to far/2; slave 192.3.6.0 make node/3 to far/2
show far/2 -> Patch Sent 255[] | Patch Sent 255[] | 255[]
make zero/3 at 2[] to far/4 -> slave 0.0.6.0 make zero/3 at 2[] to far/4
make nobody/1 to nobody/2 ->
1 retry far -> slave 0.0.0.0 make node/3 at 255[] to far/2
make far/1 to far2/5 -> slave 192.3.5.0 make far/1 to far2/5; slave 192.3.6.0 make far/1 to far2/5
2 retry far2 -> slave 192.3.6.0 make far/1 at 255[] to far2/5
)"},
    {"WithARouterTheOrbRouterHearsWhatConcernsIt", R"(
make nobody/1 to nobody/2 ->
router comes ->
show nobody/2 -> unknown
1 make desk/1 at 0[1] to desk/2 -> P0 make desk/1 at 0[1] to desk/2; master1 success desk/2
show desk/2 -> unknown
2 make far/1 at 0[9] to desk/2 -> master2 success desk/2; P0 make unit/0 at 0[0] to desk/2 orig far/1 use-me;
    route 2[9] to 0[0]
1 make far/1 at 0[19] to desk/2 -> master1 success desk/2
show desk/2 -> Patch Reserved 1[19] | Patch Success 2[9] | 0[0]
2 make far/1 at 0[9] to nobody/2 ->
2 make desk/1 to far/2 -> P0 make desk/1 at 2[] to far/2
make desk/1 at 2[33] to far/2 -> route 0[33] to 2[0]; P2 make unit/0 at 8[0] to far/2 orig desk/1
show far/2 -> Patch Not Sent 255[] | Patch Success 0[33] | 255[]
break desk/1 at 0[33] to far/2 -> silence 2[0]; P2 break unit/0 at 8[0] to far/2 orig desk/1
far leaves 2 -> drop 0[0]; route 1[19] to 0[0]
1 make far/1 at 0[9] to nobody/2 ->
router goes ->
show nobody/2 -> Patch Not Sent 255[] | Patch Not Sent 255[] | 255[]
)"},
    {"AFailedPatchIsAskedForOnceWhenItsDeviceComes", R"(
router comes; far silent ->
1 make desk/1 to far/2 -> master1 failed desk/1 far/2
1 make desk/1 to far/3 -> master1 failed desk/1 far/3
far comes 2 ->
far comes 1 -> master1 retry far
far comes 1 ->
far silent ->
1 make desk/1 to far/2 -> master1 failed desk/1 far/2
far leaves 1 -> drop
far comes 1 ->
)"},
    {"TheLossOfALinkSwingsThePreparedRouteOver", R"(
make box/5 to desk/2 -> P0 make unit/0 at 0[0 1] to desk/2 orig box/5 use-me; route 1[45 46] to 0[0 1]
make box/5 to desk/3 -> P0 make unit/0 at 0[0 1] to desk/3 orig box/5 use-me
box leaves 1 -> drop 0[0 1]; route 2[45 46] to 0[0 1]; route 2[45 46] to 0[0 1]; slave 192.1.6.0 bitmap desk 2sec 3sec
show desk/2 -> Patch Not Sent 255[] | Patch Success 2[45 46] | 0[0 1]
box comes 1 ->
show desk/2 -> Patch Reserved 1[45 46] | Patch Success 2[45 46] | 0[0 1]
box leaves 1; box comes 1 -> drop; slave 192.1.6.0 bitmap desk 2sec 3sec
box leaves 2 -> drop 0[0 1]; route 1[45 46] to 0[0 1]; route 1[45 46] to 0[0 1]; slave 192.1.5.0 bitmap desk 2pri 3pri
box leaves 1 -> drop 0[0 1]
show desk/2 -> unknown
counts -> 0 slots, 0 destinations
)"},
    {"ADestinationThatSharesSlotsOutlivesTheLinkThatFedThem", R"(
make box/1 to desk/2 -> P0 make unit/0 at 0[0] to desk/2 orig box/1 use-me; route 1[40] to 0[0]
box leaves 1 -> drop 0[0]; route 2[40] to 0[0]; slave 192.1.6.0 bitmap desk 2sec
box comes 1 ->
make box/1 to desk/3 -> P0 make unit/0 at 0[0] to desk/3 orig box/1 use-me
show desk/3 -> Patch Success 1[40] | Patch Reserved 2[40] | 0[0]
box leaves 2 -> drop 0[0]; route 1[40] to 0[0]; route 1[40] to 0[0]; slave 192.1.5.0 bitmap desk 2pri 3pri
break box/1 to desk/2 -> P0 break unit/0 at 0[0] to desk/2 orig box/1 use-me; 1 fault
break box/1 to desk/3 -> P0 break unit/0 at 0[0] to desk/3 orig box/1 use-me; silence 0[0]; 1 fault
show desk/3; counts -> unknown; 0 slots, 0 destinations
)"},
    {"ASlotOfAnotherSourceIsLeftAloneWhenADeviceLeaves", R"(
make box/1 at 1[] to desk/2 -> P0 make unit/0 at 0[0] to desk/2 orig box/1 use-me; route 1[40] to 0[0]
make box/5 at 2[] to desk/2 -> P0 make unit/1 at 0[1 2] to desk/2 orig box/5 use-me; route 2[45 46] to 0[1 2]
box leaves 1 -> drop 0[0]; slave 192.1.6.0 bitmap desk 2sec
break box/5 at 2[] to desk/2 -> P0 break unit/1 at 0[1 2] to desk/2 orig box/5 use-me; silence 0[1 2]; 1 fault
1 make far/2 at 0[60] to desk/0 -> P0 make unit/0 at 0[0] to desk/0 orig far/2 use-me; route 1[60] to 0[0]
2 make far3/0 at 0[80] to desk/0 -> P0 make unit/1 at 0[1] to desk/0 orig far3/0 use-me; route 2[80] to 0[1]
far3 leaves 2 -> drop 0[1]
1 make far2/1 at 0[70] to desk/5 -> P0 make unit/1 at 0[1] to desk/5 orig far2/1 use-me; route 1[70] to 0[1]
far leaves 1 -> drop 0[0]; slave 192.1.6.0 bitmap desk 0sec
far comes 1 -> slave 192.3.5.0 make far/2 at 255[] to desk/0
1 make far/2 at 0[60] to desk/7 -> P0 make unit/0 at 0[0] to desk/7 orig far/2 use-me; route 1[60] to 0[0]
1 make far2/1 at 0[70] to desk/7 -> P0 make unit/1 at 0[1] to desk/7 orig far2/1 use-me
2 make far2/1 at 0[71] to desk/7 ->
show desk/7 -> Patch Success 1[70] | Patch Reserved 2[71] | 0[1]
far leaves 1 -> drop 0[0]; slave 192.1.6.0 bitmap desk 0sec; 1 fault
1 break far2/1 at 0[70] to desk/7 -> P0 break unit/1 at 0[1] to desk/7 orig far2/1 use-me; 1 fault
)"},
    {"EachDestinationOfALateSourceGetsItsSlots", R"(
box silent; make box/1 to desk/2; make box/1 to desk/3; box comes 1; box comes 2 ->
show desk/3 -> Patch Reserved 1[40] | Patch Reserved 2[40] | 255[]
make box/1 to desk/2 -> P0 make unit/0 at 0[0] to desk/2 orig box/1 use-me; route 1[40] to 0[0]
make box/1 to desk/3 -> P0 make unit/0 at 0[0] to desk/3 orig box/1 use-me
show desk/3 -> Patch Success 1[40] | Patch Reserved 2[40] | 0[0]
1 make far/1 at 0[20] to desk/4 -> P0 make unit/1 at 0[1] to desk/4 orig far/1 use-me; route 1[20] to 0[1]
make far/1 to desk/5 -> slave 192.3.5.0 make far/1 to desk/5; slave 192.3.6.0 make far/1 to desk/5
far comes 1 -> slave 192.3.5.0 make far/1 at 255[] to desk/5
far comes 2 -> slave 192.3.6.0 make far/1 at 255[] to desk/4; slave 192.3.6.0 make far/1 at 255[] to desk/5
1 make far/1 at 0[20] to desk/5 -> P0 make unit/1 at 0[1] to desk/5 orig far/1 use-me
2 make far/1 at 0[30] to desk/5 ->
show desk/5 -> Patch Success 1[20] | Patch Reserved 2[30] | 0[1]
far leaves 1 -> drop 0[1]; route 2[30] to 0[1]; slave 192.1.6.0 bitmap desk 5sec
)"},
    {"APatchThatLostItsSlotsForgetsThem", R"(
1 make far/1 at 0[20] to desk/2 -> P0 make unit/0 at 0[0] to desk/2 orig far/1 use-me; route 1[20] to 0[0]
far comes 2 -> slave 192.3.6.0 make far/1 at 255[] to desk/2
far leaves 1 -> drop 0[0]
show desk/2 -> Patch Not Sent 255[] | Patch Sent 255[] | 255[]
make box/1 at 1[] to desk/4 -> P0 make unit/0 at 0[0] to desk/4 orig box/1 use-me; route 1[40] to 0[0]
2 make far/1 at 0[30] to desk/3 -> P0 make unit/1 at 0[1] to desk/3 orig far/1 use-me; route 2[30] to 0[1]
far comes 1 -> slave 192.3.5.0 make far/1 at 255[] to desk/2; slave 192.3.5.0 make far/1 at 255[] to desk/3
2 make far/1 at 0[30] to desk/2 -> P0 make unit/1 at 0[1] to desk/2 orig far/1 use-me
1 success desk/2 ->
far leaves 2 -> drop 0[1]; slave 192.1.5.0 bitmap desk 2pri; 1 fault
)"},
    {"AMakeWithoutFreeSlotsKeepsNothing", R"(
1 make far/9 at 0[7x511] to desk/9
make box/5 to desk/2 ->
show desk/2 -> Patch Not Sent 255[] | Patch Not Sent 255[] | 255[]
make box/1 to desk/3 -> P0 make unit/511 at 0[511] to desk/3 orig box/1 use-me; route 1[40] to 0[511]
counts -> 512 slots, 512 destinations
)"},
    {"WithoutPlaceForADestinationNothingIsSaidOfARoute", R"(
fill
make box/1 to box/2; 1 make far/1 at 0[20] to desk/2; counts -> 4 faults; 1 fault; 1024 slots, 262144 destinations
break desk/1 at 0[7x512] to far/0
make box/1 to box/2 -> route 1[40] to 1[50]; P1 bitmap box 2pri; route 2[40] to 2[50]
make desk/1 at 0[7x512] to far/0
counts -> 1024 slots, 261634 destinations
)"},
    {"ADeviceThatComesBackGetsItsPatchesAgain", R"(
box silent; far silent; make box/1 to box/2; make desk/1 at 1[] to far/2; make far/1 to desk/7 -> 1 fault
box comes 1 -> route 1[40] to 1[50]
box comes 2 -> route 2[40] to 2[50]
far comes 2 -> P0 make desk/1 at 2[] to far/2; slave 192.3.6.0 make far/1 at 255[] to desk/7
show desk/7 -> Patch Not Sent 255[] | Patch Sent 255[] | 255[]
)"},
    {"APingIsAnsweredWhenARouterIsThere", R"(
make box/5 to desk/2 -> P0 make unit/0 at 0[0 1] to desk/2 orig box/5 use-me; route 1[45 46] to 0[0 1]
make box/5 to desk/3 -> P0 make unit/0 at 0[0 1] to desk/3 orig box/5 use-me
1 ping ->
router comes ->
1 ping -> master1 ping '192.1.5.0' 2 4
2 ping -> master2 ping '192.1.6.0' 2 4
)"},
    {"ANodeThatLeavesIsKnownByItsLinkForm", R"(
1 make node/3 at 0[20] to desk/2 -> P0 make unit/0 at 0[0] to desk/2 orig node/3 use-me; route 1[20] to 0[0]
1 make zero/3 at 0[21] to desk/3 -> P0 make unit/1 at 0[1] to desk/3 orig zero/3 use-me; route 1[21] to 0[1]
node leaves 1 -> drop 0[0]
zero-node leaves 1 -> drop 0[1]
)"},
    {"AnEngineerCanTurnOnePortOfADevice", R"(
turn box/9 sec -> P2 bitmap box 9sec
box leaves 2 -> drop
turn box/9 sec -> P1 bitmap box 9sec
turn box/9 pri -> P1 bitmap box 9pri
box comes 2; box leaves 1; turn box/9 pri -> drop; P2 bitmap box 9pri
)"},
    {"OfUnequalListsTheShorterCounts", R"(
make far/1 at 1[1 2 3] to box/6 -> route 1[1 2] to 1[56 57]
make far/9 at 2[4] to box/6 -> route 2[4] to 2[56]
break far/9 at 2[4] to box/6 -> silence 2[56 57]; 1 fault
1 make far/2 at 0[20 21] to desk/2 -> P0 make unit/0 at 0[0 1] to desk/2 orig far/2 use-me; route 1[20 21] to 0[0 1]
2 make far/2 at 0[30] to desk/2 ->
far leaves 1 -> drop 0[0 1] 1[56 57]; route 2[30] to 0[0]; slave 192.1.6.0 bitmap desk 2sec
counts -> 1 slots, 1 destinations
)"},
    {"WhatAPeerMadeUpDoesNothing", R"(
make far/1 to box/2 -> 2 faults
1 make far/1 at 0[512] to desk/2 -> 2 faults
make desk/1 at 0[1 4294967295] to far/2 -> 4 faults
break desk/1 at 0[1 4294967295] to far/2 -> 4 faults
1 break far/1 at 0[512] to desk/2 -> 2 faults
box leaves 77 -> drop; 1 fault
box comes 77 ->
nobody leaves 2 -> drop
1 make far/1 at 0[1x513] to desk/2 -> 2 faults
make far/1 at 1[1x513] to box/6 -> 2 faults
make far/1 at 0[1] to box/8 -> 4 faults
make box/7 at 0[1] to desk/3 -> 4 faults
null -> 1 fault
counts -> 0 slots, 0 destinations
)"},
};

} // namespace

TEST_P(PatchControllerTest, DoesAsWritten)
{
    ExpectTranscript(GetParam().script, [this](const std::string& event) { return Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, PatchControllerTest, testing::ValuesIn(Scenes), NameOfScene);
