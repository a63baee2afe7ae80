#include "OrbModule/Inc/Patching/PatchController.h"

#include "Common/KLV/Commands/AudioPatchRetryForHidCmd.h"
#include "Common/KLV/Commands/OstrelPingCmd.h"
#include "Common/KLV/Commands/PatchSucessfulCmd.h"
#include "Common/KLV/Commands/RouterPatchAudio.h"
#include "Tests/Unit/OrbModule/Src/Patching/PatchDoubles.h"

#include <gmock/gmock.h>

using Routing::GigeAndSlots;
using testing::ElementsAre;
using testing::IsEmpty;
using Slots = std::vector<std::uint32_t>;

namespace {

constexpr Hid Own = 0xC0014000;     // the unit itself, as the network names it
constexpr Hid Desk = 0xC0010005;    // I/O of the own Orb router
constexpr Hid Box = 0xC0020001;     // the I/O box that is plugged in
constexpr Hid Far = 0xC0030001;     // an I/O box behind a hub or router
constexpr Hid FarNode = 0xC0034000; // a DSP behind it
constexpr Hid Nobody = 0xC0090001;

IoPort In(Hid hid, std::uint32_t index = 1)
{
    return IoPort(hid, 1, index);
}
IoPort Out(Hid hid, std::uint32_t index = 2)
{
    return IoPort(hid, 2, index);
}

class PatchControllerTest : public testing::Test
{
protected:
    PatchControllerTest()
    {
        mDevices.devices[0xC0018000] = {false, true, {255, 255, 255}};
        mDevices.devices[Desk] = {false, true, {0, 255, 255}};
        mDevices.devices[Box] = {true, false, {255, 3, 4}, {{1, {40}}, {5, {45, 46}}}, {{2, {50}}, {6, {56, 57}}}};
        mDevices.devices[Far] = {false, false, {255, 7, 8}};
        mDevices.devices[0xC0038000] = {false, false, {255, 7, 8}};
        mController.OnLocalHidChanged(Own);
    }

    void Patch(const PatchSource& source, const IoPort& dest, bool make = true, UINT8GIGEPORT from = 0)
    {
        mController.ReceivedRouterPatchAudioCmd(
            std::make_shared<const RouterPatchAudio>(source, dest, source.GetPort(), make, false), from,
            StreamType::LOCAL_LINK);
    }
    void Change(Hid hid, UINT8GIGEPORT port, bool online)
    {
        mDevices.devices[hid].remote[port] = online ? UINT8GIGEPORT{9} : UNKNOWN_GIGE_PORT;
        mController.OnDeviceChange(hid, port, online, StreamType::LOCAL_LINK);
    }
    Deeds Take() { return std::exchange(mDeeds, {}); }
    std::pair<int, int> States(const IoPort& dest) const
    {
        const PatchStore& store = mController.GetPatchStore();
        if (!store.GetPatchState(dest, 1)) return {-1, -1};
        return {*store.GetPatchState(dest, 1), *store.GetPatchState(dest, 2)};
    }
    std::uint32_t SlotsInUse() const
    {
        std::uint32_t slots = 0;
        std::uint32_t dests = 0;
        mController.GetLinkAllocation().GetCounts(slots, dests);
        return slots;
    }

    Deeds mDeeds;
    FakeDevices mDevices;
    FakeComms mComms{mDeeds};
    FakePatcher mPatcher{mDeeds};
    boost::asio::io_service mService;
    PatchController mController{mService, mDevices, mComms, mPatcher};
};

using States_ = std::pair<int, int>;
constexpr int Not = Korvo::PatchNotSent;
constexpr int Sent = Korvo::PatchSent;
constexpr int Success = Korvo::PatchSuccess;
constexpr int Reserved = Korvo::PatchReserved;

} // namespace

