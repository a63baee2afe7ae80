#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "Common/KLV/Commands/RouterInfo.h"

#include <algorithm>

namespace {

class LocalDeviceTest : public DirectoryTest
{
protected:
    LocalDeviceTest() { Take(); }
};

class CableCheckTest : public DirectoryTest
{
protected:
    CableCheckTest() : DirectoryTest({std::chrono::milliseconds(300), std::chrono::hours(1)}) { Take(); }
};

} // namespace

TEST_F(LocalDeviceTest, ASecondLinkThatComesFirstGivesWayToThePrimary)
{
    PlugBox(2, 0x00200002);
    LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    EXPECT_EQ(Take(), (Lines{"connect 0.32.0.254 1 55000"}));
    EXPECT_TRUE(mDevices.IsLocalIo(BoxHid));
}

TEST_F(LocalDeviceTest, TheCheckOfADeviceNamesItsKind)
{
    StreamUp(0, StreamType::UPDATE_LINK);
    EXPECT_EQ(Take(), (Lines{"update Check '' 1.63.5.0 kind 10 method 1 enabled 1 side 3 id ffffffff"}));
    const std::tuple<std::uint32_t, K2Heartbeat::LinkType, const char*> cases[] = {
        {BoxHid, K2_FIXED_FORMAT_TYPE, "1 method 0 enabled 1 side 2 id 00200001"},
        {BoxHid, K2_AOIP_TYPE, "11 method 0 enabled 1 side 2 id 00200001"},
        {BoxHid, K2_MODULAR_TYPE, "0 method 0 enabled 1 side 2 id 00200001"},
        {0x00200201, K2_FIXED_FORMAT_TYPE, "1 method 0 enabled 1 side 2 id 00200201"},
        {0x00200201, K2_MODULAR_TYPE, "8 method 0 enabled 1 side 2 id 00200201"}};
    for (const auto& [hid, type, rest] : cases) {
        LinkUp(1, hid, type);
        Take();
        StreamUp(1);
        EXPECT_EQ(Take(), (Lines{"update Check '1.63.5.0' 0.32.0.254 kind " + std::string(rest)}));
        LinkDown(1, hid);
        StreamGone(1);
        Take();
    }
}

TEST_F(LocalDeviceTest, OfTwoLinksTheFirstStreamAsksForTheCheckAndBothForTheDescription)
{
    LinkUp(1, BoxHid, K2_MODULAR_TYPE);
    LinkUp(2, BoxHid, K2_MODULAR_TYPE);
    Take();
    StreamUp(2);
    EXPECT_EQ(Take(), (Lines{"update Check '1.63.5.0' 0.32.32.254 kind 0 method 0 enabled 1 side 2 id 00200001"}));
    StreamUp(1);
    EXPECT_EQ(Take(), Lines());
    Checked("0.32.32.254", 1);
    EXPECT_EQ(Take(), Lines()) << "a failed check stays under way";
    Checked("0.32.32.254");
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ", "P2 IO_INFO_REQ"}));
    StreamUp(1);
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ"})) << "checked on one link is checked";
}

TEST_F(LocalDeviceTest, BoxesOfTheOtherClassesAreAskedByTheExtendedRequest)
{
    LinkUp(1, 0x00200101, K2_FIXED_FORMAT_TYPE);
    StreamUp(1);
    Take();
    Checked("0.32.0.254");
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ_EX", "P2 IO_INFO_REQ_EX"}));
}

