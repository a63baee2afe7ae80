#pragma once

#include "Sockets/ListenSocket.h"
#include "Sockets/SocketHandler.h"
#include "Sockets/TcpSocket.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

/// A TCP socket that notes what is called on it, in a list of the test: it can be gone when its end is looked at.
class Probe : public TcpSocket
{
public:
    /// For the listener, which knows nothing of the list.
    explicit Probe(ISocketHandler& handler, std::size_t inputSize = 0x40000) : TcpSocket(handler, inputSize)
    {
        sLast = this;
    }
    ~Probe() override { Note("gone"); }

    void OnConnect() override { Note("connect"); }
    void OnReconnect() override { Note("reconnect"); }
    void OnAccept() override { Note("accept"); }
    void OnConnectFailed() override { Note("failed"); }
    void OnTimeout() override { Note("timeout"); }
    void OnDelete() override { Note("delete"); }
    void OnDisconnect() override { Note("disconnect"); }
    void OnRead() override
    {
        if (mOn["read"]) mOn["read"]();
        TcpSocket::OnRead();
    }
    using TcpSocket::ibuf;
    char GetName() const { return mName; }
    void Send(const std::string& bytes) { SendBuf(bytes.data(), bytes.size()); }

    /// What the test does when it is read, deleted and so on.
    std::map<std::string, std::function<void()>> mOn;
    static inline Lines* sEvents = nullptr;
    static inline char sNextName = 'a';
    /// The one that was made last.
    static inline Probe* sLast = nullptr;

private:
    void Note(const char* event)
    {
        mEvents->push_back(std::string(1, mName) + " " + event);
        if (mOn[event]) mOn[event]();
    }

    Lines* const mEvents = sEvents;
    const char mName = sNextName++;
};

/// A handler whose passes the test makes, and the far ends on loopback. All that happens is noted in its order: what is
/// called on a probe ("a connect"; the first probe is a), and error lines ("a bind: Invalid argument F", with the first
/// letter of the level, the text of an errno for its number, fd for that of the socket, and - for any other socket).
class SocketTest : public testing::Test, protected StdLog
{
protected:
    struct SmallHandler : SocketHandler
    {
        using SocketHandler::SocketHandler;
        std::size_t GetLimit() const override { return mLimit != 0 ? mLimit : SocketHandler::GetLimit(); }
        bool OkToAccept() const override { return mOkToAccept; }
        bool IsReadingHeld() override { return mHeld; }
        std::size_t mLimit = 0;
        bool mOkToAccept = true;
        bool mHeld = false;
    };

    SocketTest()
    {
        Probe::sEvents = &mEvents;
        Probe::sNextName = 'a';
    }

    void error(ISocketHandler*, Socket* socket, const std::string& call, int error, const std::string& text,
               LogLevel level) override
    {
        const auto* const probe = dynamic_cast<Probe*>(socket);
        const bool isDescriptor =
            probe && error > 0 &&
            (call == "Open" || (error == probe->GetSocket() && (call == "Add" || call == "Select")));
        const std::string number = isDescriptor ? "fd " : std::to_string(error) + " ";
        std::string line = std::string(1, probe ? probe->GetName() : '-') + " " + call + ": " +
                           (text == std::strerror(error) ? "" : number) + text + " ";
        std::replace(line.begin(), line.end(), '\n', '/');
        mEvents.push_back(line + "WEFI"[static_cast<std::size_t>(level)]);
    }

    bool PassUntil(const std::function<bool()>& done)
    {
        return Await(done, [this] { mHandler.Select(0, 2000); });
    }
    void Pass(std::time_t seconds = 0)
    {
        mNow += seconds;
        mHandler.Select(0, 0);
    }
    /// Passes until as much has happened; none of them may wait in vain. Then on until one waits, so that all is seen.
    void Expect(const std::string& expected)
    {
        using Clock = std::chrono::steady_clock;
        std::size_t count = expected.empty() ? 0 : 1;
        for (std::size_t at = 0; (at = expected.find("; ", at)) != std::string::npos; ++at)
            ++count;
        const auto start = Clock::now();
        while (mEvents.size() < count && Clock::now() - start < std::chrono::seconds(10))
            EXPECT_LE(mHandler.Select(10, 0), 0) << "ready and not dealt with";
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
        for (auto begin = Clock::now(); Clock::now() - begin < std::chrono::milliseconds(1);) {
            ASSERT_LT(begin - start, std::chrono::seconds(20)) << "the passes never wait";
            begin = Clock::now();
            mHandler.Select(0, 1000);
        }
        EXPECT_EQ(Seen(), expected);
    }
    std::string Seen()
    {
        std::string seen;
        for (const std::string& event : std::exchange(mEvents, {}))
            seen += (seen.empty() ? "" : "; ") + event;
        return seen;
    }
    /// A listener under the handler.
    template <class Accepted = Probe>
    ListenSocket<Accepted>& Listen()
    {
        auto* const listener = mHandler.Own(std::make_unique<ListenSocket<Accepted>>(mHandler));
        EXPECT_EQ(listener->Bind(0, 20), 0);
        mHandler.Add(listener);
        return *listener;
    }
    static Probe& Make(SocketHandler& handler) { return *handler.Own(std::make_unique<Probe>(handler)); }
    static Probe& Open(Probe& probe, std::uint16_t port, const std::string& host = "127.0.0.1")
    {
        EXPECT_TRUE(probe.Open(host, port) ? !probe.CloseAndDelete() : probe.CloseAndDelete());
        probe.Handler().Add(&probe);
        return probe;
    }

    DescriptorCheck mDescriptorCheck;
    std::time_t mNow = 1000;
    Lines mEvents;
    const LoopbackListener mServer;
    LoopbackPeer mPeer{-1};
    SmallHandler mHandler{this, [this] { return mNow; }};
};