TEST_F(PatchControllerTest, ToTheLocalBoxBothPortsAreMadeAndOneBitmapIsSent)
{
    Patch(PatchSource(In(Desk), 0, {4}), Out(Box));
    // The source must be heard on the link as well, and the desk is not.
    EXPECT_THAT(Take(), IsEmpty());

    Patch(PatchSource(In(Box, 5), 0, {}), Out(Box, 6));
    EXPECT_THAT(Take(), ElementsAre("route 1[45 46] to 1[56 57]", "send 1: bitmap c0020001 6pri",
                                    "route 2[45 46] to 2[56 57]"));
    EXPECT_EQ(States(Out(Box, 6)), States_(Success, Success));
    EXPECT_EQ(mController.GetPatchStore().GetPatchLink(Out(Box, 6), 2), (GigeAndSlots{2, {45, 46}}));

    Patch(PatchSource(In(Box, 5), 0, {}), Out(Box, 6), false);
    EXPECT_THAT(Take(), ElementsAre("silence 1[56 57]", "send 1: bitmap c0020001 6pri", "silence 2[56 57]"));
    EXPECT_EQ(SlotsInUse(), 0u);

    mDevices.devices[Box].remote[1] = UNKNOWN_GIGE_PORT;
    Patch(PatchSource(In(Far), 0, {11}), Out(Box));
    EXPECT_THAT(Take(), ElementsAre("route 2[11] to 2[50]", "send 2: bitmap c0020001 2sec"));
    EXPECT_EQ(States(Out(Box)), States_(Not, Success));
    Patch(PatchSource(In(Far), 2, {12}), Out(Box));
    EXPECT_THAT(Take(), ElementsAre("route 2[12] to 2[50]"));
}

TEST_F(PatchControllerTest, FromTheLocalBoxOneLinkWorksAndTheOtherStandsBy)
{
    Patch(PatchSource(In(Box), 0, {}), Out(Desk));
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0018000/0 at 0[0] to c0010005/2 orig c0020001/1 use-me",
                                    "route 1[40] to 0[0]"));
    EXPECT_EQ(States(Out(Desk)), States_(Success, Reserved));

    // A second destination shares the slot; its first link is made without a route.
    Patch(PatchSource(In(Box), 0, {}), Out(Desk, 3));
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0018000/0 at 0[0] to c0010005/3 orig c0020001/1 use-me"));
    EXPECT_EQ(States(Out(Desk, 3)), States_(Success, Reserved));

    Patch(PatchSource(In(Box), 0, {}), Out(Desk), false);
    EXPECT_THAT(Take(), ElementsAre("send 0: break c0018000/0 at 0[0] to c0010005/2 orig c0020001/1 use-me"));
    Patch(PatchSource(In(Box), 0, {}), Out(Desk, 3), false);
    EXPECT_THAT(Take(),
                ElementsAre("send 0: break c0018000/0 at 0[0] to c0010005/3 orig c0020001/1 use-me", "silence 0[0]"));
    EXPECT_EQ(SlotsInUse(), 0u);
    EXPECT_EQ(mController.GetPatchStore().GetCount(), 0u);
}

TEST_F(PatchControllerTest, FromTheOrbRouterToALinkTheNextNodeLearnsPortAndSlots)
{
    Patch(PatchSource(In(Desk), 0, {30, 31}), Out(Far));
    EXPECT_THAT(Take(), ElementsAre("route 0[30 31] to 1[0 1]",
                                    "send 1: make c0018000/0 at 7[0 1] to c0030001/2 orig c0010005/1",
                                    "route 0[30 31] to 2[0 1]",
                                    "send 2: make c0018000/0 at 8[0 1] to c0030001/2 orig c0010005/1"));
    EXPECT_EQ(States(Out(Far)), States_(Sent, Sent));
    mController.ReceivedPatchSucessfulCmd(std::make_shared<const PatchSucessfulCmd>(Out(Far)), 2,
                                          StreamType::LOCAL_LINK);
    EXPECT_EQ(States(Out(Far)), States_(Sent, Success));
    Patch(PatchSource(In(Desk), 1, {30, 31}), Out(Far, 5));
    EXPECT_THAT(Take(), ElementsAre("send 1: make c0018000/0 at 7[0 1] to c0030001/5 orig c0010005/1"));
    Patch(PatchSource(In(Desk), 0, {30, 31}), Out(Far), false);
    EXPECT_THAT(Take(),
                ElementsAre("send 1: break c0018000/0 at 7[0 1] to c0030001/2 orig c0010005/1", "silence 2[0 1]",
                            "send 2: break c0018000/0 at 8[0 1] to c0030001/2 orig c0010005/1"));
}

TEST_F(PatchControllerTest, ARemoteSourceIsAskedForAtItsNode)
{
    mDevices.devices[0xC0038000].remote[2] = UNKNOWN_GIGE_PORT;
    Patch(PatchSource(IoPort(FarNode, 1, 3), 0, {}), Out(Far));
    EXPECT_THAT(Take(), ElementsAre("send 255 slave 192.3.5.0: make c0034000/3 at 0[] to c0030001/2 orig c0034000/3"));
    EXPECT_EQ(States(Out(Far)), States_(Sent, Not));
    Patch(PatchSource(In(Nobody), 0, {}), Out(Nobody));
    EXPECT_THAT(Take(), IsEmpty());

    const auto retry = std::make_shared<const AudioPatchRetryForHidCmd>(Far);
    mController.ReceivedAudioPatchRetryForHid(retry, 1, StreamType::LOCAL_LINK);
    EXPECT_THAT(Take(),
                ElementsAre("send 255 slave 192.3.5.0: make c0034000/3 at 255[] to c0030001/2 orig c0034000/3"));
    mController.ReceivedAudioPatchRetryForHid(retry, 2, StreamType::LOCAL_LINK);
    EXPECT_THAT(Take(), IsEmpty());
}