TEST_F(LocalDeviceTest, OnlyALostLinkForgetsTheCheck)
{
    PlugBox(1);
    StreamGone(1);
    LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    Take();
    StreamUp(1);
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ"})) << "the stream alone was lost";
    LinkDown(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    Take();
    StreamUp(1);
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ"})) << "the box stopped beating";
    LinkDown(1, BoxHid);
    LinkUp(1, BoxHid, K2_FIXED_FORMAT_TYPE);
    EXPECT_EQ(Take(), (Lines{"disconnect 1", "connect 0.32.0.254 1 55000"}));
    StreamUp(1);
    EXPECT_EQ(Take().size(), 1u) << "a box that was plugged anew is checked anew";
}

TEST_F(LocalDeviceTest, AHubIsCheckedOnEachLinkAndARouterOnNone)
{
    LinkUp(2, RouterHid, K2_HUB_TYPE);
    Take();
    StreamUp(2);
    EXPECT_EQ(Take(), (Lines{"update Check '1.63.5.0' 0.32.32.254 kind 7 method 1 enabled 1 side 1 id 00000030"}));
    StreamUp(2);
    EXPECT_EQ(Take(), (Lines{"P2 ROUTER_INFO_REQ"})) << "a check is under way";
    Checked("9.9.9.9");
    EXPECT_EQ(Take(), (Lines{"P2 ROUTER_INFO_REQ"})) << "what is not the primary's counts as the secondary's";
    LinkUp(1, RouterHid, K2_ORB_TYPE);
    Take();
    StreamUp(1);
    EXPECT_EQ(Take(), (Lines{"P1 ROUTER_INFO_REQ"}));
}

TEST_F(LocalDeviceTest, AStreamWithoutADeviceIsNotUsedAndLeavesNoTrace)
{
    StreamUp(1);
    StreamGone(1);
    mDevices.OnKLVStreamChanged(255, Local, 0, true);
    mDevices.OnKLVStreamChanged(2, StreamType::MASTER_LINK, 0, true);
    mDevices.OnKLVStreamChanged(2, StreamType::UNKNOWN_STREAM, 0, true);
    EXPECT_EQ(Take(), Lines());
    mDevices.OnKLVStreamChanged(2, StreamType::SLAVE_LINK, 0x01020600, true);
    EXPECT_EQ(Take(), (Lines{"slave 1.2.6.0 IO_INFO_REQ"}));
}

TEST_F(LocalDeviceTest, ABoxIsReportedGoneWithItsLastLinkOnly)
{
    KnowSelf();
    PlugBox(1);
    PlugBox(2);
    StreamGone(1);
    EXPECT_EQ(Take(), (Lines{"P0 Cable 00200001 pri off", "changed 00200001 1 off"}));
    StreamGone(2);
    EXPECT_EQ(Take(), (Lines{"P0 Io 1 00200001 0.0.0.0 00128000", "P0 Cable 00200001 sec off",
                             "P0 Cable 00200001 pri off", "changed 00200001 2 off"}));
    EXPECT_TRUE(mDevices.IsLocalIo(BoxHid)) << "the identity stays until the next heartbeat";
}

TEST_F(LocalDeviceTest, ABoxThatGoesBehindTheOrbRouterLeavesNoRoute)
{
    KnowSelf();
    StreamUp(0);
    PlugBox(2);
    StreamGone(0);
    EXPECT_FALSE(Take().empty());
    StreamGone(2);
    EXPECT_EQ(Take().back(), "changed 00200001 2 off");
}

class ReplacedTest : public LocalDeviceTest
{
protected:
    static constexpr std::uint32_t OtherHid = 0x00210001;
    const Lines mBoxIsGone{"P0 Io 1 00200001 0.0.0.0 00128000", "P0 Cable 00200001 sec off",
                           "P0 Cable 00200001 pri off", "changed 00200001 2 off"};

    ReplacedTest()
    {
        KnowSelf();
        PlugBox(1);
        PlugBox(2);
        const IoInfo::SlotNames cards{"QV1320", "", "", "", ""};
        mDevices.ProcessIOCmd(std::make_shared<IoInfo>(BoxHid, 1, cards), 2, Local);
        StreamGone(1);
        Take();
        PlugBox(1, OtherHid);
    }
};

TEST_F(ReplacedTest, ABoxKeepsItsSecondaryLinkUntilThatGoes)
{
    EXPECT_TRUE(mDevices.IsDeviceOnline(BoxHid, 2));
    EXPECT_TRUE(mDevices.IsLocalIo(BoxHid));
    EXPECT_FALSE(mDevices.IsDeviceOnline(OtherHid, 2)) << "the new one has no cable there";
    Checked(AddressText(FarIp(1)));
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_REQ"})) << "the old one is known already";
    StreamGone(2);
    EXPECT_EQ(Take(), mBoxIsGone);
    EXPECT_FALSE(mDevices.IsLocalIo(BoxHid));
    EXPECT_TRUE(mDevices.IsDeviceOnline(OtherHid, 1));
}

TEST_F(ReplacedTest, TheSecondaryCableMayFollowBeforeTheEndOfItsStreamIsTold)
{
    LinkUp(2, OtherHid, K2_FIXED_FORMAT_TYPE);
    Lines expected = mBoxIsGone;
    expected.insert(expected.end() - 1, "connect 0.32.32.254 2 55000");
    EXPECT_EQ(Take(), expected);
    StreamGone(2);
    EXPECT_EQ(Take(), Lines());
    StreamUp(2);
    EXPECT_TRUE(mDevices.IsDeviceOnline(OtherHid, 2));
}

TEST_F(LocalDeviceTest, AStreamOfAnotherThanTheLocalDeviceIsNotUsed)
{
    KnowSelf();
    LinkUp(2, 0x00210001, K2_FIXED_FORMAT_TYPE);
    PlugBox(1);
    StreamUp(2);
    EXPECT_EQ(Take(), Lines());
    EXPECT_FALSE(mDevices.IsDeviceOnline(BoxHid, 2)) << "that cable is not its own";
}

TEST_F(ReplacedTest, ABoxThatComesBackHasBothLinks)
{
    StreamGone(1);
    Take();
    PlugBox(1);
    EXPECT_TRUE(mDevices.IsDeviceOnline(BoxHid, 1));
    EXPECT_TRUE(mDevices.IsDeviceOnline(BoxHid, 2));
    StreamGone(2);
    EXPECT_EQ(Take(), (Lines{"P0 Cable 00200001 sec off", "changed 00200001 2 off"}));
}

TEST_F(LocalDeviceTest, ARepeatedEndOfAStreamChangesNothing)
{
    PlugBox(1);
    StreamGone(1);
    EXPECT_FALSE(Take().empty());
    StreamGone(1);
    EXPECT_EQ(Take(), Lines());
    // The stream of a box that came back stands in the directory when the old one's end is told once more.
    PlugBox(1);
    mComms.mExists = true;
    StreamGone(1);
    EXPECT_EQ(Take(), Lines());
    EXPECT_TRUE(mDevices.IsDeviceOnline(BoxHid, 1));
    mComms.mClosing = true;
    StreamGone(1);
    EXPECT_FALSE(Take().empty()) << "the stream is being shut down";
}

TEST_F(LocalDeviceTest, TheEndOfAHubTakesItsDevicesAndLeavesOurOwn)
{
    KnowSelf();
    PlugRouter(1, K2_HUB_TYPE);
    Report(1, Behind, BehindIp);
    ReportRouter(1, 0x00408000, 0x00400500);
    Take();
    StreamGone(1);
    EXPECT_EQ(Take(),
              (Lines{"disconnect slave 0.18.5.0", "disconnect slave 0.18.5.0", "disconnect slave 0.48.5.0",
                     "P0 Cable 00300005 pri off", "P0 Cable 00300005 sec off", "P0 Io 1 00300005 0.0.0.0 00128000",
                     "disconnect slave 0.64.5.0", "P0 Cable 00408000 pri off", "P0 Cable 00408000 sec off",
                     "P0 Router 5 00408000 0.0.0.0 00000000", "P0 Router 5 00308000 0.0.0.0 00000000",
                     "P0 Cable 00308000 pri off", "P0 Cable 00308000 sec off", "changed 00300005 1 off",
                     "changed 00404000 1 off", "no network", "changed 00304000 1 off"}));
    EXPECT_TRUE(mDevices.IsDeviceOnline(OrbIo, 1));
    EXPECT_EQ(mDevices.GetDeviceRecord(Behind), nullptr);
    EXPECT_EQ(mDevices.GetDeviceRecord(RouterHid), nullptr);
}

TEST_F(LocalDeviceTest, ARouterOnItsOtherLinkKeepsItsDevices)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    PlugRouter(2, K2_ROUTER_TYPE);
    Report(1, Behind, BehindIp);
    Report(2, Behind, BehindIp);
    Take();
    StreamGone(1);
    EXPECT_EQ(Take(), (Lines{"P0 Cable 00300005 pri off", "P0 Cable 00308000 pri off", "changed 00300005 1 off",
                             "changed 00304000 1 off"}));
    EXPECT_TRUE(mDevices.IsDeviceOnline(Behind, 2));
    LinkDown(1, RouterHid);
    EXPECT_EQ(Take(), (Lines{"disconnect 1"}));
}

