#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbKLVSocketHandler.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Timers/Source/EventTimerManager.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
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
std::uint32_t Word(const std::string& bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    for (std::size_t i = offset + 4; i-- > offset;)
        word = word << 8 | static_cast<unsigned char>(bytes.at(i));
    return word;
}
/// A ping of this text, as on the wire.
std::string PingBytes(const std::string& text, std::size_t patches = 1, std::size_t dests = 2)
{
    return WordBytes(0x28000347) + WordBytes(text.size() + 12) + WordBytes(text.size()) + text + WordBytes(patches) +
           WordBytes(dests);
}

/// Ended by the other side.
bool HasEnded(const LoopbackPeer& peer)
{
    char byte = 0;
    if (peer.GetFd() == -1) return false;
    const ssize_t size = ::recv(peer.GetFd(), &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return size == 0 || (size == -1 && errno != EAGAIN);
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

    /// A new start, on ports of its own unless they are named.
    void Start(std::uint16_t adjacentRouter = 0, std::uint16_t masterRouter = 0)
    {
        mComms.reset();
        mPorts.adjacentRouter = adjacentRouter;
        mPorts.masterRouter = masterRouter;
        mPorts.updateService = 1;
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
    std::size_t CountChanges(const std::string& line) const
    {
        return static_cast<std::size_t>(std::count(mChanges.begin(), mChanges.end(), line));
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
    bool Reaches(UINT8GIGEPORT port, const LoopbackPeer& peer, StreamType type = StreamType::LOCAL_LINK)
    {
        return mComms->SendCmd(port, IoInfoReq(), type, 0) && peer.Receive(8) == IoInfoReqBytes;
    }

    LogRecorder mLog{DebugFeature::CommsDebug, DebugFeature::CmdDebug, DebugFeature::RouterConnectionDebug};
    boost::asio::io_service mService;
    OrbCommandProcessor mProcessor{mService};
    OrbSimpleStreamContainer mStreams;
    OrbKLVComms::Ports mPorts{{"none", "none", "none"}};
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
        {1, false, "127.0.0.1", "127.0.1.9", "255 LOCAL_LINK 127.0.1.9 true"}, // neither
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
}

TEST_F(CommsTest, TheirThreadRunsTheTimers)
{
    struct : IEventTimerHandler
    {
        void OnTimer(boost::shared_ptr<IEventTimer>) override { ran.set_value(); }
        std::promise<void> ran;
    } handler;
    // The timers belong to the thread of the comms, so they are started while there is none.
    mComms.reset();
    EventTimerManager& timers = EventTimerManager::Instance();
    timers.Start(timers.CreateTimer("test", &handler, 1, 0, 0, TimerUnits::Milliseconds));
    Start();
    EXPECT_EQ(handler.ran.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    mComms.reset();
}

TEST_F(CommsTest, AStreamThatThisSideOpensHasItsPortAndIsResetWhenItIsClosed)
{
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    const LoopbackPeer peer = server.Accept();
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    EXPECT_TRUE(Reaches(1, peer));
    EXPECT_EQ(GetState(1), StreamState::Open);
    mComms->Disconnect(1);
    pollfd reset{peer.GetFd(), 0, 0};
    EXPECT_EQ(::poll(&reset, 1, 10000), 1);
    EXPECT_NE(reset.revents & POLLERR, 0) << "an end without a reset is no error";
    Expect({"1 LOCAL_LINK 127.0.0.1 false"});
    EXPECT_EQ(GetState(1), StreamState::None);
    EXPECT_FALSE(mComms->SendLocal(IoInfoReq(), 1));
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
        Start(first ? taken.GetPort() : 0, first ? 0 : taken.GetPort());
        mComms->Connect(Loopback, 1, taken.GetPort());
        const LoopbackPeer peer = taken.Accept();
        EXPECT_TRUE(RunUntil([this] { return !mChanges.empty(); }));
        EXPECT_EQ(mComms->GetPorts().masterRouter, first ? 0 : taken.GetPort()) << "not listened on";
        mComms.reset();
        mChanges.clear();
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
        ASSERT_TRUE(RunUntil([&] { return mChanges.size() >= (reset ? 1 : 2); }));
        // The next stream is reported after everything that the last one reported.
        const LoopbackPeer next = ConnectAdjacent("127.0.0.2");
        const std::string last = "255 LOCAL_LINK 127.0.0.2 true";
        Expect(reset ? Lines{end, last} : Lines{end, end, last});
        mComms->Disconnect(255);
        Expect({"255 LOCAL_LINK 127.0.0.2 false"});
    }
}

TEST_F(CommsTest, ALaterStreamWithTheSameKeyReplacesTheEarlierOneAndOutlivesIt)
{
    LoopbackPeer first = Join();
    const LoopbackPeer second = Join();
    first.Close();
    // The end is reported all the same.
    Expect({"255 LOCAL_LINK 127.0.0.1 false", "255 LOCAL_LINK 127.0.0.1 false"});
    EXPECT_EQ(mLog.Count("SKIPPING REMOVAL OF OLD KLV STREAM\r\n"), 2u);
    EXPECT_TRUE(Reaches(255, second));
}

TEST_F(CommsTest, AnotherConnectToAnAbsentPeerRetriesAtOnceOnOneStream)
{
    const std::uint16_t port = LoopbackListener().GetPort();
    for (int i = 0; i < 5; ++i)
        mComms->Connect(Loopback, 1, port);
    const LoopbackListener server(port);
    mComms->Connect(Loopback, 1, port);
    const auto asked = std::chrono::steady_clock::now();
    const LoopbackPeer peer = server.Accept();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4)) << "before the ordinary retry";
    Expect({"1 LOCAL_LINK 127.0.0.1 true"});
    // One that is connected to again keeps one stream of ours.
    mComms->Connect(Loopback, 1, port);
    const LoopbackPeer second = server.Accept();
    ASSERT_TRUE(RunUntil([this] { return mChanges.size() >= 2; }));
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(Reaches(1, second));
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

TEST_F(CommsTest, WithoutADescriptorAConnectIsGivenUpWithALineAndAClientIsSentAway)
{
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

TEST_F(CommsTest, CommandsOfSeveralThreadsNeverMixEvenAgainstASlowReader)
{
    const LoopbackPeer peer = Join();
    constexpr std::uint32_t PerThread = 500;
    const auto text = [](std::uint32_t thread, std::uint32_t i) {
        return std::string(1 + i * 17 % 9000, static_cast<char>('a' + thread));
    };
    std::array<std::thread, 4> senders;
    for (std::uint32_t thread = 0; thread < senders.size(); ++thread) {
        senders[thread] = std::thread([&, thread] {
            for (std::uint32_t i = 0; i < PerThread; ++i)
                mComms->SendLocal(OstrelPingCmd(text(thread, i), thread, i), 255);
        });
    }
    std::array<std::uint32_t, senders.size()> next{};
    for (std::size_t item = 0; item < senders.size() * PerThread; ++item) {
        std::string bytes = peer.Receive(8);
        bytes += peer.Receive(Word(bytes, 4));
        const std::uint32_t thread = Word(bytes, bytes.size() - 8);
        const std::uint32_t number = next.at(thread)++;
        ASSERT_EQ(bytes, PingBytes(text(thread, number), thread, number));
    }
    for (std::thread& sender : senders)
        sender.join();
}

TEST_F(CommsTest, MoreConnectionsThanASetHoldsHarmNoEarlierOne)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 5000) GTEST_SKIP() << "too few descriptors are allowed here";
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    // Out of the way of the descriptors that the comms count.
    const auto moveUp = [](const LoopbackPeer& peer) {
        return LoopbackPeer(fcntl(peer.GetFd(), F_DUPFD_CLOEXEC, 3000));
    };
    const LoopbackPeer before = moveUp(Join("127.0.0.5"));
    const auto accepted = [&] { return CountChanges("255 MASTER_LINK 127.0.0.1 true"); };
    std::vector<LoopbackPeer> peers;
    const auto connect = [&](int count) {
        while (count-- > 0) {
            peers.push_back(moveUp(LoopbackPeer::ConnectTo(mComms->GetPorts().masterRouter)));
            // A client that finds the backlog full comes again after a second: there is no need for that here.
            const auto areServed = [&] {
                const auto ended = std::count_if(peers.begin(), peers.end(), HasEnded);
                return accepted() + static_cast<std::size_t>(ended) >= peers.size();
            };
            if (peers.size() % 10 == 0 && !RunUntil(areServed)) return false;
        }
        return true;
    };
    ASSERT_TRUE(connect(1100));
    const std::size_t full = accepted();
    EXPECT_GT(full, 900u);
    EXPECT_LT(full, 1024u);
    // New ones are taken when places are free.
    for (std::size_t i = 0; i < 100; ++i)
        peers[i].Close();
    ASSERT_TRUE(RunUntil([&] { return CountChanges("255 MASTER_LINK 127.0.0.1 false") == 200; }));
    ASSERT_TRUE(connect(100));
    EXPECT_TRUE(RunUntil([&] { return accepted() == full + 100; }));
    EXPECT_TRUE(Reaches(255, before));
}

TEST_F(CommsTest, APeerThatNeverReadsCostsOnlyItsStreamAndNobodysTime)
{
    const LoopbackPeer deaf = Join("127.0.0.2");
    const OstrelPingCmd ping(std::string(200000, 'p'), 0, 0);
    int sent = 0;
    while (sent < 1000 && mComms->SendLocal(ping, 255))
        ++sent;
    EXPECT_GE(sent, 320) << "64 MiB and what the kernel took";
    EXPECT_LT(sent, 1000);
    Expect({"255 LOCAL_LINK 127.0.0.2 false"});
    EXPECT_TRUE(Reaches(255, Join()));
}

TEST_F(CommsTest, AFloodThatTheMainThreadDoesNotFollowWaitsAtItsSenderAndLosesNothing)
{
    constexpr std::uint32_t Commands = 60000;
    std::uint32_t received = 0;
    bool inOrder = true;
    mProcessor.Connect<OstrelPingCmd>([&](const Ping& command, unsigned char, StreamType) {
        inOrder = inOrder && command->GetTotalDests() == received++;
    });
    const LoopbackPeer peer = Join();
    const LoopbackPeer other = Join("127.0.0.2");
    std::string flood;
    for (std::uint32_t i = 0; i < Commands; ++i)
        flood += PingBytes(std::string(1000, 'f'), 0, i);
    std::size_t sent = 0;
    // Until all of it is sent, or the peer can send no more for as long as that.
    const auto send = [&](int patience) {
        pollfd ready{peer.GetFd(), POLLOUT, 0};
        while (sent < flood.size() && ::poll(&ready, 1, patience) == 1) {
            const ssize_t size = ::send(peer.GetFd(), flood.data() + sent, flood.size() - sent, MSG_DONTWAIT);
            if (size <= 0) break;
            sent += static_cast<std::size_t>(size);
        }
    };
    send(500);
    EXPECT_LT(sent, flood.size() / 2) << "what is not run yet, and what the kernel takes";
    EXPECT_EQ(received, 0u);
    // Whatever else the comms do goes on.
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 255));
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    EXPECT_NE(server.Accept().GetFd(), -1);
    EXPECT_TRUE(RunUntil([&] {
        send(0);
        return received == Commands;
    }));
    EXPECT_TRUE(inOrder);
}

