#include "Sockets/Socket.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

Socket::~Socket()
{
    mHandler.Remove(this);
    if (mSocket != -1) Socket::Close();
}

int Socket::Close()
{
    if (mSocket == -1) {
        LogError("Socket::Close", 0, "file descriptor invalid", LogLevel::Warning);
        return 0;
    }
    const int fd = mSocket;
    mHandler.Set(fd, {});
    for (const WorkList list :
         {WorkList::CallOnConnect, WorkList::Detach, WorkList::Timeout, WorkList::Retry, WorkList::Close}) {
        mHandler.AddList(fd, list, false);
    }
    const int result = ::close(fd);
    if (result == -1) LogError("close", errno, LogLevel::Error);
    mSocket = -1;
    return result;
}

void Socket::SetCloseAndDelete(bool value)
{
    if (value == mCloseAndDelete) return;
    mCloseAndDelete = value;
    mHandler.AddList(mSocket, WorkList::Close, value);
    if (value) mCloseTime = mHandler.Now();
}

void Socket::SetTimeout(std::time_t seconds)
{
    mHandler.AddList(mSocket, WorkList::Timeout, seconds != 0);
    if (seconds == 0) return;
    mTimeoutStart = mHandler.Now();
    mTimeoutLimit = seconds;
}

int Socket::CreateSocket(int type, const char* protocol)
{
    const protoent* const entry = getprotobyname(protocol);
    if (!entry) {
        LogError("getprotobyname", errno, LogLevel::Fatal);
        SetCloseAndDelete();
        return -1;
    }
    const int fd = ::socket(AF_INET, type | SOCK_CLOEXEC, entry->p_proto);
    if (fd == -1) {
        LogError("socket", errno, LogLevel::Fatal);
        SetCloseAndDelete();
        return -1;
    }
    OnOptions(fd);
    return fd;
}

void Socket::LogError(const std::string& call, int error, LogLevel level)
{
    LogError(call, error, std::strerror(error), level);
}

bool Socket::SetNonblocking(int fd)
{
    if (fcntl(fd, F_SETFL, O_NONBLOCK) != -1) return true;
    LogError("fcntl(F_SETFL, O_NONBLOCK)", errno, LogLevel::Error);
    return false;
}

bool Socket::SetOption(int fd, int option, const void* value, socklen_t size, const char* name)
{
    if (setsockopt(fd, SOL_SOCKET, option, value, size) == 0) return true;
    LogError(std::string("setsockopt(SOL_SOCKET, ") + name + ")", errno, LogLevel::Fatal);
    return false;
}

bool Socket::SetSoLinger(int fd, bool on, int seconds)
{
    const linger value{on, seconds};
    return SetOption(fd, SO_LINGER, &value, sizeof value, "SO_LINGER");
}

bool Socket::SetSoReuseaddr(int fd, bool on)
{
    const int value = on;
    return SetOption(fd, SO_REUSEADDR, &value, sizeof value, "SO_REUSEADDR");
}

bool Socket::SetSoKeepalive(int fd, bool on)
{
    const int value = on;
    return SetOption(fd, SO_KEEPALIVE, &value, sizeof value, "SO_KEEPALIVE");
}

bool Socket::SetTcpNodelay(bool)
{
    LogError("socket option not available", 0, "TCP_NODELAY", LogLevel::Info);
    return false;
}

int Socket::SoError() const
{
    int error{};
    socklen_t size = sizeof error;
    if (getsockopt(mSocket, SOL_SOCKET, SO_ERROR, &error, &size) == -1) return errno;
    return error;
}