TEST_F(LocalDeviceTest, ARouterThatOnlyBeatDoesNotStandBetweenTheModuleAndAHub)
{
    LinkUp(1, 0x00088000, K2_ROUTER_TYPE);
    LinkDown(1, 0x00088000);
    LinkUp(1, RouterHid, K2_HUB_TYPE);
    StreamUp(1);
    Take();
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Hub, 512, 512, 0), 1, Local);
    const Lines lines = Take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "connect 0.48.5.0 1 55100"), 1);
}

TEST_F(LocalDeviceTest, ALostHubLosesItsDataLink)
{
    PlugRouter(2, K2_HUB_TYPE);
    LinkDown(2, RouterHid);
    EXPECT_EQ(Take(), (Lines{"disconnect 2", "disconnect slave 0.48.6.0"}));
}

TEST_F(LocalDeviceTest, InternalsOfBoxesAreToldToTheOrbRouter)
{
    mDevices.OnIoInternalsChanged(BoxHid, 0xAB);
    mDevices.OnIoInternalsChanged(RouterHid, 0xAB);
    EXPECT_EQ(Take(), (Lines{"P0 Internals 000000ab 00200001 2097153"}));
}

TEST_F(CableCheckTest, ChecksWithoutEndMeetALimit)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    for (int i = 0; i < 20; ++i)
        Report(1, Behind, BehindIp);
    Take();
    const Lines lines = TakeAfterTimers(6);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "P0 Cable 00300005 sec off"), 5);
    EXPECT_EQ(mService.poll(), 0u);
    Report(1, Behind, BehindIp);
    Take();
    EXPECT_EQ(TakeAfterTimers(1), (Lines{"P0 Cable 00300005 sec off"})) << "there is room again";
}
