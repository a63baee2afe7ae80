#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include <arpa/inet.h>
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

/// The far end of a connection under test: a plain blocking socket whose waits have a deadline.
class LoopbackPeer
{
public:
    explicit LoopbackPeer(int fd) : mFd(fd) {}
    LoopbackPeer(LoopbackPeer&& other) noexcept : mFd(other.mFd) { other.mFd = -1; }
    LoopbackPeer& operator=(LoopbackPeer&& other) noexcept
    {
        std::swap(mFd, other.mFd);
        return *this;
    }
    ~LoopbackPeer() { Close(); }

    static LoopbackPeer ConnectTo(std::uint16_t port, const std::string& host = "127.0.0.1",
                                  const std::string& source = "127.0.0.1", std::uint16_t sourcePort = 0)
    {
        LoopbackPeer peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        setsockopt(peer.mFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        const sockaddr_in from = LoopbackAddress(source, sourcePort);
        EXPECT_EQ(::bind(peer.mFd, reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
        const sockaddr_in to = LoopbackAddress(host, port);
        EXPECT_EQ(::connect(peer.mFd, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
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
    /// That many bytes; fewer if the connection ends before, or nothing comes for 10 s.
    std::string Receive(std::size_t size) const
    {
        std::string bytes;
        while (bytes.size() < size && IsReadable()) {
            char buffer[65536];
            const ssize_t piece = ::recv(mFd, buffer, std::min(sizeof buffer, size - bytes.size()), 0);
            if (piece <= 0) break;
            bytes.append(buffer, static_cast<std::size_t>(piece));
        }
        return bytes;
    }
    /// Waits for the end of the connection; what comes before it is dropped. False if there is none.
    bool WaitForEnd() const
    {
        char buffer[65536];
        ssize_t size = 1;
        while (size > 0 && IsReadable())
            size = ::recv(mFd, buffer, sizeof buffer, 0);
        return size <= 0;
    }
    void Close()
    {
        if (mFd != -1) ::close(mFd);
        mFd = -1;
    }
    /// Closes with a reset.
    void Reset()
    {
        const linger value{1, 0};
        setsockopt(mFd, SOL_SOCKET, SO_LINGER, &value, sizeof value);
        Close();
    }

protected:
    bool IsReadable() const
    {
        pollfd entry{mFd, POLLIN, 0};
        return ::poll(&entry, 1, 10000) == 1;
    }

private:
    int mFd;
};

/// A listening socket on loopback.
class LoopbackListener
{
public:
    explicit LoopbackListener(std::uint16_t port = 0, const std::string& host = "127.0.0.1")
        : mSocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(mSocket.GetFd(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        const sockaddr_in address = LoopbackAddress(host, port);
        EXPECT_EQ(::bind(mSocket.GetFd(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(mSocket.GetFd(), 20), 0);
    }
    std::uint16_t GetPort() const { return mSocket.GetPort(); }
    LoopbackPeer Accept() const
    {
        pollfd entry{mSocket.GetFd(), POLLIN, 0};
        if (::poll(&entry, 1, 10000) != 1) return LoopbackPeer(-1);
        return LoopbackPeer(::accept4(mSocket.GetFd(), nullptr, nullptr, SOCK_CLOEXEC));
    }

private:
    LoopbackPeer mSocket;
};
