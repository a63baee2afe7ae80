#include "Sockets/TcpSocket.h"

#include "Audit/Audit.h"

#include <cerrno>
#include <cstring>

#include <sys/socket.h>
#include <unistd.h>

bool TcpSocket::Open(const std::string& host, std::uint16_t port)
{
    return Open(Ipv4Address(host, port));
}

bool TcpSocket::Open(const SocketAddress& address, const SocketAddress* bindAddress)
{
    if (!address.IsValid()) {
        LogError("Open", 0, "Invalid SocketAddress", LogLevel::Fatal);
        SetCloseAndDelete();
        return false;
    }
    if (Handler().GetCount() >= Handler().GetLimit()) {
        LogError("Open", 0, "no space left in fd_set", LogLevel::Fatal);
        SetCloseAndDelete();
        return false;
    }
    SetConnecting(false);
    const int fd = CreateSocket(SOCK_STREAM, "tcp");
    if (fd == -1) return false;
    const bool isTooHigh = static_cast<std::size_t>(fd) >= Handler().GetLimit();
    if (isTooHigh) LogError("Open", fd, "no space left in fd_set", LogLevel::Fatal);
    if (isTooHigh || !SetNonblocking(fd)) {
        ::close(fd);
        SetCloseAndDelete();
        return false;
    }
    SetClientRemoteAddress(address);
    ResetShutdown();
    if (bindAddress && bindAddress->IsValid() &&
        ::bind(fd, bindAddress->GetSockaddr(), bindAddress->GetLength()) == -1) {
        LogError("bind", errno, LogLevel::Fatal);
    }
    if (::connect(fd, address.GetSockaddr(), address.GetLength()) == 0) {
        Attach(fd);
        SetCallOnConnect();
        return true;
    }
    const int error = errno;
    const bool isUnderWay = error == EINPROGRESS;
    if (isUnderWay || mReconnect) {
        if (!isUnderWay) LogError("connect: failed, reconnect pending", error, LogLevel::Info);
        Attach(fd);
        SetConnecting();
        return true;
    }
    LogError("connect: failed", error, LogLevel::Fatal);
    ::close(fd);
    SetCloseAndDelete();
    return false;
}

bool TcpSocket::Reopen()
{
    const SocketAddress* const stored = GetClientRemoteAddress();
    if (!stored) return false;
    const auto address = stored->Clone();
    Open(*address);
    return true;
}

Socket::Ending TcpSocket::EndConnection()
{
    if (Lingers()) return Ending::Lingers;
    if (IsConnected() && mReconnect) return Reconnect() ? Ending::Reopened : Ending::Leaves;
    if (IsConnected() && GetOutputLength() != 0) {
        LogError("Closing", 0, "Closing socket while data still left to send", LogLevel::Warning);
    }
    return Ending::Leaves;
}

bool TcpSocket::Lingers()
{
    constexpr std::time_t LingerSeconds = 4;
    if (!IsConnected() || !GetFlushBeforeClose() || Handler().Now() - GetCloseTime() > LingerSeconds) return false;
    if (GetOutputLength() != 0) {
        LogError("Closing", static_cast<int>(GetOutputLength()), "Sending all data before closing", LogLevel::Info);
    } else if ((GetShutdown() & ShutWrite) == 0) {
        if (::shutdown(GetSocket(), SHUT_WR) == -1) LogError("graceful shutdown", errno, LogLevel::Error);
        SetShutdown(ShutWrite);
    }
    return true;
}

bool TcpSocket::Reconnect()
{
    SetCloseAndDelete(false);
    mIsReconnect = true;
    SetConnected(false);
    Close();
    OnDisconnect();
    // OnDisconnect may have cancelled the reconnect; its mark for closing was for a descriptor that no longer exists.
    if (!mReconnect) return false;
    if (!Reopen()) LogError("Reconnect", 0, "no address", LogLevel::Error);
    ResetConnectionRetries();
    return true;
}

int TcpSocket::Close()
{
    const int fd = GetSocket();
    if (fd == -1) return Socket::Close();
    SetNonblocking(fd);
    if (IsConnected() && (GetShutdown() & ShutWrite) == 0 && ::shutdown(fd, SHUT_WR) == -1) {
        LogError("shutdown", errno, LogLevel::Error);
    }
    char rest[1000];
    const ssize_t unread = ::recv(fd, rest, sizeof rest, MSG_DONTWAIT);
    if (unread > 0) {
        LogError("read() after shutdown", static_cast<int>(unread), "bytes read", LogLevel::Warning);
    }
    return Socket::Close();
}

void TcpSocket::OnOptions(int fd)
{
    SetSoReuseaddr(fd, true);
    SetSoKeepalive(fd, true);
}

void TcpSocket::CloseAtOnce()
{
    SetFlushBeforeClose(false);
    SetCloseAndDelete();
}

void TcpSocket::OnRead()
{
    const std::ptrdiff_t size = ReceiveIntoRing();
    if (size == -1) {
        // Nothing there after all: no reason to give the connection up.
        if (errno == EAGAIN || errno == EINTR) return;
        LogError("read", errno, LogLevel::Fatal);
        CloseAtOnce();
    } else if (size == 0) {
        OnDisconnect();
        CloseAtOnce();
        SetShutdown(ShutByPeer);
    } else if (size > 0) {
        mBytesReceived += static_cast<std::uint64_t>(size);
    } else {
        LogError("OnRead", static_cast<int>(size), "abnormal value from recv", LogLevel::Error);
    }
}

