#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbKLVSocketHandler.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Tests/Support/MemoryStream.h"
#include "Timers/Source/EventTimerManager.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

namespace {

using Lines = std::vector<std::string>;
using Ping = std::shared_ptr<OstrelPingCmd const>;

constexpr std::uint32_t Loopback = 0x7F000001;
const std::string IoInfoReqBytes("\x20\x03\x00\x28\x00\x00\x00\x00", 8);

std::string WordBytes(std::size_t word)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(word >> shift);
    return bytes;
}
/// A ping of this text, as on the wire.
std::string PingBytes(const std::string& text, std::size_t patches = 1, std::size_t dests = 2)
{
    return WordBytes(0x28000347) + WordBytes(text.size() + 12) + WordBytes(text.size()) + text + WordBytes(patches) +
           WordBytes(dests);
}

/// Its id belongs to another class.
struct Impostor
{
    static constexpr CommandID ID = OstrelPingCmd::ID;
    explicit Impostor(KLVCommandReadSet&) {}
};

/// Its read constructor throws.
struct Unreadable
{
    static constexpr CommandID ID = 999;
    explicit Unreadable(KLVCommandReadSet&) { throw std::runtime_error("not today"); }
};

/// The comms on loopback, with the test as their main thread.
class CommsTest : public testing::Test
{
protected:
    CommsTest() { Start(); }

    /// A new start, with mPorts.
    void Start()
    {
        mComms.reset();
        mComms = std::make_unique<OrbKLVComms>(mService, mProcessor, mStreams, mPorts);
        mComms->ConnectKLVStreamChanged([this](UINT8GIGEPORT port, StreamType type, std::uint32_t address, bool valid) {
            std::ostringstream line;
            line << unsigned{port} << " " << type << AddressText(address) << " " << FlagText(valid);
            mChanges.push_back(line.str());
        });
    }
    /// Runs the main service until it is so; false if that takes 20 s.
    bool RunUntil(const std::function<bool()>& done)
    {
        return Await(done, [this] {
            mService.restart();
            mService.run_one_for(std::chrono::milliseconds(20));
        });
    }
    /// Waits for that many changes, and takes all there are.
    void Expect(const Lines& changes)
    {
        RunUntil([&] { return mChanges.size() >= changes.size(); });
        EXPECT_EQ(std::exchange(mChanges, {}), changes);
    }
    /// A peer that the comms have accepted.
    LoopbackPeer Join(const std::string& source = "127.0.0.1")
    {
        LoopbackPeer peer = ConnectAdjacent(source);
        Expect({"255 LOCAL_LINK " + source + " true"});
        return peer;
    }
    LoopbackPeer ConnectAdjacent(const std::string& source = "127.0.0.1") const
    {
        return LoopbackPeer::ConnectTo(mComms->GetPorts().adjacentRouter, "127.0.0.1", source);
    }
    StreamState GetState(UINT8GIGEPORT port)
    {
        return mComms->GetState(StreamName::OnPort(StreamType::LOCAL_LINK, port));
    }
    /// Whether a command that is sent on a port arrives.
    bool Reaches(UINT8GIGEPORT port, const LoopbackPeer& peer, StreamType type = StreamType::LOCAL_LINK,
                 std::uint32_t address = 0)
    {
        return mComms->SendCmd(port, IoInfoReq(), type, address) && peer.Receive(8) == IoInfoReqBytes;
    }

    DescriptorCheck mDescriptorCheck;
    LogRecorder mLog{DebugFeature::CommsDebug, DebugFeature::CmdDebug, DebugFeature::RouterConnectionDebug};
    boost::asio::io_service mService;
    OrbCommandProcessor mProcessor{mService};
    OrbSimpleStreamContainer mStreams;
    OrbKLVComms::Ports mPorts{{"none", "none", "none"}, 0, 0, 1};
    std::unique_ptr<OrbKLVComms> mComms;
    /// "port TYPE address valid"
    Lines mChanges;
};

} // namespace

