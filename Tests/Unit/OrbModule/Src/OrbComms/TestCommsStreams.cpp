#include "Tests/Unit/OrbModule/Src/OrbComms/CommsFixture.h"

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"
#include "Timers/Source/EventTimerManager.h"

#include <future>

#include <sys/resource.h>

using CommsStreams = CommsTest;
using Lines = std::vector<std::string>;

namespace {

const std::string IoInfoReqBytes("\x20\x03\x00\x28\x00\x00\x00\x00", 8);

} // namespace

TEST_F(CommsStreams, AnAcceptedStreamIsPlacedByItsAddressesAndTypedByItsPorts)
{
    const struct
    {
        unsigned loopbackPort;
        bool master;
        const char *host, *source, *change;
    } cases[] = {
        {0, false, "127.0.0.1", "127.0.0.9", "0 LOCAL_LINK 127.0.0.9 true"}, // this end has the port's address
        {0, false, "127.0.0.2", "127.0.0.9", "255 LOCAL_LINK 127.0.0.9 true"},
        {1, false, "127.0.0.1", "127.0.0.9", "1 LOCAL_LINK 127.0.0.9 true"}, // the peer is in the link's /24
        {2, true, "127.0.0.1", "127.0.0.200", "2 MASTER_LINK 127.0.0.200 true"},
        {1, false, "127.0.0.1", "127.0.1.9", "255 LOCAL_LINK 127.0.1.9 true"}, // neither
        {9, true, "127.0.0.1", "127.0.0.9", "255 MASTER_LINK 127.0.0.9 true"}, // no interface has an address
    };
    for (const auto& row : cases) {
        mChanges.clear();
        mPorts.adjacentRouter = mPorts.masterRouter = 0;
        mPorts.interfaces = {NoInterface, NoInterface, NoInterface};
        if (row.loopbackPort < 3) mPorts.interfaces[row.loopbackPort] = "lo";
        Start();
        const auto& ports = mComms->GetPorts();
        const LoopbackPeer peer =
            LoopbackPeer::ConnectTo(row.master ? ports.masterRouter : ports.adjacentRouter, row.host, row.source);
        ASSERT_TRUE(WaitForChanges(1));
        EXPECT_EQ(mChanges, Lines{row.change});
        const auto port = static_cast<UINT8GIGEPORT>(std::stoi(row.change));
        EXPECT_TRUE(
            mComms->SendCmd(port, IoInfoReq(), row.master ? StreamType::MASTER_LINK : StreamType::LOCAL_LINK, 0));
        EXPECT_EQ(peer.Receive(8), IoInfoReqBytes);
        mComms->Disconnect(port);
        EXPECT_TRUE(peer.WaitForEnd());
        mComms.reset();
    }
    EXPECT_TRUE(mLog.Has("AddKLVStream Finding Port Sec Korvo  Sock Address 127.0.0.1 Port Address 127.0.0.1\r\n"));
    EXPECT_TRUE(mLog.Has("Found Sec Korvo \r\n"));
}

TEST_F(CommsStreams, TheirThreadRunsTheTimers)
{
    struct : IEventTimerHandler
    {
        void OnTimer(boost::shared_ptr<IEventTimer>) override { ran.set_value(); }
        std::promise<void> ran;
    } handler;
    EventTimerManager& timers = EventTimerManager::Instance();
    timers.Start(timers.CreateTimer("test", &handler, 1, 0, 0, TimerUnits::Milliseconds));
    Start();
    EXPECT_EQ(handler.ran.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(CommsStreams, AStreamThatThisSideOpensHasItsPortAndIsResetWhenItIsClosed)
{
    Start();
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    const LoopbackPeer peer = server.Accept();
    ASSERT_TRUE(WaitForChanges(1));
    EXPECT_EQ(mChanges, Lines{"1 LOCAL_LINK 127.0.0.1 true"});
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 1));
    EXPECT_EQ(peer.Receive(8), IoInfoReqBytes);

    bool exists = false;
    EXPECT_FALSE(mComms->DisconnectPending(1, StreamType::LOCAL_LINK, exists));
    EXPECT_TRUE(exists);
    mComms->Disconnect(1);
    pollfd reset{peer.GetFd(), 0, 0};
    EXPECT_EQ(::poll(&reset, 1, 10000), 1);
    EXPECT_NE(reset.revents & POLLERR, 0) << "an end without a reset is no error";
    ASSERT_TRUE(WaitForChanges(2));
    EXPECT_EQ(mChanges[1], "1 LOCAL_LINK 127.0.0.1 false");
    EXPECT_FALSE(mComms->DisconnectPending(1, StreamType::LOCAL_LINK, exists));
    EXPECT_FALSE(exists);
    EXPECT_FALSE(mComms->SendLocal(IoInfoReq(), 1));
    EXPECT_TRUE(mLog.Has("Stream LOCAL_LINK  Port Pri Korvo  Not Found\r\n"));
}