std::ptrdiff_t TcpSocket::ReceiveIntoRing()
{
    const std::size_t room = ibuf.GetSpace() / ReadSize * ReadSize;
    if (room != 0) {
        iovec pieces[2];
        msghdr message{};
        message.msg_iov = pieces;
        message.msg_iovlen = ibuf.GetFreePieces(room, pieces);
        const ssize_t size = ::recvmsg(GetSocket(), &message, MSG_NOSIGNAL);
        if (size > 0) ibuf.Commit(static_cast<std::size_t>(size));
        return size;
    }
    // One read may not fit any more. Its bytes are then lost, so that the other sockets of the handler need not wait.
    char buffer[ReadSize];
    const ssize_t size = ::recv(GetSocket(), buffer, sizeof buffer, MSG_NOSIGNAL);
    if (size > 0 && !ibuf.Write(buffer, static_cast<std::size_t>(size))) {
        LogError("OnRead", 0, "ibuf overflow", LogLevel::Warning);
    }
    return size;
}

void TcpSocket::OnWrite()
{
    if (IsConnecting()) {
        OnConnectWritable();
        return;
    }
    std::size_t size{};
    while (const char* const front = mOutput.GetFront(size)) {
        const std::size_t sent = TrySend(front, size);
        mOutput.RemoveFront(sent);
        if (sent < size) break;
    }
    RenewFlags();
}

int TcpSocket::ConnectError() const
{
    const int error = SoError();
    if (error != 0) return error;
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(GetSocket(), reinterpret_cast<sockaddr*>(&peer), &size) == 0 ? 0 : errno;
}

void TcpSocket::OnConnectWritable()
{
    const int error = ConnectError();
    if (error == 0) {
        Handler().Set(GetSocket(), {!IsDisableRead(), false, true});
        SetConnecting(false);
        SetCallOnConnect();
        return;
    }
    LogError("tcp: connect failed", error, LogLevel::Fatal);
    // From here on only the time-out works on it.
    Handler().Set(GetSocket(), {});
    if (HasRetryLeft()) return;
    SetConnecting(false);
    SetCloseAndDelete();
    OnConnectFailed();
}

void TcpSocket::OnConnectTimeout()
{
    LogError("connect", -1, "connect timeout", LogLevel::Fatal);
    if (HasRetryLeft()) {
        CountRetry();
        if (OnConnectRetry()) SetRetryClientConnect();
    } else {
        SetCloseAndDelete();
        OnConnectFailed();
    }
    SetConnecting(false);
}

void TcpSocket::OnException()
{
    const int error = SoError();
    LogError("exception on select", error, LogLevel::Fatal);
    // At once, as after a read error: until it is closed, each select reports the exception again.
    CloseAtOnce();
}

void TcpSocket::EndGather()
{
    mGathering = false;
    if (mGathered.empty()) return;
    SendBuf(mGathered.data(), mGathered.size());
    mGathered.clear();
    // The next command is hardly as long as the longest.
    if (mGathered.capacity() > ReadSize) mGathered.shrink_to_fit();
}

void TcpSocket::SendBuf(const char* data, std::size_t size)
{
    if (mGathering) {
        mGathered.append(data, size);
        return;
    }
    if (!Ready() && !IsConnecting()) {
        LogError("SendBuf", -1, "Attempt to write to a non-ready socket", LogLevel::Warning);
        if (GetSocket() == -1) LogError("SendBuf", 0, " * GetSocket() == INVALID_SOCKET", LogLevel::Info);
        if (IsConnecting()) LogError("SendBuf", 0, " * Connecting()", LogLevel::Info);
        if (CloseAndDelete()) LogError("SendBuf", 0, " * CloseAndDelete()", LogLevel::Info);
        return;
    }
    if (!IsConnected()) {
        LogError("SendBuf", -1, "Attempt to write to a non-connected socket, will be sent on connect",
                 LogLevel::Warning);
        Enqueue(data, size);
        return;
    }
    if (mOutput.GetLength() != 0) {
        Enqueue(data, size);
        return;
    }
    const std::size_t sent = TrySend(data, size);
    if (sent < size && !CloseAndDelete()) Enqueue(data + sent, size - sent);
    RenewFlags();
}

void TcpSocket::Enqueue(const char* data, std::size_t size)
{
    if (mOutput.GetLength() + size > MaxUnsent) {
        AUDIT_LOG(Fault, "TcpSocket fd %d: more than %zu bytes were not read by the peer, closing\r\n", GetSocket(),
                  MaxUnsent);
        CloseAtOnce();
        return;
    }
    mOutput.Append(data, size);
}

std::size_t TcpSocket::TrySend(const char* data, std::size_t size)
{
    const ssize_t sent = ::send(GetSocket(), data, size, MSG_NOSIGNAL);
    if (sent >= 0) {
        mBytesSent += static_cast<std::uint64_t>(sent);
        return static_cast<std::size_t>(sent);
    }
    if (errno == EAGAIN) {
        for (const char* text : {"########################", "### SOCKET WOULD BLOCK\n### ",
                                 "GetRemoteAddress().c_str() ", "########################"}) {
            LogError("send", EAGAIN, text, LogLevel::Warning);
        }
        return 0;
    }
    LogError("send", errno, LogLevel::Fatal);
    CloseAtOnce();
    return 0;
}

void TcpSocket::RenewFlags()
{
    Interest interest = Handler().Get(GetSocket());
    const bool hasOutput = mOutput.GetLength() != 0;
    if (interest.write == hasOutput) return;
    interest.write = hasOutput;
    Handler().Set(GetSocket(), interest);
}
