#pragma once

#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <gmock/gmock.h>

#include <chrono>
#include <utility>

inline boost::asio::ip::tcp::endpoint AnyLoopbackPort()
{
    return {boost::asio::ip::address_v4::loopback(), 0};
}

constexpr std::chrono::seconds Deadline{20};

/// Runs the service on this thread until the shell has taken up its next client.
inline void WaitForConnection(boost::asio::io_service& service, cmd::CommandLine& shell)
{
    bool opened = false;
    const boost::signals2::scoped_connection connection =
        shell.GetServer().ConnectionOpened.connect([&](const auto&) { opened = true; });
    while (!opened)
        ASSERT_NE(service.run_one_for(Deadline), 0u);
}

/// A telnet client.
class ShellClient : public LoopbackPeer
{
public:
    explicit ShellClient(const boost::asio::ip::tcp::endpoint& endpoint) : LoopbackPeer(ConnectTo(endpoint.port())) {}

    void ShutdownOutput() { ::shutdown(GetFd(), SHUT_WR); }
    /// What comes up to and including this text. If the far end closes or falls silent before, the test fails and this
    /// is what has come.
    std::string ReadUntil(const std::string& text)
    {
        for (;;) {
            const std::size_t found = mReceived.find(text);
            if (found != std::string::npos) {
                std::string result = mReceived.substr(0, found + text.size());
                mReceived.erase(0, result.size());
                return result;
            }
            if (ReceiveSome()) continue;
            ADD_FAILURE() << "no '" << text << "' came";
            return std::exchange(mReceived, std::string());
        }
    }
    /// What comes until the far end closes.
    std::string ReadToEnd()
    {
        while (ReceiveSome()) {
        }
        return std::exchange(mReceived, std::string());
    }
    void SkipGreeting() { ReadUntil("more about 'cmd'.\n"); }

private:
    bool ReceiveSome()
    {
        EXPECT_TRUE(IsReadable()) << "nothing came before the deadline";
        char block[65536];
        const ssize_t length = ::recv(GetFd(), block, sizeof block, MSG_DONTWAIT);
        if (length > 0) mReceived.append(block, static_cast<std::size_t>(length));
        return length > 0;
    }

    std::string mReceived;
};