// No pass of the comms closes this one, so that it stays for as long as it is looked at.
TEST_F(CommsStreams, AStreamThatIsAboutToCloseSaysSoAndOneThatIsNotConnectedTakesNothing)
{
    Start();
    HandlerMutex mutex;
    OrbKLVSocketHandler elsewhere(mutex, *mComms, mProcessor);
    OrbKLVStream stream(elsewhere);
    stream.SetPort(2);
    stream.SetStreamType(StreamType::LOCAL_LINK);
    mStreams.Store(stream);
    bool exists = false;
    EXPECT_FALSE(mComms->DisconnectPending(2, StreamType::LOCAL_LINK, exists));
    EXPECT_TRUE(exists);
    EXPECT_FALSE(mComms->SendLocal(IoInfoReq(), 2));
    EXPECT_TRUE(mLog.Has("Attempt to write to unconnected stream 1 Port Sec Korvo \r\n"));
    mComms->Disconnect(0, StreamType::LOCAL_LINK);
    EXPECT_TRUE(mComms->DisconnectPending(2, StreamType::LOCAL_LINK, exists));
    EXPECT_TRUE(exists);
    mStreams.Remove(stream);
    EXPECT_FALSE(mComms->DisconnectPending(2, StreamType::LOCAL_LINK, exists));
    EXPECT_FALSE(exists);
}

TEST_F(CommsStreams, AFailedListenerDoesNoHarmAndTheFirstTakesTheSecondWithIt)
{
    const LoopbackListener taken;
    for (const bool first : {false, true}) {
        mPorts.adjacentRouter = first ? taken.GetPort() : 0;
        mPorts.masterRouter = first ? 0 : taken.GetPort();
        Start();
        mComms->Connect(Loopback, 1, taken.GetPort());
        const LoopbackPeer peer = taken.Accept();
        EXPECT_TRUE(WaitForChanges(1));
        EXPECT_EQ(mComms->GetPorts().masterRouter, first ? 0 : taken.GetPort()) << "not listened on";
        mComms.reset();
        mChanges.clear();
    }
    EXPECT_EQ(mLog.Count("OrbRouterKLVComms FAILED to bind MASTER_ROUTER_KLV listener\r\n"), 1u);
    EXPECT_EQ(mLog.Count("OrbRouterKLVComms FAILED to bind ADJACENT_ROUTER_KLV listener\r\n"), 1u);
}

TEST_F(CommsStreams, APeersCloseIsReportedTwiceAndAReadErrorOnce)
{
    Start();
    std::vector<LoopbackPeer> later;
    for (const auto& [reset, changes] : {std::pair(false, 3u), {true, 2u}}) {
        mChanges.clear();
        LoopbackPeer peer = ConnectAdjacent();
        ASSERT_TRUE(WaitForChanges(1));
        if (reset) {
            peer.Reset();
        } else {
            peer.Close();
        }
        ASSERT_TRUE(WaitForChanges(changes));
        // The next stream is reported after everything that the last one reported.
        later.push_back(ConnectAdjacent("127.0.0.2"));
        ASSERT_TRUE(WaitForChanges(changes + 1));
        EXPECT_EQ(std::count(mChanges.begin(), mChanges.end(), "255 LOCAL_LINK 127.0.0.1 false"),
                  static_cast<std::ptrdiff_t>(changes) - 1);
        EXPECT_EQ(mChanges.back(), "255 LOCAL_LINK 127.0.0.2 true");
    }
}