TEST_F(CommsTest, ACommandReachesAllItsSlotsDecodedInOrderOnTheMainThread)
{
    mPorts.interfaces[0] = "lo";
    Start();
    Lines calls;
    std::vector<Ping> seen;
    for (const char* slot : {"first ", "second "}) {
        mProcessor.Connect<OstrelPingCmd>([&, slot](const Ping& ping, unsigned char port, StreamType type) {
            EXPECT_EQ(port, 0);
            EXPECT_EQ(type, StreamType::LOCAL_LINK);
            calls.push_back(slot + ping->GetName() + " " + std::to_string(ping->GetPatchCount()));
            seen.push_back(ping);
        });
    }
    const LoopbackPeer peer = ConnectAdjacent();
    // Between the two: an id without a slot, an event, and a ping with more than its fields.
    const std::string longer = PingBytes("long") + "more";
    peer.Send(PingBytes("one") + std::string("\x20\x03\x00\x28\x03\0\0\0abc", 11) +
              std::string("\x01\0\0\x08\x02\0\0\0xy", 10) + longer.substr(0, 4) + WordBytes(20) + longer.substr(8) +
              PingBytes("two"));
    ASSERT_TRUE(RunUntil([&] { return calls.size() >= 6; }));
    EXPECT_EQ(calls,
              (Lines{"first one 1", "second one 1", "first long 1", "second long 1", "first two 1", "second two 1"}));
    EXPECT_EQ(seen[0], seen[1]) << "one object for all slots";
    EXPECT_EQ(mLog.Count("Nothing registered for " + std::string(CommandIdToText(800)) + ", skipping to end of data\n"),
              1u);
    EXPECT_EQ(mLog.Count("Unknown KLV Keytype received: 1\n"), 1u);
}

TEST_F(CommsTest, ACommandThatCannotBeReadClosesItsStreamAndExceptionsEndNeitherThreadNorProcess)
{
    Lines names;
    mProcessor.Connect<Unreadable>([](const std::shared_ptr<Unreadable const>&, unsigned char, StreamType) { FAIL(); });
    mProcessor.Connect<OstrelPingCmd>([&](const Ping& ping, unsigned char, StreamType) {
        names.push_back(ping->GetName());
        if (names.size() == 1) throw std::runtime_error("slot");
        if (names.size() == 2) throw 2;
    });
    EXPECT_FALSE(mProcessor.Connect<Impostor>([](const auto&, unsigned char, StreamType) { FAIL(); }).connected());
    EXPECT_TRUE(mLog.HasStart("Failed to get signal for Command (anonymous namespace)::Impostor: "));
    EXPECT_TRUE(mLog.HasStart("Failed to get signal of type (anonymous namespace)::Impostor for CommandID 839\n"));
    // One that throws when it is read, and one with a string count of 200 in 10 bytes of value.
    for (const std::string& item : {std::string("\xE7\x03\x00\x28\x02\0\0\0ab", 10),
                                    std::string("\x47\x03\x00\x28\x0A\0\0\0\xC8\0\0\0abcdef", 18)}) {
        const LoopbackPeer peer = ConnectAdjacent();
        peer.Send(item + PingBytes("never"));
        EXPECT_TRUE(peer.WaitForEnd());
    }
    EXPECT_TRUE(mLog.WaitFor("KLVTCPStream from 127.0.0.1 closed: a command does not fit its item\r\n", 2));
    const LoopbackPeer next = ConnectAdjacent();
    next.Send(PingBytes("a") + PingBytes("b"));
    ASSERT_TRUE(RunUntil([&] { return names.size() >= 3; }));
    EXPECT_EQ(names, (Lines{"", "a", "b"})) << "the damaged one is delivered with its defaults";
}

