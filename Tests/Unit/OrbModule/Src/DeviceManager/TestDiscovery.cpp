#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "Common/KLV/Commands/DiscoveryCommands.h"

namespace {

class DiscoveryTest : public DirectoryTest
{
protected:
    explicit DiscoveryTest(DeviceManager::Delays delays = {std::chrono::hours(1), std::chrono::hours(1)})
        : DirectoryTest(delays)
    {
        Take();
    }

    Lines Describe(UINT8GIGEPORT port, Hid hid, const IoInfo::SlotNames& cards, std::uint8_t type = 0)
    {
        mDevices.ProcessIOCmd(std::make_shared<IoInfo>(hid, type, cards), port, Local);
        return Take();
    }
    Lines Card(UINT8GIGEPORT port, Hid hid, std::uint8_t slot, const IoInfoCard::PortNumbers& inputs,
               const IoInfoCard::PortNumbers& outputs)
    {
        mDevices.ProcessIOCmd(std::make_shared<IoInfoCard>(hid, slot, "", inputs, outputs, IoInfoCard::CardFlags()),
                              port, Local);
        return Take();
    }
    Lines SetRate(SampleRates::SystemSampleRate rate)
    {
        mDevices.ProcessIOCmd(std::make_shared<IoSampleRateCapabilities>(BoxHid, rate, RateList{rate}), 1, Local);
        return Take();
    }
    std::vector<std::uint32_t> In(std::uint16_t port) { return mDevices.GetInputLinkSlot(BoxHid, port); }
    std::vector<std::uint32_t> Out(std::uint16_t port) { return mDevices.GetOutputLinkSlot(BoxHid, port); }
    Lines Ask()
    {
        mDevices.OnIoInfoReq(std::make_shared<IoInfoReq>(), 2, StreamType::MASTER_LINK);
        return Take();
    }
};

class ActiveAudioTest : public DiscoveryTest
{
protected:
    ActiveAudioTest() : DiscoveryTest({std::chrono::hours(1), std::chrono::milliseconds(50)}) {}
};

using Slots = std::vector<std::uint32_t>;

} // namespace

TEST_F(DiscoveryTest, CardsOfAFixedBoxAreNumberedWithoutAGap)
{
    PlugBox(1);
    EXPECT_EQ(mDevices.GetIoTimeout(BoxHid), std::chrono::milliseconds(1000));
    EXPECT_EQ(Describe(1, BoxHid, {"QV1410", "", "XX0000", "QV1180", "QV1660"}),
              (Lines{"P0 Io 1 00200001 0.32.0.254 ffffffff", "P0 Cable 00200001 pri on", "P1 IO_ACTIVE_ROUTER",
                     "changed 00200001 1 on"}));
    EXPECT_EQ(mDevices.GetIoTimeout(BoxHid), std::chrono::milliseconds(2000));
    EXPECT_EQ(In(7), Slots{7});
    EXPECT_EQ(In(8), Slots{3 * 128});
    EXPECT_EQ(In(20), Slots()) << "slot 512 is on no link";
    EXPECT_EQ(Out(8), Slots{3 * 32});
    EXPECT_EQ(Out(12), Slots{4 * 64});
    EXPECT_EQ(Describe(1, BoxHid, {"QV1790", "", "", "", ""}).size(), 4u) << "everything is reported again";
    EXPECT_EQ(In(8), Slots{3 * 128}) << "and no map is built again";
    PlugBox(2);
    EXPECT_EQ(Describe(2, BoxHid, {}).front(), "P0 Io 1 00200001 0.32.0.254 ffffffff")
        << "the primary's address while it is up";
}

TEST_F(DiscoveryTest, AtADoubleRateAPortTakesTwoSlots)
{
    PlugBox(1);
    SetRate(SampleRates::RATE_96K);
    EXPECT_EQ(Describe(1, BoxHid, {"QV1660", "QV1320", "", "", ""}).front(),
              "P0 Io 1 00200001 0.32.0.254 ffffffff rate 96kHz");
    EXPECT_EQ(In(32), (Slots{128, 144}));
    EXPECT_EQ(Out(32), (Slots{32, 48}));
    PlugBox(1, 0x00200002, K2_MODULE_TYPE);
    mDevices.ProcessIOCmd(std::make_shared<IoInfoK2Mod>(0x00200002, 64u, 64u, "", "", ""), 1, Local);
    EXPECT_EQ(In(32), (Slots{64, 65}));
}

TEST_F(DiscoveryTest, AModularBoxIsKnownWithItsLastCard)
{
    PlugBox(1, BoxHid, K2_MODULAR_TYPE);
    EXPECT_EQ(
        All({Card(1, BoxHid, 0, {3, 9}, {}), Card(1, BoxHid, 2, {5, -1, 600}, {11}), Card(1, BoxHid, 0, {4, 8}, {})}),
        Lines());
    EXPECT_EQ(In(0), Slots());
    EXPECT_EQ(Card(1, BoxHid, 0xFF, {}, {}), (Lines{"P0 Io 0 00200001 0.32.0.254 ffffffff", "P1 IO_ACTIVE_ROUTER",
                                                    "P0 Cable 00200001 pri on", "changed 00200001 1 on"}));
    EXPECT_EQ(In(0), Slots{4}) << "the second card replaces the first";
    EXPECT_EQ(In(128), Slots{5});
    EXPECT_EQ(In(129), Slots()) << "a negative port";
    EXPECT_EQ(In(130), Slots()) << "a port beyond the link";
    EXPECT_EQ(Out(128), Slots{11});
    EXPECT_EQ(Card(1, BoxHid, 0xFF, {}, {}),
              (Lines{"P0 Cable 00200001 pri on", "P1 IO_ACTIVE_ROUTER", "changed 00200001 1 on"}));
}

