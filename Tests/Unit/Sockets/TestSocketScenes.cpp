#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Sockets/SocketFixture.h"

#include <cctype>
#include <map>
#include <optional>

namespace {

using Text = const std::string&;

/// What can be done with probes, which are a, b and so on, and with their peers A, B and so on. A number is that many
/// bytes to send or receive. After "on" stands what a probe does in one of its operations.
class SocketScene : public SocketTest, public testing::WithParamInterface<Scene>
{
protected:
    void Do(Text actions, Text between = "; ")
    {
        for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 2) {
            end = actions.find(between, start);
            std::istringstream words(actions.substr(start, end - start));
            std::string name, verb, event, rest;
            words >> name;
            if (name.size() == 1) words >> verb;
            if (verb == "on") words >> event;
            std::getline(words >> std::ws, rest);
            if (verb == "on") {
                At(name[0]).mOn[event] = [=] { Do(rest, ", "); };
            } else {
                mVerbs.at(name.size() > 1 ? name : std::isupper(name[0]) ? "peer " + verb : verb)(name[0], rest);
            }
        }
    }
    Probe& At(char name) { return *mProbes.at(name); }
    std::size_t HeldBy(char name) { return At(name).GetHeld(); }
    int FdOf(char name) { return At(name).GetSocket(); }
    LoopbackPeer& PeerAt(char name) { return mPeers[static_cast<char>(std::tolower(name))]; }
    static std::string Bytes(Text text)
    {
        if (!std::isdigit(text[0])) return text;
        std::string bytes(std::stoul(text), '\0');
        for (std::size_t i = 0; i < bytes.size(); i += 251)
            bytes[i] = static_cast<char>(i >> 8);
        return bytes;
    }
    void Receive(LoopbackPeer& peer, Text expected)
    {
        std::string bytes(expected.size(), '\0');
        std::size_t size = 0;
        EXPECT_TRUE(PassUntil([&] {
            size += std::max<ssize_t>(::recv(peer.GetFd(), &bytes[size], bytes.size() - size, MSG_DONTWAIT), 0);
            return size == bytes.size();
        }));
        EXPECT_TRUE(bytes == expected);
    }
    Probe& Make(char name, int fd = -1, std::size_t inputSize = 0x40000)
    {
        Probe::sNextName = name;
        mProbes[name] = mHandler.Own(std::make_unique<Probe>(mHandler, inputSize));
        At(name).Attach(fd);
        return At(name);
    }
    void Connect(char name, Text how)
    {
        const auto has = [&](const char* word) { return how.find(word) != std::string::npos; };
        Probe& probe = Make(name, -1, has("small") ? 1000 : 0x40000);
        if (has("forever")) probe.SetConnectionRetry(-1);
        if (has("once")) probe.SetConnectionRetry(1);
        probe.SetReconnect(has("reconnect"));
        probe.DisableRead(has("unread"));
        const std::uint16_t port = has("refused") ? mRefusing : has("full") ? mFull.GetPort() : mServer.GetPort();
        Open(probe, port, has("multicast") ? "224.0.0.1" : has("nowhere") ? "no address" : "127.0.0.1");
        if (!has("to ")) PeerAt(name) = mServer.Accept();
    }
    void Accept(char name)
    {
        Probe::sNextName = name;
        PeerAt(name) = LoopbackPeer::ConnectTo(mListener.GetPort());
        PassUntil([&] { return !mEvents.empty(); });
        mProbes[name] = Probe::sLast;
    }
    /// A connection that is full at once, and has room at once when its peer has read.
    void Pair(char name)
    {
        int ends[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends), 0);
        Make(name, ends[0]).SetConnected();
        mHandler.Add(&At(name));
        PeerAt(name) = LoopbackPeer(ends[1]);
    }

    const std::map<std::string, std::function<void(char, Text)>> mVerbs = {
        {"pass", [this](char, Text seconds) { Pass(std::stol(seconds)); }},
        {"limit", [this](char, Text count) { mHandler.mLimit = std::stoul(count); }},
        {"refuse", [this](char, Text) { mHandler.mOkToAccept = false; }},
        {"listen", [this](char, Text) { mLate.emplace(mRefusing); }},
        {"hold", [this](char, Text) { mHandler.mHeld = true; }},
        {"release", [this](char, Text) { mHandler.mHeld = false; }},
        {"select-badly",
         [this](char, Text times) {
             for (int i = std::stoi(times); i > 0; --i)
                 EXPECT_EQ(mHandler.Select(-1, 0), -1);
         }},
        {"end", [this](char, Text) { mHandler.CloseAll(); }},
        {"ask-nobody",
         [this](char, Text list) { mHandler.AddList(900, static_cast<WorkList>(std::stoi(list)), true); }},
        {"accepts", [this](char name, Text) { Accept(name); }},
        {"connects", [this](char name, Text how) { Connect(name, how); }},
        {"pairs", [this](char name, Text) { Pair(name); }},
        {"is-added", [this](char name, Text) { mHandler.Add(&At(name)); }},
        {"attaches", [this](char name, Text) { Make(name, ::socket(AF_INET, SOCK_DGRAM, 0)); }},
        {"attaches-that-of", [this](char name, Text other) { Make(name, FdOf(other[0])); }},
        {"sends", [this](char name, Text text) { At(name).Send(Bytes(text)); }},
        {"fills", [this](char name, Text) { Await([&] { return ::send(FdOf(name), "bytes", 5, 0) < 0; }, [] {}); }},
        {"reads", [this](char name, Text) { At(name).OnRead(); }},
        {"sees-an-error", [this](char name, Text) { LoopbackPeer::WaitFor(FdOf(name), 0); }},
        {"closes", [this](char name, Text) { At(name).SetCloseAndDelete(); }},
        {"closes-descriptor", [this](char name, Text) { At(name).Close(); }},
        {"loses-descriptor", [this](char name, Text) { ::close(FdOf(name)); }},
        {"stays", [this](char name, Text) { At(name).SetCloseAndDelete(false); }},
        {"flushes", [this](char name, Text word) { At(name).SetFlushBeforeClose(word != "never"); }},
        {"reconnects", [this](char name, Text word) { At(name).SetReconnect(word != "never"); }},
        {"retries", [this](char name, Text) { At(name).SetRetryClientConnect(); }},
        {"has-connected", [this](char name, Text) { At(name).SetCallOnConnect(); }},
        {"times", [this](char name, Text seconds) { At(name).SetTimeout(std::stol(seconds)); }},
        {"awaits",
         [this](char name, Text n) { EXPECT_TRUE(PassUntil([&] { return HeldBy(name) == std::stoul(n); })); }},
        {"has-option",
         [this](char name, Text option) {
             int value = 0;
             socklen_t size = sizeof value;
             getsockopt(FdOf(name), SOL_SOCKET, option == "keepalive" ? SO_KEEPALIVE : SO_REUSEADDR, &value, &size);
             EXPECT_NE(value, 0);
         }},
        {"has", [this](char name, Text size) { EXPECT_EQ(HeldBy(name), std::stoul(size)); }},
        {"owes", [this](char name, Text size) { EXPECT_EQ(At(name).GetOutputLength(), std::stoul(size)); }},
        {"peer sends", [this](char name, Text text) { EXPECT_TRUE(PeerAt(name).Send(Bytes(text))); }},
        {"peer sends-urgently", [this](char name, Text) { ::send(PeerAt(name).GetFd(), "!", 1, MSG_OOB); }},
        {"peer receives", [this](char name, Text text) { Receive(PeerAt(name), Bytes(text)); }},
        {"peer drains",
         [this](char name, Text) { Await([&] { return ::recv(PeerAt(name).GetFd(), mDrain, 9999, 0) < 0; }, [] {}); }},
        {"peer sees-the-end", [this](char name, Text) { EXPECT_TRUE(PeerAt(name).WaitForEnd()); }},
        {"peer closes", [this](char name, Text) { PeerAt(name).Close(); }},
        {"peer resets", [this](char name, Text) { PeerAt(name).Reset(); }},
        {"peer accepts", [this](char name, Text) { PeerAt(name) = mLate ? mLate->Accept() : mServer.Accept(); }},
        {"peer connects", [this](char name, Text) { PeerAt(name) = LoopbackPeer::ConnectTo(mListener.GetPort()); }},
    };
    ListenSocket<Probe>& mListener = Listen();
    const std::uint16_t mRefusing = LoopbackListener().GetPort();
    std::optional<LoopbackListener> mLate;
    /// Listens, but the first connection takes its only place.
    const LoopbackListener mFull{0, "127.0.0.1", 0};
    const LoopbackPeer mFirst = LoopbackPeer::ConnectTo(mFull.GetPort());
    char mDrain[9999];
    LogRecorder mLog;
    std::map<char, Probe*> mProbes;
    std::map<char, LoopbackPeer> mPeers;
};