TEST_F(CommsStreams, ALaterStreamWithTheSameKeyReplacesTheEarlierOneAndOutlivesIt)
{
    Start();
    LoopbackPeer first = ConnectAdjacent();
    ASSERT_TRUE(WaitForChanges(1));
    const LoopbackPeer second = ConnectAdjacent();
    ASSERT_TRUE(WaitForChanges(2));
    first.Close();
    ASSERT_TRUE(WaitForChanges(4));
    EXPECT_EQ(mLog.Count("SKIPPING REMOVAL OF OLD KLV STREAM\r\n"), 2u);
    EXPECT_EQ(mChanges[3], "255 LOCAL_LINK 127.0.0.1 false") << "the end is told all the same";
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 255));
    EXPECT_EQ(second.Receive(8), IoInfoReqBytes);
}

TEST_F(CommsStreams, AnotherConnectToAnAbsentPeerRetriesAtOnceOnOneStream)
{
    std::uint16_t port = 0;
    {
        const LoopbackListener gone;
        port = gone.GetPort();
    }
    Start();
    for (int i = 0; i < 5; ++i)
        mComms->Connect(Loopback, 1, port);
    const LoopbackListener server(port);
    mComms->Connect(Loopback, 1, port);
    const auto asked = std::chrono::steady_clock::now();
    const LoopbackPeer peer = server.Accept();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4)) << "before the ordinary retry";
    ASSERT_TRUE(WaitForChanges(1));
    EXPECT_EQ(mChanges, Lines{"1 LOCAL_LINK 127.0.0.1 true"}) << "one stream";
    // One that is connected to again keeps one stream of ours.
    mComms->Connect(Loopback, 1, port);
    const LoopbackPeer second = server.Accept();
    ASSERT_TRUE(WaitForChanges(3));
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 1));
    EXPECT_EQ(second.Receive(8), IoInfoReqBytes);
}

TEST_F(CommsStreams, ReportedPeersWithoutEndAreRefusedAndNeighboursNever)
{
    Start();
    for (std::uint32_t i = 0; i < 300; ++i)
        mComms->ConnectReported(Loopback + i, 2, 1);
    EXPECT_EQ(mLog.Count("OrbKLVComms::Connect 127.0.1.1 refused, 256 streams are being opened\r\n"), 1u);
    EXPECT_TRUE(mLog.Has("OrbKLVComms::Connect 127.0.1.44 refused, 256 streams are being opened\r\n"));
    for (std::uint32_t i = 0; i < 17; ++i)
        mComms->Connect(Loopback + i, 1, 1);
    EXPECT_TRUE(mLog.WaitFor("OrbKLVComms::Connect 127.0.0.1 Port 1 given up before it connected\r\n"));
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    const LoopbackPeer neighbour = server.Accept();
    ASSERT_TRUE(RunUntil([&] { return mComms->SendLocal(IoInfoReq(), 1); }));
    EXPECT_EQ(neighbour.Receive(8), IoInfoReqBytes);
    const LoopbackPeer peer = ConnectAdjacent();
    EXPECT_EQ(mLog.Count("OrbKLVComms::Connect 127.0.0.2 Port 1 given up before it connected\r\n"), 1u);
}

TEST_F(CommsStreams, WithoutADescriptorAConnectIsGivenUpWithALineAndAClientIsSentAway)
{
    Start();
    LoopbackPeer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = ::dup(0);
    ::close(next);
    const rlimit none{static_cast<rlim_t>(next), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    mComms->Connect(Loopback, 1, 9);
    const sockaddr_in to = LoopbackAddress("127.0.0.1", mComms->GetPorts().adjacentRouter);
    EXPECT_EQ(::connect(peer.GetFd(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    EXPECT_TRUE(mLog.WaitFor("OrbKLVComms::Connect 127.0.0.1 Port 9 given up before it connected\r\n"));
    EXPECT_TRUE(peer.WaitForEnd());
    setrlimit(RLIMIT_NOFILE, &limit);
}
