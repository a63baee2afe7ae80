#include "OrbModule/Inc/Patching/PatchController.h"

#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/OrbModule/Src/Patching/Patches.scenes.h"

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
/// After what is done comes the number of faults in the log.
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
        if (times != std::string::npos)
            return Slots(std::stoul(text.substr(times + 1)), static_cast<std::uint32_t>(text.front() - '0'));
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

} // namespace

TEST_P(PatchControllerTest, DoesAsWritten)
{
    ExpectTranscript(GetParam().script, [this](const std::string& event) { return Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, PatchControllerTest, testing::ValuesIn(ScenesOf(PatchesScenes)), NameOfScene);