TEST_F(PatchControllerTest, WithARouterTheOrbRouterHearsWhatConcernsIt)
{
    Patch(PatchSource(In(Nobody), 0, {}), Out(Nobody));
    mController.OnNetworkConnectionChanged(true);
    EXPECT_EQ(mController.GetPatchStore().GetCount(), 0u) << "the router does not know that patch";
    Patch(PatchSource(In(Desk), 0, {1}), Out(Desk), true, 1);
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0010005/1 at 0[1] to c0010005/2 orig c0010005/1",
                                    "send 1 master: success c0010005/2"));
    EXPECT_EQ(mController.GetPatchStore().GetCount(), 0u);

    Patch(PatchSource(In(Far), 0, {9}), Out(Desk), true, 2);
    EXPECT_THAT(Take(), ElementsAre("send 2 master: success c0010005/2",
                                    "send 0: make c0018000/0 at 0[0] to c0010005/2 orig c0030001/1 use-me",
                                    "route 2[9] to 0[0]"));
    Patch(PatchSource(In(Far), 0, {19}), Out(Desk), true, 1);
    EXPECT_THAT(Take(), ElementsAre("send 1 master: success c0010005/2"));
    EXPECT_EQ(States(Out(Desk)), States_(Reserved, Success));

    Patch(PatchSource(In(Far), 0, {9}), Out(Nobody), true, 2);
    EXPECT_THAT(Take(), IsEmpty());
    Patch(PatchSource(In(Desk), 0, {}), Out(Far), true, 2);
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0010005/1 at 2[] to c0030001/2 orig c0010005/1"));

    // The Orb router answers on port 0 with the slots; the link is the one that it was told.
    Patch(PatchSource(In(Desk), 2, {33}), Out(Far));
    EXPECT_THAT(Take(),
                ElementsAre("route 0[33] to 2[0]", "send 2: make c0018000/0 at 8[0] to c0030001/2 orig c0010005/1"));
    EXPECT_EQ(States(Out(Far)), States_(Not, Success));
    Patch(PatchSource(In(Desk), 0, {33}), Out(Far), false);
    EXPECT_THAT(Take(), ElementsAre("silence 2[0]", "send 2: break c0018000/0 at 8[0] to c0030001/2 orig c0010005/1"));

    Change(Far, 2, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0]", "route 1[19] to 0[0]")) << "no ports are flipped";
}

TEST_F(PatchControllerTest, AFailedPatchIsAskedForOnceWhenItsDeviceComes)
{
    mController.OnNetworkConnectionChanged(true);
    mDevices.devices[Far].remote[1] = UNKNOWN_GIGE_PORT;
    for (const std::uint32_t index : {2u, 3u}) {
        Patch(PatchSource(In(Desk), 0, {}), Out(Far, index), true, 1);
        EXPECT_THAT(Take(), ElementsAre("send 1 master: failed c0010005/1 to c0030001/" + std::to_string(index)));
    }
    Change(Far, 2, true);
    EXPECT_THAT(Take(), IsEmpty());
    Change(Far, 1, true);
    EXPECT_THAT(Take(), ElementsAre("send 1 master: retry c0030001"));
    Change(Far, 1, true);
    EXPECT_THAT(Take(), IsEmpty());

    mDevices.devices[Far].remote[1] = UNKNOWN_GIGE_PORT;
    Patch(PatchSource(In(Desk), 0, {}), Out(Far), true, 1);
    Change(Far, 1, false);
    Take();
    Change(Far, 1, true);
    EXPECT_THAT(Take(), IsEmpty()) << "what was owed ended with the device's going";
}

