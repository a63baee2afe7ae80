#pragma once

#include "Audit/Audit.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>

inline boost::asio::ip::tcp::endpoint AnyLoopbackPort()
{
    return {boost::asio::ip::address_v4::loopback(), 0};
}

constexpr std::chrono::seconds Deadline{20};

/// A telnet client on a plain socket.
class ShellClient
{
public:
    explicit ShellClient(const boost::asio::ip::tcp::endpoint& endpoint) : ShellClient() { Connect(endpoint); }
    ShellClient() : mSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
    ShellClient(ShellClient&& other) noexcept
        : mSocket(std::exchange(other.mSocket, -1)), mReceived(std::move(other.mReceived))
    {}
    ~ShellClient() { Close(); }

    void Connect(const boost::asio::ip::tcp::endpoint& endpoint)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(endpoint.port());
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(::connect(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    void Close()
    {
        if (mSocket >= 0) ::close(std::exchange(mSocket, -1));
    }
    void ShutdownOutput() { ::shutdown(mSocket, SHUT_WR); }
    /// False if the far end has closed meanwhile.
    bool Send(const std::string& text)
    {
        for (std::size_t sent = 0; sent < text.size();) {
            const ssize_t length = ::send(mSocket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (length <= 0) return false;
            sent += static_cast<std::size_t>(length);
        }
        return true;
    }
    /// What comes up to and including this text. At the deadline, or if the far end closes, the test fails and this
    /// is what has come.
    std::string ReadUntil(const std::string& text)
    {
        std::size_t searched = 0;
        for (;;) {
            const std::size_t found = mReceived.find(text, searched);
            if (found != std::string::npos) {
                const std::string result = mReceived.substr(0, found + text.size());
                mReceived.erase(0, result.size());
                return result;
            }
            searched = mReceived.size() < text.size() ? 0 : mReceived.size() - text.size();
            if (Receive()) continue;
            ADD_FAILURE() << "no '" << text << "' came";
            return std::exchange(mReceived, std::string());
        }
    }
    /// What comes until the far end closes.
    std::string ReadToEnd()
    {
        while (Receive()) {
        }
        return std::exchange(mReceived, std::string());
    }
    void SkipGreeting() { ReadUntil("more about 'cmd'.\n"); }

private:
    bool Receive()
    {
        pollfd waiting{mSocket, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(std::chrono::milliseconds(Deadline).count())) != 1) {
            ADD_FAILURE() << "nothing came before the deadline";
            return false;
        }
        char block[65536];
        const ssize_t length = ::recv(mSocket, block, sizeof block, 0);
        if (length <= 0) return false;
        mReceived.append(block, static_cast<std::size_t>(length));
        return true;
    }

    int mSocket;
    std::string mReceived;
};

/// A log in memory that a test can wait on.
class WaitingAudit : public Audit
{
public:
    using Audit::WriteStamped;
    void WriteStamped(std::uint32_t, const char* format, MessageArgs args) override
    {
        char line[4096];
        std::vsnprintf(line, sizeof line, format, args.list);
        const std::lock_guard<std::mutex> lock(mLock);
        mText += line;
        mChanged.notify_all();
    }
    bool WaitFor(const std::string& text)
    {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, Deadline, [&] { return mText.find(text) != std::string::npos; });
    }
    std::string Text()
    {
        const std::lock_guard<std::mutex> lock(mLock);
        return mText;
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::string mText;
};