TEST_F(CommsTest, AnAcceptedStreamIsPlacedByItsAddressesAndTypedByItsPorts)
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
        {1, false, "127.0.0.1", "127.0.1.1", "255 LOCAL_LINK 127.0.1.1 true"}, // neither
    };
    for (const auto& [loopbackPort, master, host, source, change] : cases) {
        mPorts.interfaces = {"none", "none", "none"};
        mPorts.interfaces[loopbackPort] = "lo";
        Start();
        const auto& ports = mComms->GetPorts();
        const LoopbackPeer peer =
            LoopbackPeer::ConnectTo(master ? ports.masterRouter : ports.adjacentRouter, host, source);
        Expect({change});
        const auto port = static_cast<UINT8GIGEPORT>(std::stoi(change));
        EXPECT_TRUE(Reaches(port, peer, master ? StreamType::MASTER_LINK : StreamType::LOCAL_LINK));
        mComms->Disconnect(port);
        EXPECT_TRUE(peer.WaitForEnd());
        mComms.reset();
        mChanges.clear();
    }
    EXPECT_TRUE(mLog.Has("AddKLVStream Finding Port Sec Korvo  Sock Address 127.0.0.1 Port Address 127.0.0.1\r\n"));
    EXPECT_TRUE(mLog.Has("Found Sec Korvo \r\n"));
    Start();
    EXPECT_EQ(mComms->GetPortAddress(1), Loopback);
    EXPECT_EQ(mComms->GetPortAddress(2) + mComms->GetPortAddress(3), 0u);
}

TEST_F(CommsTest, TheirThreadRunsTheTimersWhenTheyAreDueAndAllElseBetween)
{
    struct : IEventTimerHandler
    {
        void OnTimer(boost::shared_ptr<IEventTimer>) override { ++runs; }
        std::atomic<int> runs{0};
    } handler;
    // The timers belong to the thread of the comms, so they are started and stopped while there is none.
    mComms.reset();
    EventTimerManager& timers = EventTimerManager::Instance();
    const auto timer = timers.CreateTimer("test", &handler, 1, 1, 0, TimerUnits::Milliseconds);
    timers.Start(timer);
    Start();
    Join();
    EXPECT_TRUE(RunUntil([&] { return handler.runs > 50; })) << "more than one a second";
    mComms.reset();
    timers.Stop(timer->GetId());
}

TEST_F(CommsTest, AStreamThatThisSideOpensHasItsPortAndIsResetWhenItIsClosed)
{
    const LoopbackListener server;
    for (const StreamType type : {StreamType::LOCAL_LINK, StreamType::SLAVE_LINK, StreamType::UPDATE_LINK}) {
        mPorts.masterRouter = type == StreamType::SLAVE_LINK ? server.GetPort() : 0;
        mPorts.updateService = type == StreamType::UPDATE_LINK ? server.GetPort() : 1;
        Start();
        mComms->Connect(Loopback, 1, server.GetPort());
        const LoopbackPeer peer = server.Accept();
        std::ostringstream stream;
        stream << "1 " << type << "127.0.0.1 ";
        Expect({stream.str() + "true"});
        EXPECT_TRUE(type == StreamType::SLAVE_LINK ? Reaches(9, peer, type, Loopback) : Reaches(1, peer, type));
        const auto asked = std::chrono::steady_clock::now();
        mComms->Disconnect(1);
        if (type == StreamType::UPDATE_LINK) {
            EXPECT_TRUE(Reaches(1, peer, type));
            mComms->Disconnect(Loopback, type);
        }
        EXPECT_NE(LoopbackPeer::WaitFor(peer.GetFd(), 0) & POLLERR, 0) << "an end without a reset is no error";
        Expect({stream.str() + "false"});
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4)) << "nothing lingers";
        EXPECT_EQ(GetState(1), StreamState::None);
        EXPECT_FALSE(mComms->SendCmd(1, IoInfoReq(), type, Loopback));
    }
    EXPECT_EQ(mLog.Count("OrbKLVComms::Disconnect NO Link LOCAL_LINK \r\n"), 2u);
    EXPECT_TRUE(mLog.Has("Stream LOCAL_LINK  Port Pri Korvo  Not Found\r\n"));
}

