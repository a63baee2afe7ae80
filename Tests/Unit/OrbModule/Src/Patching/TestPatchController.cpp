#include "OrbModule/Inc/Patching/PatchController.h"

#include "Common/KLV/Commands/PatchCommands.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchDoubles.h"

#include <gmock/gmock.h>

#include <regex>
#include <sstream>

namespace patching {
namespace {

using Slots = std::vector<std::uint32_t>;

/// Plays a transcript. A line that starts with '>' is an event, the lines below it are what the controller does then.
///
///     > [PORT] make|break SOURCE at LINK[SLOTS] to DEST [orig SOURCE]     a     command, from port 0 if none is named
/// > [PORT] success DEST, retry     DEVICE, ping                           other commands > router comes,     router
/// goes > DEVICE comes PORT, DEVICE leaves PORT in the directory,     and as the controller hears > DEVICE silent in
/// the directory alone >     turn DEST pri|sec                                                 from     the shell >
/// show DEST its states on both links and its swap target >     counts
/// slots     in use and destinations
class PatchControllerTest : public testing::Test
{
protected:
    PatchControllerTest()
    {
        mDevices.devices = {{MakeLinkHid(Unit), {{0, 0, 0}}},
                            {Desk, {{0, 0, 0}}},
                            {Box, {{255, 3, 4}, {{1, {40}}, {5, {45, 46}}}, {{2, {50}}, {6, {56, 57}}}}},
                            {Far, {{255, 7, 8}}},
                            {Far2, {{255, 7, 8}}},
                            {Far3, {{255, 7, 8}}},
                            {MakeLinkHid(Node), {{255, 7, 8}}},
                            {MakeLinkHid(Zero), {{255, 5, 6}}}};
        mController.OnLocalHidChanged(Unit);
    }

    /// Expects that each event does what stands below it, and nothing else.
    void Expect(const std::string& transcript)
    {
        std::istringstream lines(transcript.substr(1));
        std::string seen = "\n";
        for (std::string line; std::getline(lines, line);) {
            if (line.front() != '>') continue;
            seen += line + '\n';
            mDeeds.clear();
            Play(line.substr(2));
            for (const std::string& deed : mDeeds)
                seen += deed + '\n';
        }
        EXPECT_EQ(seen, transcript);
    }

    void Deliver(const RouterPatchAudio& command, UINT8GIGEPORT port)
    {
        mController.ReceivedRouterPatchAudioCmd(std::make_shared<const RouterPatchAudio>(command), port,
                                                StreamType::LOCAL_LINK);
    }

    Deeds mDeeds;
    FakeDevices mDevices;
    FakeComms mComms{mDeeds};
    FakePatcher mPatcher{mDeeds};
    PatchController mController{mDevices, mComms, mPatcher};

private:
    static IoPort ToPort(const std::string& text, std::uint32_t style)
    {
        const auto slash = text.find('/');
        return IoPort(HidOf(text.substr(0, slash)), style,
                      static_cast<std::uint32_t>(std::stoul(text.substr(slash + 1))));
    }

    void Play(const std::string& event)
    {
        static const std::regex patch(R"((\d )?(make|break) (\S+) at (\d+)\[([\d ]*)\] to (\S+)(?: orig (\S+))?)");
        static const std::regex other(R"((?:(\d) )?(\S+) ?(\S+)? ?(\d+|pri|sec)?)");
        std::smatch part;
        if (std::regex_match(event, part, patch)) {
            Slots slots;
            std::istringstream numbers(part[5]);
            for (std::uint32_t slot = 0; numbers >> slot;)
                slots.push_back(slot);
            const IoPort source = ToPort(part[3], 1);
            const auto link = static_cast<std::uint8_t>(std::stoul(part[4]));
            Deliver(RouterPatchAudio(PatchSource(source, link, slots), ToPort(part[6], 2),
                                     part[7].matched ? ToPort(part[7], 1) : source, part[2] == "make", false),
                    part[1].matched ? static_cast<UINT8GIGEPORT>(std::stoul(part[1])) : UINT8GIGEPORT{0});
        } else if (std::regex_match(event, part, other)) {
            PlayOther(part[2], part[3], part[4], part[1].matched ? std::stoul(part[1]) : 0);
        }
    }

