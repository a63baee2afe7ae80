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
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/OrbModule/Src/OrbComms/OrbComms.scenes.h"
#include "Timers/Source/EventTimerManager.h"

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/trim_all.hpp>
#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

namespace {

using Ping = std::shared_ptr<OstrelPingCmd const>;

constexpr std::uint32_t Loopback = 0x7F000001;
/// None has an interface, and the listeners take any.
const OrbKLVComms::Ports NoPorts{{"none", "none", "none"}, 0, 0, 1};
const std::map<std::string, StreamType> Types = {{"LOCAL_LINK", StreamType::LOCAL_LINK},
                                                 {"MASTER_LINK", StreamType::MASTER_LINK},
                                                 {"SLAVE_LINK", StreamType::SLAVE_LINK},
                                                 {"UPDATE_LINK", StreamType::UPDATE_LINK}};
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
            mDone.push_back(line.str());
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
    /// Plays a script: each line has events and, after an arrow, all that comes of them.
    ///
    ///     start SERVICE                 anew; adjacent, master and update have the TCP port of the first server,
    ///                                   0 to 2 is a port that has the interface of loopback
    ///     join PEER [SOURCE [HOST]]     connects to the listener for neighbours; master ...: to that for masters
    ///     open PEER PORT [SERVER]       a stream from this side to the first server, or to the second, 1
    ///     close PEER, reset PEER, disconnect PORT, end-updates
    ///     ended PEER, was-reset PEER    must be so
    ///     send PEER PORT TYPE, address PORT, log PART    whether a command arrives, an address, lines of the log
    void Play(const std::string& script)
    {
        std::istringstream lines(std::regex_replace(script, std::regex("\n +"), " "));
        for (std::string line; std::getline(lines, line);) {
            std::smatch parts;
            if (!std::regex_match(line, parts, std::regex("(.*) -> ?(.*)"))) continue;
            const auto start = std::chrono::steady_clock::now();
            std::istringstream events(parts[1]);
            for (std::string event; std::getline(events >> std::ws, event, ';');)
                Do(event);
            RunUntil([&] { return boost::join(mDone, "; ") == parts[2]; });
            EXPECT_EQ(boost::join(std::exchange(mDone, {}), "; "), parts[2]) << line;
            EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4)) << "nothing lingers";
        }
    }
    void Do(const std::string& event)
    {
        std::istringstream words(event);
        std::string verb, name, third = "127.0.0.1", fourth = "127.0.0.1";
        words >> verb >> name >> third >> fourth;
        const auto port = [](const std::string& text) { return static_cast<UINT8GIGEPORT>(std::stoul(text)); };
        LoopbackPeer& peer = mPeers[name];
        if (verb == "start") StartWith(name);
        if (verb == "join") peer = LoopbackPeer::ConnectTo(mComms->GetPorts().adjacentRouter, fourth, third);
        if (verb == "master") peer = LoopbackPeer::ConnectTo(mComms->GetPorts().masterRouter, fourth, third);
        if (verb == "open") {
            const LoopbackListener& server = mServers[fourth == "1" ? 1 : 0];
            mComms->Connect(Loopback, port(third), server.GetPort());
            peer = server.Accept();
        }
        if (verb == "close") peer.Close();
        if (verb == "reset") peer.Reset();
        if (verb == "disconnect") mComms->Disconnect(port(name));
        if (verb == "end-updates") mComms->Disconnect(Loopback, StreamType::UPDATE_LINK);
        EXPECT_TRUE(verb != "ended" || peer.WaitForEnd()) << event;
        EXPECT_TRUE(verb != "was-reset" || (LoopbackPeer::WaitFor(peer.GetFd(), 0) & POLLERR) != 0) << event;
        if (verb == "send") mDone.push_back(Reaches(port(third), peer, Types.at(fourth)) ? "arrived" : "no");
        if (verb == "address") mDone.push_back(AddressText(mComms->GetPortAddress(port(name))));
        for (std::string line : mLog.Lines()) {
            boost::trim_all(line);
            if (verb == "log" && line.find(event.substr(4)) != std::string::npos) mDone.push_back(line);
        }
    }
    void StartWith(const std::string& service)
    {
        mPorts = NoPorts;
        const std::uint16_t taken = mServers[0].GetPort();
        if (service == "adjacent") mPorts.adjacentRouter = taken;
        if (service == "master") mPorts.masterRouter = taken;
        if (service == "update") mPorts.updateService = taken;
        if (service.size() == 1) mPorts.interfaces[std::stoul(service)] = "lo";
        Start();
        EXPECT_EQ(mComms->GetPorts().masterRouter == 0, service == "adjacent") << "not listened on";
    }
    LoopbackPeer ConnectAdjacent() const { return LoopbackPeer::ConnectTo(mComms->GetPorts().adjacentRouter); }
    /// Whether a command that is sent on a stream arrives.
    bool Reaches(UINT8GIGEPORT port, const LoopbackPeer& peer, StreamType type = StreamType::LOCAL_LINK)
    {
        return mComms->SendCmd(port, IoInfoReq(), type, Loopback) && peer.Receive(8) == IoInfoReqBytes;
    }

    DescriptorCheck mDescriptorCheck;
    LogRecorder mLog{DebugFeature::CommsDebug, DebugFeature::CmdDebug, DebugFeature::RouterConnectionDebug};
    boost::asio::io_service mService;
    OrbCommandProcessor mProcessor{mService};
    OrbSimpleStreamContainer mStreams;
    OrbKLVComms::Ports mPorts = NoPorts;
    std::unique_ptr<OrbKLVComms> mComms;
    /// Changes of streams ("port TYPE address valid"), and what the test asked for.
    Lines mDone;
    std::map<std::string, LoopbackPeer> mPeers;
    const LoopbackListener mServers[2];
};

