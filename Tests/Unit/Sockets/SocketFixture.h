#pragma once

#include "Sockets/ListenSocket.h"
#include "Sockets/SocketHandler.h"
#include "Sockets/TcpSocket.h"
#include "Tests/Support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

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
        std::size_t count = 0;
        for (const std::string& line : mLines)
            count += line.compare(0, start.size(), start) == 0 ? 1 : 0;
        return count;
    }
    std::vector<std::string> mLines;
};

/// What happened to the probes of a test, by name: a probe can be gone when its end is looked at.
using Events = std::vector<std::string>;

/// A TCP socket that notes what is called on it.
class Probe : public TcpSocket
{
public:
    Probe(ISocketHandler& handler, Events& events, std::size_t inputSize = 0x40000)
        : TcpSocket(handler, inputSize), mEvents(&events)
    {}
    /// For the listener, which knows nothing of events.
    explicit Probe(ISocketHandler& handler) : Probe(handler, *sEvents) { sAccepted = this; }
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

    std::function<void(Probe&)> mOnDisconnect;
    std::function<void(Probe&)> mOnRead;
    static inline Events* sEvents = nullptr;
    static inline Probe* sAccepted = nullptr;

private:
    Events* const mEvents;
};

class SmallHandler : public SocketHandler
{
public:
    using SocketHandler::SocketHandler;
    std::size_t GetLimit() const override { return mLimit != 0 ? mLimit : SocketHandler::GetLimit(); }

    std::size_t mLimit = 0;
};

class SocketTest : public testing::Test
{
protected:
    SocketTest() { Probe::sEvents = &mEvents; }

    /// Runs passes until it is so; false if that takes 10 s.
    bool PassUntil(const std::function<bool()>& done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            mHandler.Select(0, 2000);
        }
        return true;
    }
    bool PassUntil(const std::string& event)
    {
        return PassUntil([&] { return std::count(mEvents.begin(), mEvents.end(), event) != 0; });
    }
    void Pass() { mHandler.Select(0, 0); }
    std::uint16_t Listen()
    {
        auto* const listener = mHandler.Own(std::make_unique<ListenSocket<Probe>>(mHandler));
        EXPECT_EQ(listener->Bind(0, 20), 0);
        mHandler.Add(listener);
        return listener->GetPort();
    }
    /// A connected pair: ours under the handler, and the peer.
    Probe& Accept(LoopbackPeer& peer)
    {
        peer = LoopbackPeer::ConnectTo(Listen());
        EXPECT_TRUE(PassUntil("accept"));
        Pass();
        mEvents.clear();
        return *Probe::sAccepted;
    }
    Probe& Connect(const std::string& host, std::uint16_t port, bool reconnect = false, int retries = -1)
    {
        return Connect(mHandler, host, port, reconnect, retries);
    }
    Probe& Connect(SocketHandler& handler, const std::string& host, std::uint16_t port, bool reconnect,
                   int retries = -1)
    {
        auto* const probe = handler.Own(std::make_unique<Probe>(handler, mEvents));
        probe->SetConnectionRetry(retries);
        probe->SetReconnect(reconnect);
        probe->Open(host, port);
        handler.Add(probe);
        return *probe;
    }

    std::time_t mNow = 1000;
    ErrorLines mErrors;
    Events mEvents;
    SmallHandler mHandler{&mErrors, [this] { return mNow; }};
};