    void PlayOther(const std::string& first, const std::string& second, const std::string& third, unsigned long from)
    {
        const auto port = static_cast<UINT8GIGEPORT>(from);
        const auto type = StreamType::LOCAL_LINK;
        if (first == "success") {
            const PatchSucessfulCmd command(ToPort(second, 2));
            mController.ReceivedPatchSucessfulCmd(std::make_shared<const PatchSucessfulCmd>(command), port, type);
        } else if (first == "retry") {
            const AudioPatchRetryForHidCmd command(HidOf(second));
            mController.ReceivedAudioPatchRetryForHid(std::make_shared<const AudioPatchRetryForHidCmd>(command), port,
                                                      type);
        } else if (first == "ping") {
            mController.ReceivedPingCmd(std::make_shared<const OstrelPingCmd>("ORBMODULE", 0, 0), port, type);
        } else if (first == "router") {
            mController.OnNetworkConnectionChanged(second == "comes");
        } else if (first == "turn") {
            const IoPort dest = ToPort(second, 2);
            mController.SendPortBitmap(dest.GetHid(), dest.GetIndex(), third == "sec");
        } else if (first == "show") {
            Show(ToPort(second, 2));
        } else if (first == "counts") {
            const LinkAllocation::Counts counts = mController.GetLinkAllocation().GetCounts();
            mDeeds.push_back(std::to_string(counts.slotsInUse) + " slots, " + std::to_string(counts.destinations) +
                             " destinations");
        } else {
            ChangeDevice(HidOf(first), second, third);
        }
    }

    void ChangeDevice(Hid hid, const std::string& change, const std::string& where)
    {
        const Hid kept = IsIoHid(hid) ? hid : MakeLinkHid(hid);
        if (change == "silent") {
            mDevices.devices[kept].remote = {255, 255, 255};
            return;
        }
        const auto port = static_cast<UINT8GIGEPORT>(std::stoul(where));
        const bool online = change == "comes";
        if (port == Routing::ORB_PORT && !online) {
            mDevices.devices.erase(kept);
        } else if (port < 3) {
            mDevices.devices[kept].remote[port] = online ? UINT8GIGEPORT{9} : UNKNOWN_GIGE_PORT;
        }
        mController.OnDeviceChange(hid, port, online, StreamType::LOCAL_LINK);
    }