TEST_F(DiscoveryTest, AnOddListAtADoubleRateGivesItsLastPortOneSlot)
{
    PlugBox(1, BoxHid, K2_MODULAR_TYPE);
    SetRate(SampleRates::RATE_88K2);
    Card(1, BoxHid, 1, {10, 11, 12}, {});
    Card(1, BoxHid, 0xFF, {}, {});
    EXPECT_EQ(In(64), (Slots{10, 11}));
    EXPECT_EQ(In(65), Slots{12});
}

TEST_F(DiscoveryTest, ACardWithPortsWithoutEndIsCut)
{
    PlugBox(1, BoxHid, K2_MODULAR_TYPE);
    IoInfoCard::PortNumbers ports(65537, 7);
    ports.front() = 3;
    Card(1, BoxHid, 0, ports, {});
    Card(1, BoxHid, 0xFF, {}, {});
    EXPECT_EQ(In(0), Slots{3});
    EXPECT_EQ(In(65535), Slots{7});
}

TEST_F(DiscoveryTest, AModuleHasItsPortsInARow)
{
    PlugBox(2, BoxHid, K2_MODULE_TYPE);
    mDevices.ProcessIOCmd(std::make_shared<IoInfoK2Mod>(BoxHid, 600u, 0xFFFFFFFFu, "", "", ""), 2, Local);
    EXPECT_EQ(Take(),
              (Lines{"P0 Io 4 00200001 0.32.32.254 ffffffff", "P0 Cable 00200001 sec on", "changed 00200001 2 on"}));
    EXPECT_EQ(In(511), Slots{511});
    EXPECT_EQ(In(512), Slots());
    EXPECT_EQ(Out(511), Slots{511});
}

TEST_F(DiscoveryTest, ARoutingDeviceIsToldWhatStandsHere)
{
    KnowSelf();
    LinkUp(2, RouterHid, K2_HUB_TYPE);
    StreamUp(2);
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Hub, 512, 512, 0), 2, Local);
    EXPECT_EQ(Take(), (Lines{"P0 Router 5 00308000 0.48.6.0 00128000", "P2 RouterInfo 00128000 5 512 512 0",
                             "P2 Io 0 00120001 0.32.32.1 00128000 rate 44.1kHz",
                             "route add -host 0.48.6.0 k2link1 2>/tmp/addroute.err", "connect 0.48.6.0 2 55100",
                             "P0 Cable 00308000 sec on", "changed 00304000 2 on"}));
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Hub, 512, 512, 0), 2, Local);
    EXPECT_EQ(Take(), Lines()) << "it is known already";
}

TEST_F(DiscoveryTest, ARouterNeedsNoDataLinkAndAnUnknownOwnIoIsNotOffered)
{
    LinkUp(1, RouterHid, K2_ROUTER_TYPE);
    StreamUp(1);
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Router, 1, 1, 0), 1, Local);
    EXPECT_EQ(Take(), (Lines{"P0 Router 3 00308000 0.48.5.0 ffffffff", "P1 RouterInfo ffffffff 5 512 512 0",
                             "route add -host 0.48.5.0 k2link0 2>/tmp/addroute.err", "P0 Cable 00308000 pri on",
                             "changed 00304000 1 on"}));
}

TEST_F(DiscoveryTest, RequestsAreAnsweredFromWhatWasStored)
{
    EXPECT_EQ(Ask(), Lines()) << "the own I/O is not known yet";
    KnowSelf();
    EXPECT_EQ(Ask(), (Lines{"master2 IO_INFO_CARD", "P0 IO_REQUEST_GPI_STATES"}));
    PlugBox(2);
    Describe(2, BoxHid, {});
    mDevices.OnIoInfoDevReq(std::make_shared<IoInfoDevReq>(BoxHid), 0, Local);
    EXPECT_EQ(Take(), (Lines{"P0 IO_INFO", "P2 IO_REQUEST_GPI_STATES"}));
    mDevices.OnIoInfoDevReq(std::make_shared<IoInfoDevReq>(Behind), 0, Local);
    EXPECT_EQ(Take(), Lines());
}

TEST_F(DiscoveryTest, AChainGetsItsRoute)
{
    mDevices.OnChainLength(std::make_shared<ChainLengthCmd>(1u, BehindIp, std::uint8_t{4}), 2, Local);
    EXPECT_EQ(Take(), (Lines{"route add -net 10.20.30.0 netmask 255.255.255.0 k2link1 2>/tmp/addioroute.err",
                             "P0 CHAIN_LENGTH_CMD"}));
    mDevices.OnChainLength(std::make_shared<ChainLengthCmd>(1u, BehindIp, std::uint8_t{4}), 255, Local);
    EXPECT_EQ(Take(), (Lines{"P0 CHAIN_LENGTH_CMD"}));
}

TEST_F(ActiveAudioTest, TheSecondaryWaitsAndACancelledWaitSendsAtOnce)
{
    PlugBox(2);
    Describe(2, BoxHid, {});
    EXPECT_EQ(TakeAfterTimers(1), (Lines{"P2 IO_ACTIVE_ROUTER"}));
    const Lines lines = All({Describe(2, BoxHid, {}), Describe(2, BoxHid, {})});
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "P2 IO_ACTIVE_ROUTER"), 1);
    EXPECT_EQ(TakeAfterTimers(1), (Lines{"P2 IO_ACTIVE_ROUTER"}));
}