TEST_F(CommsTest, TheCommsCanEndAtAnyMoment)
{
    for (std::size_t round = 0; round < 8; ++round) {
        Start();
        const LoopbackListener server;
        LoopbackPeer peers[] = {ConnectAdjacent(), ConnectAdjacent(), ConnectAdjacent()};
        std::atomic<bool> running{true};
        std::thread link([&] {
            while (running && GetState(255) != StreamState::Closing)
                mComms->SendLocal(OstrelPingCmd(std::string(50000, 'x'), 0, 0), 255);
        });
        mComms->Connect(Loopback, 1, server.GetPort());
        mComms->Connect(Loopback, 1, 1);   // refused
        mComms->Connect(0xE0000001, 2, 9); // fails at once
        peers[0].Send(std::string("\x47\x03\x00\x28\xFF\xFF\x0F\0 half an item", 21));
        peers[1].Close();
        peers[2].Send(std::string(round * 600, 'g'));
        if (round % 3 == 0) mComms->Disconnect(1);
        if (round % 2 == 0) RunUntil([&] { return mChanges.size() > round / 2; });
        running = false;
        link.join();
        mComms.reset();
        for (const StreamType type : {StreamType::LOCAL_LINK, StreamType::MASTER_LINK, StreamType::UNKNOWN_STREAM})
            EXPECT_FALSE(mStreams.GetStreamByAddressAndType(Loopback, type)) << "the directory names who is gone";
        // What was posted before the end finds nobody any more.
        mChanges.clear();
        mService.restart();
        mService.poll();
        EXPECT_EQ(mChanges, Lines());
    }
}