/// A step a line: what is done, and after an arrow all that happens on it; after => without any pass.
constexpr Scene Scenes[] = {
    {"AFailedConnectIsRetriedUntilThePeerListens", R"(
a connects to refused forever -> a tcp: connect failed: Connection refused F
pass 5 ->
pass 1 -> a connect: -1 connect timeout F; a tcp: connect failed: Connection refused F
pass 5 ->
pass 1 -> a connect: -1 connect timeout F; a tcp: connect failed: Connection refused F
pass 4; a retries; a retries -> a tcp: connect failed: Connection refused F
pass 5 ->
listen; pass 1; A accepts; a retries -> a connect: -1 connect timeout F; a connect
A sends hello; a awaits 5; a has-option keepalive; a has-option reuseaddr; pass 60 ->
)"},
    {"WithoutRetriesLeftAFailedConnectEndsTheSocket", R"(
a connects to refused -> a tcp: connect failed: Connection refused F; a failed; a delete; a gone
b connects to refused once -> b tcp: connect failed: Connection refused F
pass 6 -> b connect: -1 connect timeout F; b tcp: connect failed: Connection refused F; b failed; b delete; b gone
c connects to full; pass 5 ->
pass 1 -> c connect: -1 connect timeout F; c failed; c delete; c gone
d connects to multicast
 -> d connect: failed: Network is unreachable F; d Add: -1 Invalid socket W; d delete; d gone
e connects to nowhere -> e Open: 0 Invalid SocketAddress F; e Add: -1 Invalid socket W; e delete; e gone
)"},
    // On such a socket no error is pending, and select calls it writable.
    {"AConnectThatFailsAtOnceIsNotTakenForAConnectionAndQueuesUpTo64MiB", R"(
a connects to multicast reconnect forever
 -> a connect: failed, reconnect pending: Network is unreachable I;
 a tcp: connect failed: Transport endpoint is not connected F
pass 6 -> a connect: -1 connect timeout F; a connect: failed, reconnect pending: Network is unreachable I;
 a tcp: connect failed: Transport endpoint is not connected F
a sends 67108864 -> a SendBuf: -1 Attempt to write to a non-connected socket, will be sent on connect W
a owes 67108864; a sends ! -> a SendBuf: -1 Attempt to write to a non-connected socket, will be sent on connect W;
 a delete; a gone
)"},
    {"EveryWayAPeerEndsTheConnection", R"(
a accepts -> a accept
A closes -> a disconnect; a delete; a gone
b accepts -> b accept
B sends-urgently -> b exception on select: Success F; b delete; b gone
c connects -> c connect
C sends-urgently -> c exception on select: Success F; c delete; c gone
d connects -> d connect
D resets -> d read: Connection reset by peer F; d shutdown: Transport endpoint is not connected E; d delete; d gone
e accepts -> e accept
E resets; e sees-an-error; e sends late -> e send: Connection reset by peer F; e disconnect;
 e shutdown: Transport endpoint is not connected E; e delete; e gone
)"},
    {"AReconnectFollowsAnOrderedCloseUnlessOnDisconnectCancelsIt", R"(
a connects reconnect -> a connect
a closes ->
A sees-the-end; A closes -> a disconnect; a disconnect; a reconnect
A accepts; a flushes; a closes ->
A sees-the-end; A closes -> a disconnect; a disconnect; a reconnect
A accepts; a on disconnect a sends nowhere; a flushes never; a closes -> a disconnect;
 a SendBuf: -1 Attempt to write to a non-ready socket W; a SendBuf: 0  * GetSocket() == INVALID_SOCKET I; a reconnect
A sees-the-end; A accepts; A sends again; a awaits 5 ->
a on disconnect a reconnects never, a closes; a flushes never; a closes -> a disconnect; a delete; a gone
A sees-the-end ->
b accepts -> b accept
b reconnects; b flushes never; b closes -> b disconnect; b Reconnect: 0 no address E; b Add: -1 Invalid socket W
)"},
    {"WhatCannotBeSentIsQueuedOrReported", R"(
a connects; a sends early
 -> a SendBuf: -1 Attempt to write to a non-connected socket, will be sent on connect W; a connect
A receives early; a reads; a flushes never; a closes; a sends late
 -> a SendBuf: -1 Attempt to write to a non-ready socket W; a SendBuf: 0  * CloseAndDelete() I; a delete; a gone
b pairs ->
b fills; b sends unsent -> b send: 11 ######################## W; b send: 11 ### SOCKET WOULD BLOCK/###  W; b send: 11 GetRemoteAddress().c_str()  W; b send: 11 ######################## W
B drains; b sends 3000000; b owes 3000006; B receives unsent; B receives 3000000; b owes 0; b fills; b sends !
 -> b send: 11 ######################## W; b send: 11 ### SOCKET WOULD BLOCK/###  W;
 b send: 11 GetRemoteAddress().c_str()  W; b send: 11 ######################## W
b owes 1; b flushes never; b closes -> b Closing: 0 Closing socket while data still left to send W; b delete; b gone
)"},
    {"AFlushingCloseSendsEverythingButWaitsForAStuckPeerOnly5Seconds", R"(
a accepts -> a accept
a sends last words; a closes ->
A receives last words; A sees-the-end; A closes -> a disconnect; a delete; a gone
b pairs ->
b fills; b sends tail -> b send: 11 ######################## W; b send: 11 ### SOCKET WOULD BLOCK/###  W; b send: 11 GetRemoteAddress().c_str()  W; b send: 11 ######################## W
b closes; pass 4 => b Closing: 4 Sending all data before closing I
pass 1 -> b Closing: 0 Closing socket while data still left to send W; b delete; b gone
)"},
    {"ASocketThatIsAddedTwiceStaysOnceAndOneWithTheDescriptorOfAnotherGoes", R"(
a accepts -> a accept
a is-added; a is-added -> a Add: fd Attempt to add socket already in add queue F;
 a Add: fd Attempt to add socket already in controlled queue F
A sends hello; a awaits 5 ->
b attaches; c attaches-that-of b; b is-added; c is-added; c is-added
 -> c Add: fd Attempt to add socket already in add queue F; c Add: fd Attempt to add socket already in add queue F;
 c delete; c gone
)"},
    {"TheLimitHoldsSocketsBackUntilAPlaceIsFree", R"(
a connects -> a connect
limit 2; B connects -> - accept: 2 ISocketHandler fd_set limit reached F
B sees-the-end; b connects to full
 -> b Open: 0 no space left in fd_set F; b Add: -1 Invalid socket W; b delete; b gone
limit 3; C connects -> - accept: 2 ISocketHandler fd_set limit reached F
C sees-the-end; limit 9; refuse; C connects -> - accept: -1 Not OK to accept W
C sees-the-end; limit 2; c attaches; c has-connected; c times 1; c is-added; d attaches; d retries; d is-added;
 e attaches; e closes; e is-added; pass 2 => - Select: 2 FD_SETSIZE reached W
a flushes never; a closes; pass 0 => - Select: 2 FD_SETSIZE reached W; a delete; a gone
limit 9 -> e Add: fd Trying to add socket with SetCloseAndDelete() true W; c connect;
 d RetryClientConnect: 0 no address E; d Add: -1 Invalid socket W; e delete; e gone
pass 1 -> c timeout
pass 9 ->
)"},
    {"WhatASocketDoesToItselfOrToOthersIsDoneInTheSamePassOrAtOnceInTheNext", R"(
a accepts; a on read a flushes never, a closes -> a accept
A sends x -> a delete; a gone
A sees-the-end; b accepts; b on read b closes-descriptor, b flushes never, b closes -> b accept
B sends x -> b read() after shutdown: 1 bytes read W; b read: Bad file descriptor F; b delete; b gone
c accepts; c on read c is-added, c flushes never, c closes -> c accept
C sends x -> c delete; c gone
d pairs; e pairs; f pairs ->
d on delete e flushes never, e closes; d flushes never; d closes -> d delete; d gone; e delete; e gone
f times 1; f retries; f has-connected; f closes; f closes-descriptor; pass 2 ->
f closes-descriptor -> f Socket::Close: 0 file descriptor invalid W
f stays; f closes -> f delete; f gone
g connects unread -> g connect
G sends 200 ->
g has 0; g flushes never; g closes -> g read() after shutdown: 200 bytes read W; g delete; g gone
h connects -> h connect
h retries; h flushes never; h closes -> h delete; h gone
)"},
    {"WhileReadingIsHeldWhatHasComeEndsNoWait", R"(
a pairs; b pairs; hold; A sends here; B sends there ->
a has 0; b has 0; release; a on read hold; pass 0; a has 4; b has 0; release; b awaits 5 ->
)"},
    // The first repeat is reported, then every 10000th, and after a good pass the error is new.
    {"SelectErrorsAreNotReportedEachTime", R"(
pass 0; select-badly 10002 -> - select: Invalid argument W; - select: Invalid argument W; - select: Invalid argument W
select-badly 1 -> - select: Invalid argument W
)"},
    {"WhatTheHandlerHoldsGoesWithItInEveryState", R"(
a connects reconnect -> a connect
a sends 8000000; a closes; b connects to multicast reconnect; c connects to refused reconnect; d connects; a is-added;
 e connects to nowhere; f connects to nowhere; g attaches; end
 => b connect: failed, reconnect pending: Network is unreachable I;
 e Open: 0 Invalid SocketAddress F; e Add: -1 Invalid socket W; f Open: 0 Invalid SocketAddress F;
 f Add: -1 Invalid socket W; f delete; f gone; e delete; e gone; a delete; a gone; b delete; b gone; c delete; c gone;
 d delete; d gone; g gone
)"},
    {"BytesThatTheRingCannotHoldAreLostWithALine", R"(
a connects small -> a connect
A sends 900; a awaits 900; A sends 100; a awaits 1000; A sends 1 -> a OnRead: 0 ibuf overflow W
a has 1000 ->
)"},
    {"DescriptorsThatAreGoneAreReportedAndDropped", R"(
a pairs; b pairs; a loses-descriptor -> - select: Bad file descriptor W; a graceful shutdown: Bad file descriptor E
pass 5 -> a fcntl(F_SETFL, O_NONBLOCK): Bad file descriptor E; a close: Bad file descriptor E; a delete; a gone
B sends x; b awaits 1 ->
ask-nobody 0; ask-nobody 2; ask-nobody 2; ask-nobody 3; ask-nobody 4; pass 1 -> - GetSocket/handler/4: 900 Did not find expected socket using file descriptor W;
 - GetSocket/handler/6: 900 Did not find expected socket using file descriptor W;
 - GetSocket/handler/7: 900 Did not find expected socket using file descriptor W;
 - GetSocket/handler/8: 900 Did not find expected socket using file descriptor W
pass 1 ->
)"},
};

} // namespace

TEST_P(SocketScene, Plays)
{
    std::istringstream lines(std::regex_replace(GetParam().script, std::regex("\n +|\n(?=###)"), " "));
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        SCOPED_TRACE(line);
        const std::size_t arrow = line.find('>') - 2;
        Do(line.substr(0, arrow));
        const std::string expected = line.substr(std::min(arrow + 4, line.size()));
        if (line[arrow + 1] == '-') {
            Expect(expected);
        } else {
            EXPECT_EQ(Seen(), expected);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, SocketScene, testing::ValuesIn(Scenes), NameOfScene);
