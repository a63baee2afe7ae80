#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "OrbModule/Inc/DeviceManager/CommandConnections.h"

namespace {

class ForwardingTest : public DirectoryTest
{
protected:
    ForwardingTest()
    {
        KnowSelf();
        ConnectForwarding(mProcessor, mDevices);
    }

    /// A command for a device, through the slot that was connected for it.
    Lines Send(Hid hid, UINT8GIGEPORT port)
    {
        const auto command = std::make_shared<const IoOutputsOffsetCmd>(hid, std::uint16_t{1});
        mProcessor.Deliver(command, port);
        EXPECT_TRUE(mLines.empty() || mComms.mLast == command.get()) << "written on from the same object";
        return Take();
    }
    template <class Command>
    Lines Pass(const Command& command, UINT8GIGEPORT port)
    {
        mProcessor.Deliver(std::make_shared<const Command>(command), port);
        return Take();
    }

    RecordingProcessor mProcessor;
};

} // namespace

TEST_F(ForwardingTest, EveryCommandIsConnected)
{
    EXPECT_EQ(mProcessor.mIds.size(), 23u);
    RecordingProcessor discovery;
    ConnectDiscovery(discovery, mDevices);
    EXPECT_EQ(discovery.mIds.size(), 12u);
    discovery.Deliver(std::make_shared<const IoInfoDevReq>(OrbIo), 1);
    EXPECT_EQ(Take(), (Lines{"P1 IO_INFO_CARD", "P0 IO_REQUEST_GPI_STATES"}));
}

TEST_F(ForwardingTest, ToTheLocalBoxOnThePrimaryFirst)
{
    PlugBox(2);
    EXPECT_EQ(Send(BoxHid, 0), (Lines{"P2 IO_OUTPUTS_OFFSET"}));
    PlugBox(1);
    EXPECT_EQ(Send(BoxHid, 0), (Lines{"P1 IO_OUTPUTS_OFFSET"}));
    StreamGone(1);
    StreamGone(2);
    EXPECT_EQ(Send(BoxHid, 0), Lines()) << "the identity is kept, the links are gone";
}

TEST_F(ForwardingTest, ToABoxBehindAHubOnTheSideThatHasBoth)
{
    for (const UINT8GIGEPORT port : std::initializer_list<UINT8GIGEPORT>{1, 2})
        PlugRouter(port, K2_HUB_TYPE);
    Report(2, Behind, BehindIp);
    EXPECT_EQ(Send(Behind, 0), (Lines{"slave 0.48.6.0 IO_OUTPUTS_OFFSET"}));
    Report(1, Behind, BehindIp);
    EXPECT_EQ(Send(Behind, 0), (Lines{"slave 0.48.5.0 IO_OUTPUTS_OFFSET"}));
    EXPECT_EQ(Send(0x00300099, 0), Lines());
    StreamGone(1);
    StreamGone(2);
    EXPECT_EQ(Send(Behind, 0), Lines());
}

TEST_F(ForwardingTest, WithARouterTheOrbRouterReachesOnlyWhatIsPluggedIn)
{
    PlugRouter(1, K2_ROUTER_TYPE);
    Report(1, Behind, BehindIp);
    EXPECT_EQ(Send(Behind, 0), Lines());
}

TEST_F(ForwardingTest, TheTargetIsFoundWhereEachCommandHasIt)
{
    PlugBox(1);
    const IoPort here(BoxHid, 1, 2);
    const IoPort away(Behind, 1, 2);
    EXPECT_EQ(Pass(SetDolbyEModuleSource(away, here), 0), (Lines{"P1 IO_SET_DOLBYE_SOURCE"}));
    EXPECT_EQ(Pass(SetDolbyEModuleSource(here, away), 0), Lines());
    EXPECT_EQ(Pass(RenamePortCmd(here, "name"), 0), (Lines{"P1 RENAME_PORT"}));
    EXPECT_EQ(Pass(RenamePortCmd(away, "name"), 0), Lines());
    EXPECT_EQ(Pass(IoSetSampleRateCmd(SampleRates::RATE_96K, BoxHid, 30000u), 0), (Lines{"P1 IO_SET_SAMPLE_RATE"}));
    EXPECT_EQ(Pass(SetRouterSampleRateCmd(SampleRates::RATE_96K, 0u), 0), (Lines{"P1 SET_ROUTER_SAMPLE_RATE"}));
}

TEST_F(ForwardingTest, HubsArePingedOnEveryLinkUnlessARouterIsThere)
{
    PlugRouter(1, K2_HUB_TYPE);
    ReportRouter(1, 0x00408000, 0x00400500);
    ReportRouter(2, 0x00408000, 0x00400600);
    ReportRouter(1, 0x00508000, 0x00500500, RemoteDeviceType::Router);
    mDevices.SendPing();
    EXPECT_EQ(Take(), (Lines{"slave 0.48.5.0 OSTREL_PING_CMD", "slave 0.64.5.0 OSTREL_PING_CMD",
                             "slave 0.64.6.0 OSTREL_PING_CMD"}));
    PlugRouter(1, K2_ROUTER_TYPE);
    mDevices.SendPing();
    mDevices.ReceivedPingCmd(std::make_shared<OstrelPingCmd>("1.2.5.0", 3u, 4u), 1, Local);
    EXPECT_EQ(Take(), Lines());
}

TEST_F(ForwardingTest, TheMasterControlIsNamedOnTheMasterStream)
{
    mDevices.ReceivedMcsRequestCmd(std::make_shared<RequestActiveMcsCmd>(), 2, StreamType::MASTER_LINK);
    EXPECT_EQ(Take(), (Lines{"master2 FORWARD_TO_ACTIVE"}));
    const std::vector<std::uint8_t> expected{0x70, 0x03, 0x00, 0x28, 0x16, 0x00, 0x00, 0x00, 0xFF, 0xFF,
                                             0x01, 0x3F, 0x05, 0x00, 0x0C, 0x00, 0x00, 0x00, 0x3F, 0x03,
                                             0x00, 0x28, 0x04, 0x00, 0x00, 0x00, 0x00, 0x01, 0x12, 0x00};
    EXPECT_EQ(mComms.mLastBytes, expected);
}