TEST_F(PatchControllerTest, TheLossOfALinkSwingsThePreparedRouteOver)
{
    Patch(PatchSource(In(Box, 5), 0, {}), Out(Desk));
    Patch(PatchSource(In(Box, 5), 0, {}), Out(Desk, 3));
    Patch(PatchSource(In(Box), 0, {}), Out(Far));
    Take();
    Change(Box, 1, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0 1]", "route 2[45 46] to 0[0 1]", "route 2[45 46] to 0[0 1]",
                                    "send 255 slave 192.1.6.0: bitmap c0010005 2sec 3sec"));
    EXPECT_EQ(States(Out(Desk)), States_(Not, Success));
    Change(Box, 1, true);
    EXPECT_EQ(States(Out(Desk)), States_(Reserved, Success));
    Take();
    Change(Box, 2, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0 1]", "route 1[45 46] to 0[0 1]", "route 1[45 46] to 0[0 1]",
                                    "send 255 slave 192.1.5.0: bitmap c0010005 2pri 3pri"));
    Change(Box, 1, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0 1]"));
    EXPECT_EQ(mController.GetPatchStore().GetCount(), 0u);
    EXPECT_EQ(SlotsInUse(), 0u);
}

TEST_F(PatchControllerTest, ADestinationThatSharesSlotsOutlivesTheLinkThatFedThem)
{
    Patch(PatchSource(In(Box), 0, {}), Out(Desk));
    Change(Box, 1, false);
    Change(Box, 1, true);
    // The slot is fed over link 2, but for the second destination link 1 counts as the working one.
    Patch(PatchSource(In(Box), 0, {}), Out(Desk, 3));
    EXPECT_EQ(States(Out(Desk, 3)), States_(Success, Reserved));
    Take();
    Change(Box, 2, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0]", "route 1[40] to 0[0]", "route 1[40] to 0[0]",
                                    "send 255 slave 192.1.5.0: bitmap c0010005 2pri 3pri"));
    Patch(PatchSource(In(Box), 0, {}), Out(Desk), false);
    EXPECT_THAT(Take(), ElementsAre("send 0: break c0018000/0 at 0[0] to c0010005/2 orig c0020001/1 use-me"))
        << "the other destination still listens";
}

TEST_F(PatchControllerTest, ADestinationThatJoinsWhileTheOtherLinkWasOnlyAskedSharesTheSlots)
{
    Patch(PatchSource(In(Far), 0, {20}), Out(Desk), true, 1);
    mDevices.devices[Far].remote = {UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT};
    Patch(PatchSource(In(Far), 0, {}), Out(Desk, 3));
    Change(Far, 1, true);
    Change(Far, 2, true);
    EXPECT_EQ(States(Out(Desk, 3)), States_(Sent, Sent));
    Take();
    Patch(PatchSource(In(Far), 0, {20}), Out(Desk, 3), true, 1);
    EXPECT_THAT(Take(), IsEmpty());
    EXPECT_EQ(States(Out(Desk, 3)), States_(Success, Sent));
    Patch(PatchSource(In(Far), 0, {30}), Out(Desk, 3), true, 2);
    EXPECT_THAT(Take(), IsEmpty());
    EXPECT_EQ(States(Out(Desk, 3)), States_(Success, Reserved));

    Change(Far, 1, false);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0]")) << "it knows no place to swing over to";
    EXPECT_EQ(States(Out(Desk, 3)), States_(Not, Reserved));
    Patch(PatchSource(In(Far), 0, {30}), Out(Desk, 3), true, 2);
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0018000/0 at 0[0] to c0010005/3 orig c0030001/1 use-me",
                                    "route 2[30] to 0[0]"));
}

TEST_F(PatchControllerTest, ADeviceThatComesBackGetsItsPatchesAgain)
{
    for (const Hid hid : {Box, Far, Hid(0xC0038000)}) {
        mDevices.devices[hid].remote = {UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT};
    }
    Patch(PatchSource(In(Box), 0, {}), Out(Desk));
    Patch(PatchSource(In(Box), 0, {}), Out(Box));
    Patch(PatchSource(In(Desk), 1, {}), Out(Far));
    Patch(PatchSource(In(Far), 0, {}), Out(Desk, 7));
    EXPECT_THAT(Take(), IsEmpty());

    Change(Box, 1, true);
    EXPECT_THAT(Take(), ElementsAre("route 1[40] to 1[50]"));
    EXPECT_EQ(States(Out(Desk)), States_(Reserved, Not));
    Change(Box, 2, true);
    EXPECT_THAT(Take(), ElementsAre("route 2[40] to 2[50]"));
    EXPECT_EQ(States(Out(Desk)), States_(Reserved, Reserved));
    EXPECT_EQ(mController.GetPatchStore().GetPatchLink(Out(Desk), 2), (GigeAndSlots{2, {40}}));
    Patch(PatchSource(In(Box), 0, {}), Out(Desk));
    EXPECT_THAT(Take(), ElementsAre("send 0: make c0018000/0 at 0[0] to c0010005/2 orig c0020001/1 use-me",
                                    "route 1[40] to 0[0]"));
    EXPECT_EQ(States(Out(Desk)), States_(Success, Reserved));

    Change(Far, 2, true);
    EXPECT_THAT(Take(),
                ElementsAre("send 0: make c0010005/1 at 2[] to c0030001/2 orig c0010005/1",
                            "send 255 slave 192.3.6.0: make c0030001/1 at 255[] to c0010005/7 orig c0030001/1"));
    EXPECT_EQ(States(Out(Desk, 7)), States_(Not, Sent));
}