class CommsScene : public CommsTest, public testing::WithParamInterface<Scene>
{};

} // namespace

TEST_P(CommsScene, Plays)
{
    Play(GetParam().script);
}
INSTANTIATE_TEST_SUITE_P(, CommsScene, testing::ValuesIn(ScenesOf(OrbCommsScenes)), NameOfScene);

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
    EXPECT_FALSE(mLog.HasStart("Error reading data key = 0x28000320")) << "skipped without a word";
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
    Play("join a -> 255 LOCAL_LINK 127.0.0.1 true");
    EXPECT_TRUE(RunUntil([&] { return handler.runs > 50; })) << "more than one a second";
    mComms.reset();
    timers.Stop(timer->GetId());
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
    EXPECT_EQ(mComms->GetState(StreamName::OnPort(StreamType::LOCAL_LINK, 2)), StreamState::Open);
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

TEST_F(CommsTest, AnotherConnectToAnAbsentPeerRetriesAtOnceOnOneStream)
{
    const std::uint16_t port = LoopbackListener().GetPort();
    for (int i = 0; i < 20; ++i)
        mComms->Connect(Loopback, 1, port);
    const LoopbackListener server(port);
    mComms->Connect(Loopback, 1, port);
    const auto asked = std::chrono::steady_clock::now();
    const LoopbackPeer peer = server.Accept();
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(4)) << "before the ordinary retry";
    Play(" -> 1 LOCAL_LINK 127.0.0.1 true");
    // No other has ended, and none is given up.
    Play("join a 127.0.0.2; log OrbKLVComms::Connect -> 255 LOCAL_LINK 127.0.0.2 true");
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
    Do("open a 1");
    EXPECT_TRUE(RunUntil([&] { return Reaches(1, mPeers["a"]); }));
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
    Play("join a -> 255 LOCAL_LINK 127.0.0.1 true");
    const LoopbackPeer& peer = mPeers["a"];
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
    Play("join a -> 255 LOCAL_LINK 127.0.0.1 true");
    mPeers["a"].Send(PingBytes("counts no more"));
    EXPECT_TRUE(RunUntil([&] { return received == 1; }));
    mProcessor.GetPostedWork().Add((4u << 20) + 1);
    mPeers["a"].Send(PingBytes("waits"));
    Play("send a 255 LOCAL_LINK; open b 1 -> arrived; 1 LOCAL_LINK 127.0.0.1 true");
    EXPECT_EQ(received, 1);
    mProcessor.GetPostedWork().TakeOff((3u << 20) + 1);
    EXPECT_TRUE(RunUntil([&] { return received == 2; }));
}

TEST(PostedWork, IsFullAbove4MiBUntilNoMoreThan1MiBIsLeft)
{
    boost::asio::io_service service;
    OrbCommandProcessor processor(service);
    PostedWork& work = processor.GetPostedWork();
    int drained = 0;
    work.SetDrained([&] { ++drained; });
    constexpr int MiB = 1 << 20;
    const std::tuple<int, bool, int> steps[] = {
        {4 * MiB, false, 0}, {-4 * MiB, false, 0}, {4 * MiB + 1, true, 0}, {-3 * MiB, true, 0}, {-1, false, 1}};
    for (const auto& [size, isFull, times] : steps) {
        size > 0 ? work.Add(static_cast<std::size_t>(size)) : work.TakeOff(static_cast<std::size_t>(-size));
        EXPECT_EQ(std::pair(work.IsFull(), drained), std::pair(isFull, times)) << size;
    }
    // A command counts with its bytes and what its handler takes.
    processor.Connect<OstrelPingCmd>([](const Ping&, unsigned char, StreamType) {});
    const std::string bytes = PingBytes("1234");
    MemoryStream stream({bytes.begin(), bytes.end()});
    KLVCommandReadSet set(stream);
    processor.Dispatch(set, 0, StreamType::LOCAL_LINK);
    work.Add(3 * MiB - 256 - 16);
    EXPECT_FALSE(work.IsFull());
    work.Add(1);
    EXPECT_TRUE(work.IsFull());
}

TEST_F(CommsTest, TheCommsCanEndAtAnyMoment)
{
    for (std::size_t round = 0; round < 8; ++round) {
        Start();
        LoopbackPeer peers[] = {ConnectAdjacent(), ConnectAdjacent()};
        std::thread link([&] {
            for (int i = 0; i < 100; ++i)
                mComms->SendLocal(OstrelPingCmd(std::string(50000, 'x'), 0, 0), 255);
        });
        mComms->Connect(Loopback, 1, mServers[0].GetPort());
        mComms->Connect(Loopback, 1, 1);   // refused
        mComms->Connect(0xE0000001, 2, 9); // fails at once
        peers[0].Send(std::string("\x47\x03\x00\x28\xFF\xFF\x0F\0 half an item", 21));
        peers[1].Close();
        if (round % 2 == 0) RunUntil([&] { return mDone.size() > round / 2; });
        link.join();
        mComms.reset();
        EXPECT_FALSE(mStreams.GetStreamByAddressAndType(Loopback, StreamType::LOCAL_LINK)) << "who is gone";
        // What was posted before the end finds nobody any more.
        mDone.clear();
        mService.restart();
        mService.poll();
        EXPECT_EQ(mDone, Lines());
    }
    EXPECT_FALSE(mLog.HasStart("OrbKLVComms::Connect 127.0.0.1 Port 1 given up"));
}