// No pass of the comms closes this one, so that it stays for as long as it is looked at.
TEST_F(CommsTest, AStreamThatIsAboutToCloseSaysSoAndOneThatIsNotConnectedTakesNothing)
{
    HandlerMutex mutex;
    OrbKLVSocketHandler elsewhere(mutex, *mComms, mProcessor);
    OrbKLVStream stream(elsewhere);
    stream.SetPort(2);
    stream.SetStreamType(StreamType::LOCAL_LINK);
    mStreams.Store(stream);
    EXPECT_EQ(GetState(2), StreamState::Open);
    EXPECT_FALSE(mComms->SendLocal(IoInfoReq(), 2));
    EXPECT_TRUE(mLog.Has("Attempt to write to unconnected stream 1 Port Sec Korvo \r\n"));
    mComms->Disconnect(0, StreamType::LOCAL_LINK);
    bool exists = false;
    EXPECT_TRUE(mComms->DisconnectPending(2, StreamType::LOCAL_LINK, exists));
    EXPECT_TRUE(exists);
    mStreams.Remove(stream);
    EXPECT_FALSE(mComms->DisconnectPending(2, StreamType::LOCAL_LINK, exists));
    EXPECT_FALSE(exists);
}

TEST_F(CommsTest, AFailedListenerDoesNoHarmAndTheFirstTakesTheSecondWithIt)
{
    const LoopbackListener taken;
    for (const bool first : {false, true}) {
        mPorts.adjacentRouter = first ? taken.GetPort() : 0;
        mPorts.masterRouter = first ? 0 : taken.GetPort();
        Start();
        mComms->Connect(Loopback, 1, taken.GetPort());
        const LoopbackPeer peer = taken.Accept();
        Expect({first ? "1 LOCAL_LINK 127.0.0.1 true" : "1 SLAVE_LINK 127.0.0.1 true"});
        EXPECT_EQ(mComms->GetPorts().masterRouter, mPorts.masterRouter) << "not listened on";
    }
    EXPECT_EQ(mLog.Count("OrbRouterKLVComms FAILED to bind MASTER_ROUTER_KLV listener\r\n"), 1u);
    EXPECT_EQ(mLog.Count("OrbRouterKLVComms FAILED to bind ADJACENT_ROUTER_KLV listener\r\n"), 1u);
}

TEST_F(CommsTest, APeersCloseIsReportedTwiceAndAReadErrorOnce)
{
    const std::string end = "255 LOCAL_LINK 127.0.0.1 false";
    for (const bool reset : {false, true}) {
        LoopbackPeer peer = Join();
        reset ? peer.Reset() : peer.Close();
        // The next stream is reported after everything that the last one reported.
        ASSERT_TRUE(RunUntil([&] { return mChanges.size() >= (reset ? 1 : 2); }));
        const LoopbackPeer next = ConnectAdjacent("127.0.0.2");
        const std::string last = "255 LOCAL_LINK 127.0.0.2 true";
        Expect(reset ? Lines{end, last} : Lines{end, end, last});
        mComms->Disconnect(255);
        Expect({"255 LOCAL_LINK 127.0.0.2 false"});
    }
    // One that this side opened would connect again, so that is forbidden.
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    LoopbackPeer peer = server.Accept();
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    peer.Reset();
    Expect({"1 LOCAL_LINK 127.0.0.1 false", "1 LOCAL_LINK 127.0.0.1 false"});
}

TEST_F(CommsTest, ALaterStreamWithTheSameKeyReplacesTheEarlierOneAndOutlivesIt)
{
    LoopbackPeer first = Join();
    const LoopbackPeer second = Join();
    const LoopbackPeer master = LoopbackPeer::ConnectTo(mComms->GetPorts().masterRouter, "127.0.0.1", "127.0.0.2");
    Expect({"255 MASTER_LINK 127.0.0.2 true"});
    first.Close();
    // The end is reported all the same.
    Expect({"255 LOCAL_LINK 127.0.0.1 false", "255 LOCAL_LINK 127.0.0.1 false"});
    EXPECT_EQ(mLog.Count("SKIPPING REMOVAL OF OLD KLV STREAM\r\n"), 2u);
    EXPECT_TRUE(Reaches(255, second) && Reaches(255, master, StreamType::MASTER_LINK));
}