TEST_F(PatchControllerTest, APingIsAnsweredWhenARouterIsThere)
{
    const auto ping = std::make_shared<const OstrelPingCmd>("ORBMODULE", 0, 0);
    Patch(PatchSource(In(Box, 5), 0, {}), Out(Desk));
    Patch(PatchSource(In(Box, 5), 0, {}), Out(Desk, 3));
    Take();
    mController.ReceivedPingCmd(ping, 1, StreamType::LOCAL_LINK);
    EXPECT_THAT(Take(), IsEmpty());
    mController.OnNetworkConnectionChanged(true);
    mController.ReceivedPingCmd(ping, 1, StreamType::LOCAL_LINK);
    mController.ReceivedPingCmd(ping, 2, StreamType::LOCAL_LINK);
    EXPECT_THAT(Take(), ElementsAre("send 1 master: ping 192.1.5.0 2 4", "send 2 master: ping 192.1.6.0 2 4"));
}

TEST_F(PatchControllerTest, ANodeThatLeavesIsKnownByItsLinkForm)
{
    Patch(PatchSource(IoPort(FarNode, 1, 3), 0, {20}), Out(Desk), true, 1);
    Take();
    mController.OnDeviceChange(FarNode, 1, false, StreamType::LOCAL_LINK);
    EXPECT_THAT(Take(), ElementsAre("drop 0[0]"));
    EXPECT_EQ(mController.GetPatchStore().GetCount(), 0u);
}

TEST_F(PatchControllerTest, AnEngineerCanTurnOnePortOfADevice)
{
    mController.SendPortBitmap(Box, 9, true);
    mDevices.devices[Box].remote[2] = UNKNOWN_GIGE_PORT;
    mController.SendPortBitmap(Box, 9, true);
    mController.SendPortBitmap(Box, 9, false);
    EXPECT_THAT(Take(), ElementsAre("send 2: bitmap c0020001 9sec", "send 1: bitmap c0020001 9sec",
                                    "send 1: bitmap c0020001 9pri"));
}

TEST_F(PatchControllerTest, SlotsThatAPeerMadeUpAreNotRouted)
{
    for (const Slots& slots : {Slots{}, Slots{512}, Slots{1, INVALID_TDM_SLOT}, Slots(513, 1)}) {
        for (const bool make : {true, false}) {
            Patch(PatchSource(In(Far), 0, slots), Out(Box), make);
            Patch(PatchSource(In(Far), 0, slots), Out(Desk), make, 1);
            Patch(PatchSource(In(Desk), 0, slots), Out(Far), make);
        }
    }
    mDevices.devices[Box].outputs[2] = {512};
    Patch(PatchSource(In(Far), 0, {1}), Out(Box));
    mDevices.devices[Box].inputs[1] = {70000};
    Patch(PatchSource(In(Box), 0, {1}), Out(Desk));
    EXPECT_THAT(Take(), IsEmpty());
    EXPECT_EQ(SlotsInUse(), 0u);
    mController.ReceivedRouterPatchAudioCmd(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedPatchSucessfulCmd(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedAudioPatchRetryForHid(nullptr, 0, StreamType::LOCAL_LINK);
    mController.ReceivedPingCmd(nullptr, 0, StreamType::LOCAL_LINK);
    mController.OnDeviceChange(Box, 77, false, StreamType::LOCAL_LINK);
    mController.OnDeviceChange(Box, 77, true, StreamType::LOCAL_LINK);
}

TEST_F(PatchControllerTest, OfUnequalListsTheShorterCounts)
{
    Patch(PatchSource(In(Far), 1, {1, 2, 3}), Out(Box, 6));
    Patch(PatchSource(In(Far, 9), 2, {4}), Out(Box, 6));
    EXPECT_THAT(Take(), ElementsAre("route 1[1 2] to 1[56 57]", "route 2[4] to 2[56]"));
    EXPECT_EQ(SlotsInUse(), 3u);
    Patch(PatchSource(In(Far, 9), 2, {4}), Out(Box, 6), false);
    EXPECT_THAT(Take(), ElementsAre("silence 2[56 57]"));
    EXPECT_EQ(SlotsInUse(), 2u);
}
