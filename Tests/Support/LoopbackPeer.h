#pragma once

#include "Tests/Support/Await.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

inline sockaddr_in LoopbackAddress(const std::string& host, std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    EXPECT_EQ(inet_pton(AF_INET, host.c_str(), &address.sin_addr), 1);
    return address;
}

/// The far end of a connection under test: a plain blocking socket whose waits end after 10 s.
class LoopbackPeer
{
public:
    explicit LoopbackPeer(int fd = -1) : mFd(fd) {}
    LoopbackPeer(LoopbackPeer&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    LoopbackPeer& operator=(LoopbackPeer&& other) noexcept
    {
        std::swap(mFd, other.mFd);
        std::swap(mReceived, other.mReceived);
        return *this;
    }
    ~LoopbackPeer() { Close(); }

    static LoopbackPeer ConnectTo(std::uint16_t port, const std::string& host = "127.0.0.1",
                                  const std::string& source = "127.0.0.1", std::uint16_t sourcePort = 0)
    {
        LoopbackPeer peer = Bound(source, sourcePort);
        const sockaddr_in to = LoopbackAddress(host, port);
        EXPECT_EQ(::connect(peer.mFd, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
        return peer;
    }
    static LoopbackPeer Bound(const std::string& host, std::uint16_t port)
    {
        LoopbackPeer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        setsockopt(peer.mFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        const sockaddr_in address = LoopbackAddress(host, port);
        EXPECT_EQ(::bind(peer.mFd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        return peer;
    }

    int GetFd() const { return mFd; }
    std::uint16_t GetPort() const
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(mFd, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    /// False if the far end has closed meanwhile.
    bool Send(const std::string& bytes) const
    {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t size = ::send(mFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (size <= 0) return false;
            sent += static_cast<std::size_t>(size);
        }
        return true;
    }
    /// That many bytes; fewer if the connection ends before, or nothing comes any more.
    std::string Receive(std::size_t size) const
    {
        while (mReceived.size() < size && ReceiveSome() > 0) {
        }
        return Take(size);
    }
    /// What comes up to and including this text, or up to the end.
    std::string ReceiveThrough(const std::string& text) const
    {
        std::size_t found = std::string::npos;
        bool isOpen = true;
        Await([&] { return (found = mReceived.find(text)) != std::string::npos || !isOpen; },
              [&] { isOpen = ReceiveSome() > 0; });
        return Take(found == std::string::npos ? found : found + text.size());
    }
    std::string ReceiveToEnd() const { return Receive(std::string::npos); }
    /// Waits for the end of the connection; what comes before it is dropped. False if there is none.
    bool WaitForEnd() const
    {
        for (;; mReceived.clear())
            if (const int result = ReceiveSome(); result <= 0) return result == 0;
    }
    void Close()
    {
        if (mFd != -1) ::close(std::exchange(mFd, -1));
    }
    /// Closes with a reset.
    void Reset()
    {
        const linger value{1, 0};
        setsockopt(mFd, SOL_SOCKET, SO_LINGER, &value, sizeof value);
        Close();
    }
    bool IsReadable() const { return WaitFor(mFd, POLLIN) != 0; }
    /// Waits for these events of a descriptor, or for its error or end; none if nothing comes.
    static int WaitFor(int fd, short events)
    {
        pollfd entry{fd, events, 0};
        return ::poll(&entry, 1, 10000) == 1 ? entry.revents : 0;
    }

private:
    /// 1 if bytes have come, 0 at the end, -1 if nothing comes.
    int ReceiveSome() const
    {
        char buffer[65536];
        if (!IsReadable()) return -1;
        const ssize_t size = ::recv(mFd, buffer, sizeof buffer, MSG_DONTWAIT);
        if (size > 0) mReceived.append(buffer, static_cast<std::size_t>(size));
        return size > 0 ? 1 : 0;
    }
    std::string Take(std::size_t size) const
    {
        std::string taken = mReceived.substr(0, size);
        mReceived.erase(0, taken.size());
        return taken;
    }

    int mFd;
    mutable std::string mReceived;
};

/// A listening socket on loopback.
class LoopbackListener
{
public:
    explicit LoopbackListener(std::uint16_t port = 0, const std::string& host = "127.0.0.1", int backlog = 20)
        : mSocket(LoopbackPeer::Bound(host, port))
    {
        EXPECT_EQ(::listen(mSocket.GetFd(), backlog), 0);
    }
    std::uint16_t GetPort() const { return mSocket.GetPort(); }
    LoopbackPeer Accept() const
    {
        return LoopbackPeer(mSocket.IsReadable() ? ::accept4(mSocket.GetFd(), nullptr, nullptr, SOCK_CLOEXEC) : -1);
    }

private:
    LoopbackPeer mSocket;
};

/// Fails a test that leaves more or fewer descriptors open than there were.
class DescriptorCheck
{
public:
    ~DescriptorCheck() { EXPECT_EQ(Count(), mCount) << "descriptors"; }

private:
    static std::ptrdiff_t Count()
    {
        using Files = std::filesystem::directory_iterator;
        return std::distance(Files("/proc/self/fd"), Files());
    }
    const std::ptrdiff_t mCount = Count();
};