    void Show(const IoPort& dest)
    {
        static const std::map<Korvo::PatchState, std::string> states{{Korvo::PatchNotSent, "Not "},
                                                                     {Korvo::PatchSent, "Sent "},
                                                                     {Korvo::PatchSuccess, "Success "},
                                                                     {Korvo::PatchReserved, "Reserved "}};
        const OrbPatchInfo* const patch = mController.GetPatchStore().Find(dest);
        if (!patch) return mDeeds.push_back("unknown");
        std::string text;
        for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            text += states.at(patch->GetState(port)) + TextOf(patch->GetLink(port)) + " | ";
        mDeeds.push_back(text + TextOf(patch->GetSwapTarget()));
    }
};

} // namespace

TEST_F(PatchControllerTest, ToTheLocalBoxBothPortsAreMadeAndOneBitmapIsSent)
{
    Expect(R"(
> make desk/1 at 0[4] to box/2
route 0[4] to 1[50]
send 1: bitmap box 2pri
route 0[4] to 2[50]
> make box/5 at 0[] to box/6
route 1[45 46] to 1[56 57]
send 1: bitmap box 6pri
route 2[45 46] to 2[56 57]
> show box/6
Success 1[45 46] | Success 2[45 46] | 255[]
> break box/5 at 0[] to box/6
silence 1[56 57]
send 1: bitmap box 6pri
silence 2[56 57]
> box leaves 1
drop 1[50]
send 255 slave 0.0.0.0: bitmap box 2sec
> make far/1 at 0[11] to box/6
route 2[11] to 2[56]
send 2: bitmap box 6sec
> make far/1 at 2[12] to box/6
route 2[12] to 2[56]
> counts
2 slots, 2 destinations
)");
}

TEST_F(PatchControllerTest, FromTheLocalBoxOneLinkWorksAndTheOtherStandsBy)
{
    Expect(R"(
> make box/1 at 0[] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig box/1 use-me
route 1[40] to 0[0]
> show desk/2
Success 1[40] | Reserved 2[40] | 0[0]
> make box/1 at 0[] to desk/3
send 0: make unit/0 at 0[0] to desk/3 orig box/1 use-me
> show desk/3
Success 1[40] | Reserved 2[40] | 0[0]
> break box/1 at 0[] to desk/2
send 0: break unit/0 at 0[0] to desk/2 orig box/1 use-me
> break box/1 at 0[] to desk/3
send 0: break unit/0 at 0[0] to desk/3 orig box/1 use-me
silence 0[0]
> show desk/3
unknown
> counts
0 slots, 0 destinations
)");
}

TEST_F(PatchControllerTest, FromTheOrbRouterToALinkTheNextNodeLearnsPortAndSlots)
{
    Expect(R"(
> make desk/1 at 0[30 31] to far/2
route 0[30 31] to 1[0 1]
send 1: make unit/0 at 7[0 1] to far/2 orig desk/1
route 0[30 31] to 2[0 1]
send 2: make unit/0 at 8[0 1] to far/2 orig desk/1
> 2 success far/2
> show far/2
Sent 0[30 31] | Success 0[30 31] | 255[]
> make desk/1 at 1[30 31] to far/5
send 1: make unit/0 at 7[0 1] to far/5 orig desk/1
> break desk/1 at 0[30 31] to far/2
send 1: break unit/0 at 7[0 1] to far/2 orig desk/1
silence 2[0 1]
send 2: break unit/0 at 8[0 1] to far/2 orig desk/1
)");
}

TEST_F(PatchControllerTest, ARemoteSourceIsAskedForAtItsNode)
{
    Expect(R"(
> make node/3 at 0[] to far/2
send 255 slave 192.3.5.0: make node/3 at 0[] to far/2 orig node/3
send 255 slave 192.3.6.0: make node/3 at 0[] to far/2 orig node/3
> show far/2
Sent 255[] | Sent 255[] | 255[]
> make zero/3 at 2[] to far/4
send 255 slave 0.0.6.0: make zero/3 at 2[] to far/4 orig zero/3
> make nobody/1 at 0[] to nobody/2
> 1 retry far
send 255 slave 0.0.0.0: make node/3 at 255[] to far/2 orig node/3
> make far/1 at 0[] to far2/5
send 255 slave 192.3.5.0: make far/1 at 0[] to far2/5 orig far/1
send 255 slave 192.3.6.0: make far/1 at 0[] to far2/5 orig far/1
> 2 retry far2
send 255 slave 192.3.6.0: make far/1 at 255[] to far2/5 orig far/1
)");
}

TEST_F(PatchControllerTest, WithARouterTheOrbRouterHearsWhatConcernsIt)
{
    Expect(R"(
> make nobody/1 at 0[] to nobody/2
> router comes
> show nobody/2
unknown
> 1 make desk/1 at 0[1] to desk/2
send 0: make desk/1 at 0[1] to desk/2 orig desk/1
send 1 master: success desk/2
> show desk/2
unknown
> 2 make far/1 at 0[9] to desk/2
send 2 master: success desk/2
send 0: make unit/0 at 0[0] to desk/2 orig far/1 use-me
route 2[9] to 0[0]
> 1 make far/1 at 0[19] to desk/2
send 1 master: success desk/2
> show desk/2
Reserved 1[19] | Success 2[9] | 0[0]
> 2 make far/1 at 0[9] to nobody/2
> 2 make desk/1 at 0[] to far/2
send 0: make desk/1 at 2[] to far/2 orig desk/1
> make desk/1 at 2[33] to far/2
route 0[33] to 2[0]
send 2: make unit/0 at 8[0] to far/2 orig desk/1
> show far/2
Not 255[] | Success 0[33] | 255[]
> break desk/1 at 0[33] to far/2
silence 2[0]
send 2: break unit/0 at 8[0] to far/2 orig desk/1
> far leaves 2
drop 0[0]
route 1[19] to 0[0]
> 1 make far/1 at 0[9] to nobody/2
> router goes
> show nobody/2
Not 255[] | Not 255[] | 255[]
)");
}

TEST_F(PatchControllerTest, AFailedPatchIsAskedForOnceWhenItsDeviceComes)
{
    Expect(R"(
> router comes
> far silent
> 1 make desk/1 at 0[] to far/2
send 1 master: failed desk/1 to far/2
> 1 make desk/1 at 0[] to far/3
send 1 master: failed desk/1 to far/3
> far comes 2
> far comes 1
send 1 master: retry far
> far comes 1
> far silent
> 1 make desk/1 at 0[] to far/2
send 1 master: failed desk/1 to far/2
> far leaves 1
drop
> far comes 1
)");
}

TEST_F(PatchControllerTest, TheLossOfALinkSwingsThePreparedRouteOver)
{
    Expect(R"(
> make box/5 at 0[] to desk/2
send 0: make unit/0 at 0[0 1] to desk/2 orig box/5 use-me
route 1[45 46] to 0[0 1]
> make box/5 at 0[] to desk/3
send 0: make unit/0 at 0[0 1] to desk/3 orig box/5 use-me
> box leaves 1
drop 0[0 1]
route 2[45 46] to 0[0 1]
route 2[45 46] to 0[0 1]
send 255 slave 192.1.6.0: bitmap desk 2sec 3sec
> show desk/2
Not 255[] | Success 2[45 46] | 0[0 1]
> box comes 1
> show desk/2
Reserved 1[45 46] | Success 2[45 46] | 0[0 1]
> box leaves 2
drop 0[0 1]
route 1[45 46] to 0[0 1]
route 1[45 46] to 0[0 1]
send 255 slave 192.1.5.0: bitmap desk 2pri 3pri
> box leaves 1
drop 0[0 1]
> show desk/2
unknown
> counts
0 slots, 0 destinations
)");
}

TEST_F(PatchControllerTest, ADestinationThatSharesSlotsOutlivesTheLinkThatFedThem)
{
    // After the swing the slot is fed over link 2, but for the second destination link 1 counts as the working one.
    Expect(R"(
> make box/1 at 0[] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig box/1 use-me
route 1[40] to 0[0]
> box leaves 1
drop 0[0]
route 2[40] to 0[0]
send 255 slave 192.1.6.0: bitmap desk 2sec
> box comes 1
> make box/1 at 0[] to desk/3
send 0: make unit/0 at 0[0] to desk/3 orig box/1 use-me
> show desk/3
Success 1[40] | Reserved 2[40] | 0[0]
> box leaves 2
drop 0[0]
route 1[40] to 0[0]
route 1[40] to 0[0]
send 255 slave 192.1.5.0: bitmap desk 2pri 3pri
> break box/1 at 0[] to desk/2
send 0: break unit/0 at 0[0] to desk/2 orig box/1 use-me
> break box/1 at 0[] to desk/3
send 0: break unit/0 at 0[0] to desk/3 orig box/1 use-me
silence 0[0]
)");
}

TEST_F(PatchControllerTest, WhatTheDesksOwnIoHeardFallsSilentWhenItLeaves)
{
    Expect(R"(
> 1 make far/1 at 0[20] to desk/9
send 0: make unit/0 at 0[0] to desk/9 orig far/1 use-me
route 1[20] to 0[0]
> make box/1 at 0[] to desk/2
send 0: make unit/1 at 0[1] to desk/2 orig box/1 use-me
route 1[40] to 0[1]
> desk leaves 0
drop 0[0 1]
send 255 slave 0.0.0.0: bitmap desk 2pri 9pri
> box leaves 2
drop
send 255 slave 0.0.0.0: bitmap desk 2pri
> box comes 2
> box leaves 1
drop
> box comes 1
> counts
0 slots, 0 destinations
> desk comes 0
send 255 slave 192.3.6.0: make far/1 at 255[] to desk/9 orig far/1
> make box/1 at 0[] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig box/1 use-me
route 1[40] to 0[0]
> show desk/2
Success 1[40] | Reserved 2[40] | 0[0]
)");
}

TEST_F(PatchControllerTest, ASlotOfAnotherSourceIsLeftAloneWhenADeviceLeaves)
{
    // A destination that is patched anew without a break keeps its first source in the store.
    Expect(R"(
> make box/1 at 1[] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig box/1 use-me
route 1[40] to 0[0]
> make box/5 at 2[] to desk/2
send 0: make unit/1 at 0[1 2] to desk/2 orig box/5 use-me
route 2[45 46] to 0[1 2]
> box leaves 1
drop 0[0]
send 255 slave 192.1.6.0: bitmap desk 2sec
> break box/5 at 2[] to desk/2
send 0: break unit/1 at 0[1 2] to desk/2 orig box/5 use-me
silence 0[1 2]
> 1 make far/2 at 0[60] to desk/0
send 0: make unit/0 at 0[0] to desk/0 orig far/2 use-me
route 1[60] to 0[0]
> 2 make far3/0 at 0[80] to desk/0
send 0: make unit/1 at 0[1] to desk/0 orig far3/0 use-me
route 2[80] to 0[1]
> far3 leaves 2
drop 0[1]
> 1 make far2/1 at 0[70] to desk/5
send 0: make unit/1 at 0[1] to desk/5 orig far2/1 use-me
route 1[70] to 0[1]
> far leaves 1
drop 0[0]
send 255 slave 192.1.6.0: bitmap desk 0sec
> far comes 1
send 255 slave 192.3.5.0: make far/2 at 255[] to desk/0 orig far/2
> 1 make far/2 at 0[60] to desk/7
send 0: make unit/0 at 0[0] to desk/7 orig far/2 use-me
route 1[60] to 0[0]
> 1 make far2/1 at 0[70] to desk/7
send 0: make unit/1 at 0[1] to desk/7 orig far2/1 use-me
> 2 make far2/1 at 0[71] to desk/7
> show desk/7
Success 1[70] | Reserved 2[71] | 0[1]
> far leaves 1
drop 0[0]
send 255 slave 192.1.6.0: bitmap desk 0sec
> 1 break far2/1 at 0[70] to desk/7
send 0: break unit/1 at 0[1] to desk/7 orig far2/1 use-me
)");
}

TEST_F(PatchControllerTest, EachDestinationOfALateSourceIsToldItsSlots)
{
    Expect(R"(
> box silent
> make box/1 at 0[] to desk/2
> make box/1 at 0[] to desk/3
> box comes 1
> box comes 2
> show desk/3
Reserved 1[40] | Reserved 2[40] | 255[]
> make box/1 at 0[] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig box/1 use-me
route 1[40] to 0[0]
> make box/1 at 0[] to desk/3
send 0: make unit/0 at 0[0] to desk/3 orig box/1 use-me
> show desk/3
Success 1[40] | Reserved 2[40] | 0[0]
> 1 make far/1 at 0[20] to desk/4
send 0: make unit/1 at 0[1] to desk/4 orig far/1 use-me
route 1[20] to 0[1]
> make far/1 at 0[] to desk/5
send 255 slave 192.3.5.0: make far/1 at 0[] to desk/5 orig far/1
send 255 slave 192.3.6.0: make far/1 at 0[] to desk/5 orig far/1
> far comes 1
send 255 slave 192.3.5.0: make far/1 at 255[] to desk/5 orig far/1
> far comes 2
send 255 slave 192.3.6.0: make far/1 at 255[] to desk/4 orig far/1
send 255 slave 192.3.6.0: make far/1 at 255[] to desk/5 orig far/1
> 1 make far/1 at 0[20] to desk/5
send 0: make unit/1 at 0[1] to desk/5 orig far/1 use-me
> 2 make far/1 at 0[30] to desk/5
> show desk/5
Success 1[20] | Reserved 2[30] | 0[1]
> far leaves 1
drop 0[1]
route 2[30] to 0[1]
send 255 slave 192.1.6.0: bitmap desk 5sec
)");
}

TEST_F(PatchControllerTest, APatchThatLostItsSlotsForgetsThem)
{
    Expect(R"(
> 1 make far/1 at 0[20] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig far/1 use-me
route 1[20] to 0[0]
> far comes 2
send 255 slave 192.3.6.0: make far/1 at 255[] to desk/2 orig far/1
> far leaves 1
drop 0[0]
> show desk/2
Not 255[] | Sent 255[] | 255[]
> make box/1 at 1[] to desk/4
send 0: make unit/0 at 0[0] to desk/4 orig box/1 use-me
route 1[40] to 0[0]
> 2 make far/1 at 0[30] to desk/3
send 0: make unit/1 at 0[1] to desk/3 orig far/1 use-me
route 2[30] to 0[1]
> far comes 1
send 255 slave 192.3.5.0: make far/1 at 255[] to desk/2 orig far/1
send 255 slave 192.3.5.0: make far/1 at 255[] to desk/3 orig far/1
> 2 make far/1 at 0[30] to desk/2
send 0: make unit/1 at 0[1] to desk/2 orig far/1 use-me
)");
}

TEST_F(PatchControllerTest, AMakeThatFindsNoRoomKeepsNothing)
{
    Deliver(RouterPatchAudio(PatchSource(IoPort(Far, 1, 9), 0, Slots(511, 7)), IoPort(Desk, 2, 9), IoPort(Far, 1, 9),
                             true, false),
            1);
    Expect(R"(
> make box/5 at 0[] to desk/2
> show desk/2
Not 255[] | Not 255[] | 255[]
> make box/1 at 0[] to desk/3
send 0: make unit/511 at 0[511] to desk/3 orig box/1 use-me
route 1[40] to 0[511]
> counts
512 slots, 512 destinations
)");
}

TEST_F(PatchControllerTest, ADeviceThatComesBackGetsItsPatchesAgain)
{
    Expect(R"(
> box silent
> far silent
> make box/1 at 0[] to box/2
> make desk/1 at 1[] to far/2
> make far/1 at 0[] to desk/7
> box comes 1
route 1[40] to 1[50]
> box comes 2
route 2[40] to 2[50]
> far comes 2
send 0: make desk/1 at 2[] to far/2 orig desk/1
send 255 slave 192.3.6.0: make far/1 at 255[] to desk/7 orig far/1
> show desk/7
Not 255[] | Sent 255[] | 255[]
)");
}

TEST_F(PatchControllerTest, APingIsAnsweredWhenARouterIsThere)
{
    Expect(R"(
> make box/5 at 0[] to desk/2
send 0: make unit/0 at 0[0 1] to desk/2 orig box/5 use-me
route 1[45 46] to 0[0 1]
> make box/5 at 0[] to desk/3
send 0: make unit/0 at 0[0 1] to desk/3 orig box/5 use-me
> 1 ping
> router comes
> 1 ping
send 1 master: ping 192.1.5.0 2 4
> 2 ping
send 2 master: ping 192.1.6.0 2 4
)");
}

TEST_F(PatchControllerTest, ANodeThatLeavesIsKnownByItsLinkForm)
{
    Expect(R"(
> 1 make node/3 at 0[20] to desk/2
send 0: make unit/0 at 0[0] to desk/2 orig node/3 use-me
route 1[20] to 0[0]
> 1 make zero/3 at 0[21] to desk/3
send 0: make unit/1 at 0[1] to desk/3 orig zero/3 use-me
route 1[21] to 0[1]
> node leaves 1
drop 0[0]
> zero-node leaves 1
drop 0[1]
)");
}

TEST_F(PatchControllerTest, AnEngineerCanTurnOnePortOfADevice)
{
    Expect(R"(
> turn box/9 sec
send 2: bitmap box 9sec
> box leaves 2
drop
> turn box/9 sec
send 1: bitmap box 9sec
> turn box/9 pri
send 1: bitmap box 9pri
)");
}

TEST_F(PatchControllerTest, OfUnequalListsTheShorterCounts)
{
    Expect(R"(
> make far/1 at 1[1 2 3] to box/6
route 1[1 2] to 1[56 57]
> make far/9 at 2[4] to box/6
route 2[4] to 2[56]
> break far/9 at 2[4] to box/6
silence 2[56 57]
> counts
2 slots, 2 destinations
)");
}

TEST_F(PatchControllerTest, WhatAPeerMadeUpDoesNothing)
{
    Expect(R"(
> make far/1 at 0[] to box/2
> 1 make far/1 at 0[512] to desk/2
> make desk/1 at 0[1 4294967295] to far/2
> break desk/1 at 0[1 4294967295] to far/2
> 1 break far/1 at 0[512] to desk/2
> box leaves 77
drop
> box comes 77
> far9 leaves 2
drop
> counts
0 slots, 0 destinations
)");
    mDeeds.clear();
    mDevices.devices[Box].outputs[2] = {512};
    mDevices.devices[Box].inputs[1] = {70000};
    const IoPort far(Far, 1, 1);
    Deliver(RouterPatchAudio(PatchSource(far, 0, Slots(513, 1)), IoPort(Desk, 2, 2), far, true, false), 1);
    Deliver(RouterPatchAudio(PatchSource(far, 0, {1}), IoPort(Box, 2, 2), far, true, false), 0);
    const IoPort box(Box, 1, 1);
    Deliver(RouterPatchAudio(PatchSource(box, 0, {1}), IoPort(Desk, 2, 3), box, true, false), 0);
    EXPECT_EQ(mDeeds, Deeds());
    mController.ReceivedRouterPatchAudioCmd(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedPatchSucessfulCmd(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedAudioPatchRetryForHid(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedPingCmd(nullptr, 0, StreamType::LOCAL_LINK);
}

} // namespace patching
