#pragma once

#include "Sockets/StdLog.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <utility>

#include <sys/time.h>

class HandlerMutex;
class Socket;

/// The lists of work that sockets ask for. Nothing is detached: that list is kept for its number.
enum class WorkList : std::uint8_t { CallOnConnect = 0, Detach = 1, Timeout = 2, Retry = 3, Close = 4 };

/// What is waited for on a descriptor.
struct Interest
{
    bool read = false;
    bool write = false;
    bool exception = false;
};

/// A select loop as its sockets see it.
class ISocketHandler
{
public:
    virtual ~ISocketHandler() = default;

    virtual void RegStdLog(StdLog* log) = 0;
    virtual void LogError(Socket* socket, const std::string& call, int error, const std::string& text,
                          LogLevel level) = 0;
    /// Takes a socket over: it is deleted after its OnDelete, or with the handler.
    template <class X>
    X* Own(std::unique_ptr<X> socket)
    {
        X* const plain = socket.get();
        TakeOver(std::move(socket));
        return plain;
    }
    /// The socket comes under control at the start of the next pass.
    virtual void Add(Socket* socket) = 0;
    /// For the destructor of a socket.
    virtual void Remove(Socket* socket) = 0;
    virtual Interest Get(int fd) const = 0;
    virtual void Set(int fd, Interest interest) = 0;
    /// One pass that waits at most that long.
    virtual int Select(long seconds, long microseconds) = 0;
    /// Null to wait for ever.
    virtual int Select(timeval* timeout) = 0;
    /// Sockets under control and on their way there.
    virtual std::size_t GetCount() const = 0;
    virtual bool OkToAccept() const = 0;
    virtual void AddList(int fd, WorkList list, bool add) = 0;
    /// Seconds by which time-outs and lingering are counted.
    virtual std::time_t Now() const = 0;
    /// Ends a wait in progress, or the next one. Any thread, without the mutex.
    virtual void Wake() = 0;
    /// How many sockets there may be, and the first descriptor number that is too high for one.
    virtual std::size_t GetLimit() const = 0;

    // Kept for owners of another loop; that of the module needs none of them.

    /// Waits for ever, or shortly while there is work that no descriptor announces.
    virtual int Select() = 0;
    /// Null if the handler is used by one thread alone.
    virtual HandlerMutex* GetMutex() const = 0;
    /// Whether the socket is under control.
    virtual bool Valid(const Socket* socket) const = 0;

protected:
    virtual void TakeOver(std::unique_ptr<Socket> socket) = 0;
};