TEST_F(CommsTest, AnotherConnectToAnAbsentPeerRetriesAtOnceOnOneStream)
{
    const std::uint16_t port = LoopbackListener().GetPort();
    for (int i = 0; i < 5; ++i)
        mComms->Connect(Loopback, 1, port);
    const LoopbackListener server(port), other;
    mComms->Connect(Loopback, 1, port);
    const auto asked = std::chrono::steady_clock::now();
    const LoopbackPeer peer = server.Accept();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4)) << "before the ordinary retry";
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    // One that is connected to again keeps one stream of ours, which are told apart by both ports.
    mComms->Connect(Loopback, 2, port);
    const LoopbackPeer onTwo = server.Accept();
    Expect({"2 LOCAL_LINK 127.0.0.1 true"});
    mComms->Connect(Loopback, 1, other.GetPort());
    const LoopbackPeer elsewhere = other.Accept();
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    mComms->Connect(Loopback, 1, port);
    const LoopbackPeer second = server.Accept();
    Expect({"1 LOCAL_LINK 127.0.0.1 true", "1 LOCAL_LINK 127.0.0.1 false"});
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(Reaches(1, second));
    Join("127.0.0.2"); // so no other has ended
    EXPECT_FALSE(mLog.HasStart("OrbKLVComms::Connect ")) << "none is given up";
}

TEST_F(CommsTest, ReportedPeersWithoutEndAreRefusedAndNeighboursNever)
{
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
    EXPECT_TRUE(RunUntil([&] { return Reaches(1, neighbour); }));
    EXPECT_EQ(mLog.Count("OrbKLVComms::Connect 127.0.0.2 Port 1 given up before it connected\r\n"), 1u);
}

