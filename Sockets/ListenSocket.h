#pragma once

#include "Sockets/Socket.h"

#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

/// Accepts connections, each of which becomes an X on the same handler, owned by it.
/// @tparam HandlerOfX what an X takes for its handler.
template <class X, class HandlerOfX = ISocketHandler>
class ListenSocket : public Socket
{
public:
    explicit ListenSocket(HandlerOfX& handler) : Socket(handler), mOwner(handler), mSpare(OpenSpare()) {}
    ~ListenSocket() override
    {
        if (mSpare != -1) ::close(mSpare);
    }

    /// Listens on the wildcard address. 0, or -1 with an error line. @param port 0 for any.
    int Bind(std::uint16_t port, int depth)
    {
        const int fd = CreateSocket(SOCK_STREAM, "tcp");
        if (fd == -1) return -1;
        const Ipv4Address address(port);
        const bool isBound = ::bind(fd, address.GetSockaddr(), address.GetLength()) == 0;
        if (!isBound || ::listen(fd, depth) == -1) {
            LogError(isBound ? "listen" : "bind", errno, LogLevel::Fatal);
            ::close(fd);
            return -1;
        }
        // A client that is gone again by the time of the accept must not stop the passes.
        SetNonblocking(fd);
        mDepth = depth;
        Attach(fd);
        return 0;
    }
    /// The port that is listened on; 0 before Bind.
    std::uint16_t GetPort() const
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (getsockname(GetSocket(), reinterpret_cast<sockaddr*>(&address), &size) == -1) return 0;
        return ntohs(address.sin_port);
    }

    void OnOptions(int fd) override { SetSoReuseaddr(fd, true); }

    /// Takes what the backlog can hold, so that a burst of clients is not sent away to come again a second later.
    void OnRead() override
    {
        for (int i = 0; i < mDepth && AcceptOne(); ++i) {
        }
    }

private:
    /// False if there is no connection to accept.
    bool AcceptOne()
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        const int fd = ::accept4(GetSocket(), reinterpret_cast<sockaddr*>(&address), &size, SOCK_CLOEXEC);
        if (fd == -1) {
            OnFailedAccept(errno);
            return false;
        }
        if (!Handler().OkToAccept()) {
            LogError("accept", -1, "Not OK to accept", LogLevel::Warning);
            ::close(fd);
            return true;
        }
        const std::size_t limit = Handler().GetLimit();
        if (Handler().GetCount() >= limit || static_cast<std::size_t>(fd) >= limit) {
            LogError("accept", static_cast<int>(Handler().GetCount()), "ISocketHandler fd_set limit reached",
                     LogLevel::Fatal);
            ::close(fd);
            return true;
        }
        X* const socket = mOwner.Own(std::make_unique<X>(mOwner));
        socket->SetParent(this);
        socket->Attach(fd);
        socket->SetNonblocking(fd);
        socket->SetRemoteAddress(Ipv4Address(address));
        socket->SetConnected();
        socket->Init();
        Handler().Add(socket);
        socket->OnAccept();
        return true;
    }

    static int OpenSpare() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }

    void OnFailedAccept(int error)
    {
        if (error == EAGAIN) return;
        LogError("accept", error, LogLevel::Error);
        if (error != EMFILE && error != ENFILE) return;
        // The client would stay in the backlog and keep the passes busy: take it with the spare descriptor and close
        // it.
        if (mSpare != -1) ::close(mSpare);
        const int refused = ::accept4(GetSocket(), nullptr, nullptr, SOCK_CLOEXEC);
        if (refused != -1) ::close(refused);
        mSpare = OpenSpare();
    }

    HandlerOfX& mOwner;
    int mDepth{};
    int mSpare;
};
