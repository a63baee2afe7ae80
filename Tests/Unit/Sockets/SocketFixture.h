#pragma once

#include "Sockets/ListenSocket.h"
#include "Sockets/SocketHandler.h"
#include "Sockets/TcpSocket.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

/// Keeps the error lines of a handler as "call: number text".
class ErrorLines : public StdLog
{
public:
    void error(ISocketHandler*, Socket*, const std::string& call, int error, const std::string& text, LogLevel) override
    {
        mLines.push_back(call + ": " + std::to_string(error) + " " + text);
    }
    std::size_t Count(const std::string& start) const
    {
        const auto begins = [&](const std::string& line) { return line.rfind(start, 0) == 0; };
        return static_cast<std::size_t>(std::count_if(mLines.begin(), mLines.end(), begins));
    }
    Lines mLines;
};

/// A TCP socket that notes what is called on it, in a list of the test: it can be gone when its end is looked at.
class Probe : public TcpSocket
{
public:
    /// For the listener, which knows nothing of the list.
    explicit Probe(ISocketHandler& handler, std::size_t inputSize = 0x40000) : TcpSocket(handler, inputSize)
    {
        sLast = this;
    }
    ~Probe() override { mEvents->push_back("gone"); }

    void OnConnect() override { mEvents->push_back("connect"); }
    void OnReconnect() override { mEvents->push_back("reconnect"); }
    void OnAccept() override { mEvents->push_back("accept"); }
    void OnConnectFailed() override { mEvents->push_back("failed"); }
    void OnDelete() override { mEvents->push_back("delete"); }
    void OnDisconnect() override
    {
        mEvents->push_back("disconnect");
        if (mOnDisconnect) mOnDisconnect(*this);
    }
    void OnRead() override
    {
        if (mOnRead) mOnRead(*this);
        TcpSocket::OnRead();
    }
    std::size_t GetHeld() const { return ibuf.GetLength(); }
    void CloseAtOnce()
    {
        SetFlushBeforeClose(false);
        SetCloseAndDelete();
    }

    std::function<void(Probe&)> mOnDisconnect;
    std::function<void(Probe&)> mOnRead;
    static inline Lines* sEvents = nullptr;
    /// The one that was made last.
    static inline Probe* sLast = nullptr;

private:
    Lines* const mEvents = sEvents;
};

/// A handler whose passes the test makes, and the far ends on loopback.
class SocketTest : public testing::Test
{
protected:
    struct SmallHandler : SocketHandler
    {
        using SocketHandler::SocketHandler;
        std::size_t GetLimit() const override { return mLimit != 0 ? mLimit : SocketHandler::GetLimit(); }
        bool IsReadingHeld() override { return mHeld; }
        std::size_t mLimit = 0;
        bool mHeld = false;
    };

    SocketTest() { Probe::sEvents = &mEvents; }

    bool PassUntil(const std::function<bool()>& done)
    {
        return Await(done, [this] { mHandler.Select(0, 2000); });
    }
    bool PassUntil(const std::string& event)
    {
        return PassUntil([&] { return std::count(mEvents.begin(), mEvents.end(), event) != 0; });
    }
    bool PassUntilErrors(const std::string& start, std::size_t count = 1)
    {
        return PassUntil([&] { return mErrors.Count(start) == count; });
    }
    void Pass(std::time_t seconds = 0)
    {
        mNow += seconds;
        mHandler.Select(0, 0);
    }
    Lines TakeEvents() { return std::exchange(mEvents, {}); }
    Lines TakeErrors() { return std::exchange(mErrors.mLines, {}); }
    /// A listener under the handler; its port.
    template <class Accepted = Probe>
    std::uint16_t Listen()
    {
        auto* const listener = mHandler.Own(std::make_unique<ListenSocket<Accepted>>(mHandler));
        EXPECT_EQ(listener->Bind(0, 20), 0);
        mHandler.Add(listener);
        return listener->GetPort();
    }
    /// A connection from mPeer, under the handler.
    Probe& Accept()
    {
        mPeer = LoopbackPeer::ConnectTo(Listen());
        EXPECT_TRUE(PassUntil("accept"));
        Pass();
        mEvents.clear();
        return *Probe::sLast;
    }
    /// One to mPeer, which has been accepted; made by this side.
    Probe& Connected(bool reconnect = false)
    {
        Probe& probe = Connect(mServer.GetPort(), reconnect);
        mPeer = mServer.Accept();
        EXPECT_TRUE(PassUntil("connect"));
        mEvents.clear();
        return probe;
    }
    Probe& Connect(std::uint16_t port, bool reconnect = false, const std::string& host = "127.0.0.1")
    {
        return Connect(mHandler, port, reconnect, host);
    }
    static Probe& Connect(SocketHandler& handler, std::uint16_t port, bool reconnect = false,
                          const std::string& host = "127.0.0.1", int retries = -1)
    {
        auto* const probe = handler.Own(std::make_unique<Probe>(handler));
        probe->SetConnectionRetry(retries);
        probe->SetReconnect(reconnect);
        probe->Open(host, port);
        handler.Add(probe);
        return *probe;
    }

    std::time_t mNow = 1000;
    ErrorLines mErrors;
    Lines mEvents;
    const LoopbackListener mServer;
    LoopbackPeer mPeer{-1};
    SmallHandler mHandler{&mErrors, [this] { return mNow; }};
};