TEST_F(CommsTest, WithoutADescriptorAConnectIsGivenUpWithALineAndClientsAreSentAway)
{
    testing::internal::CaptureStdout();
    LoopbackPeer peers[] = {LoopbackPeer::Bound("127.0.0.1", 0), LoopbackPeer::Bound("127.0.0.1", 0)};
    const sockaddr_in to = LoopbackAddress("127.0.0.1", mComms->GetPorts().adjacentRouter);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const int next = ::dup(0);
    ::close(next);
    const rlimit none{static_cast<rlim_t>(next), limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    mComms->Connect(Loopback, 1, 9);
    EXPECT_TRUE(mLog.WaitFor("OrbKLVComms::Connect 127.0.0.1 Port 9 given up before it connected\r\n"));
    for (const LoopbackPeer& peer : peers) {
        EXPECT_EQ(::connect(peer.GetFd(), reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        EXPECT_TRUE(peer.WaitForEnd());
    }
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::AllOf(testing::HasSubstr(": 24 Too many open files (Fatal)\n"),
                               testing::HasSubstr(" :: accept: 24 Too many open files (Error)\n")));
}

TEST_F(CommsTest, CommandsOfSeveralThreadsNeverMixEvenAgainstASlowReader)
{
    const LoopbackPeer peer = Join();
    std::string expected[4];
    std::thread senders[4];
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
        for (std::uint32_t i = 0; i < 300; ++i)
            expected[thread] += PingBytes(std::string(1 + i * 17 % 9000, 'p'), thread, i);
        senders[thread] = std::thread([&, thread] {
            for (std::uint32_t i = 0; i < 300; ++i)
                mComms->SendLocal(OstrelPingCmd(std::string(1 + i * 17 % 9000, 'p'), thread, i), 255);
        });
    }
    std::string received[4];
    for (int item = 0; item < 4 * 300; ++item) {
        std::string bytes = peer.Receive(12);
        bytes += peer.Receive(static_cast<unsigned char>(bytes[8]) + 256u * static_cast<unsigned char>(bytes[9]) + 8);
        received[bytes[bytes.size() - 8] & 3] += bytes;
    }
    for (int thread = 0; thread < 4; ++thread) {
        senders[thread].join();
        EXPECT_EQ(received[thread], expected[thread]);
    }
}

TEST_F(CommsTest, WhileMuchWaitsForTheMainThreadNothingIsReadAndAllElseGoesOn)
{
    int received = 0;
    mProcessor.Connect<OstrelPingCmd>([&](const Ping&, unsigned char, StreamType) { ++received; });
    const LoopbackPeer peer = Join();
    const LoopbackListener server;
    mProcessor.GetPostedWork().Add((4u << 20) + 1);
    peer.Send(PingBytes("waits"));
    EXPECT_TRUE(Reaches(255, peer));
    mComms->Connect(Loopback, 1, server.GetPort());
    const LoopbackPeer opened = server.Accept();
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    EXPECT_EQ(received, 0);
    mProcessor.GetPostedWork().TakeOff((4u << 20) + 1);
    EXPECT_TRUE(RunUntil([&] { return received == 1; }));
}

TEST(PostedWork, IsFullAbove4MiBUntilNoMoreThan1MiBIsLeft)
{
    boost::asio::io_service service;
    OrbCommandProcessor processor(service);
    PostedWork& work = processor.GetPostedWork();
    int drained = 0;
    work.SetDrained([&] { ++drained; });
    work.Add(4u << 20);
    EXPECT_FALSE(work.IsFull());
    work.TakeOff(4u << 20);
    EXPECT_EQ(drained, 0);
    work.Add((4u << 20) + 1);
    EXPECT_TRUE(work.IsFull());
    work.TakeOff(3u << 20);
    EXPECT_TRUE(work.IsFull());
    EXPECT_EQ(drained, 0);
    work.TakeOff(1);
    EXPECT_EQ(drained, 1);
    EXPECT_FALSE(work.IsFull());
    // A command counts with its bytes and what its handler takes.
    processor.Connect<OstrelPingCmd>([](const Ping&, unsigned char, StreamType) {});
    const std::string bytes = PingBytes("1234");
    MemoryStream stream({bytes.begin(), bytes.end()});
    KLVCommandReadSet set(stream);
    processor.Dispatch(set, 0, StreamType::LOCAL_LINK);
    work.Add((3u << 20) - 256 - 16);
    EXPECT_FALSE(work.IsFull());
    work.Add(1);
    EXPECT_TRUE(work.IsFull());
}

TEST_F(CommsTest, TheCommsCanEndAtAnyMoment)
{
    for (std::size_t round = 0; round < 8; ++round) {
        Start();
        const LoopbackListener server;
        LoopbackPeer peers[] = {ConnectAdjacent(), ConnectAdjacent()};
        std::thread link([&] {
            for (int i = 0; i < 100; ++i)
                mComms->SendLocal(OstrelPingCmd(std::string(50000, 'x'), 0, 0), 255);
        });
        mComms->Connect(Loopback, 1, server.GetPort());
        mComms->Connect(Loopback, 1, 1);   // refused
        mComms->Connect(0xE0000001, 2, 9); // fails at once
        peers[0].Send(std::string("\x47\x03\x00\x28\xFF\xFF\x0F\0 half an item", 21));
        peers[1].Close();
        if (round % 2 == 0) RunUntil([&] { return mChanges.size() > round / 2; });
        link.join();
        mComms.reset();
        EXPECT_FALSE(mStreams.GetStreamByAddressAndType(Loopback, StreamType::LOCAL_LINK)) << "who is gone";
        // What was posted before the end finds nobody any more.
        mChanges.clear();
        mService.restart();
        mService.poll();
        EXPECT_EQ(mChanges, Lines());
    }
    EXPECT_FALSE(mLog.HasStart("OrbKLVComms::Connect 127.0.0.1 Port 1 given up"));
}
