#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Sockets/Socket.scenes.h"
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
    std::size_t HeldBy(char name) { return At(name).ibuf.GetLength(); }
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
            const ssize_t more = ::recv(peer.GetFd(), &bytes[size], bytes.size() - size, MSG_DONTWAIT);
            size += more > 0 ? static_cast<std::size_t>(more) : 0;
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
        {"closes-descriptor", [this](char name, Text) { EXPECT_EQ(At(name).Close(), 0); }},
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
        {"takes",
         [this](char name, Text text) {
             std::string bytes = Bytes(text);
             EXPECT_TRUE(At(name).ibuf.Read(bytes.data(), bytes.size()) && bytes == Bytes(text));
         }},
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

INSTANTIATE_TEST_SUITE_P(, SocketScene, testing::ValuesIn(ScenesOf(SocketScenes)), NameOfScene);
