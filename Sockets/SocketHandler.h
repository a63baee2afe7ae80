#pragma once

#include "Sockets/ISocketHandler.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include <sys/select.h>

/// A select loop over non-blocking sockets: takes them in, calls their On... operations, and runs their connection,
/// time-out and close logic between two selects.
///
/// One thread runs the passes. In the form with a mutex that thread holds it while it runs Select, which frees it
/// while it waits; so another thread that takes it may add sockets, queue output and ask for closes, and a wait in
/// progress ends at once to take that in.
class SocketHandler : public ISocketHandler
{
public:
    using Clock = std::function<std::time_t()>;

    explicit SocketHandler(StdLog* log = nullptr);
    /// @param clock gives the seconds by which time-outs and lingering are counted.
    SocketHandler(StdLog* log, const Clock& clock);
    explicit SocketHandler(HandlerMutex& mutex, StdLog* log = nullptr);
    ~SocketHandler() override;
    SocketHandler(const SocketHandler&) = delete;
    SocketHandler& operator=(const SocketHandler&) = delete;

    HandlerMutex* GetMutex() const override { return mMutex; }
    void RegStdLog(StdLog* log) override { mLog = log; }
    void LogError(Socket* socket, const std::string& call, int error, const std::string& text, LogLevel level) override;
    void Add(Socket* socket) override;
    void Remove(Socket* socket) override;
    Interest Get(int fd) const override;
    void Set(int fd, Interest interest) override;
    int Select(long seconds, long microseconds) override;
    int Select() override;
    int Select(timeval* timeout) override;
    bool Valid(const Socket* socket) const override;
    std::size_t GetCount() const override { return mSockets.size() + mAdd.size() + mDelete.size(); }
    bool OkToAccept() const override { return true; }
    void AddList(int fd, WorkList list, bool add) override;
    std::time_t Now() const override { return mClock(); }
    void Wake() override;
    /// The size of an fd_set; less where the process may not have so many descriptors, since others need some too.
    std::size_t GetLimit() const override { return mLimit; }

    /// Closes every socket that the handler still holds and deletes its own. No pass runs then or after.
    void CloseAll();

protected:
    void TakeOver(std::unique_ptr<Socket> socket) override;
    /// Asked before each wait and before each OnRead, on the thread of the passes. While true, nothing is read or
    /// accepted, and all else continues; call Wake when it no longer is.
    virtual bool IsReadingHeld() { return false; }

private:
    using Descriptors = std::vector<int>;
    /// What select gave. The count is that of the descriptors not yet dealt with, -1 for an error.
    struct Ready
    {
        int count;
        fd_set read;
        fd_set write;
        fd_set exception;
    };
    /// Where a descriptor without a socket was met, as the error line numbers it.
    enum class Place { Read = 1, Write = 2, Exception = 3, Connected = 4, Timeout = 6, Retry = 7, Close = 8 };

    SocketHandler(HandlerMutex* mutex, StdLog* log, const Clock& clock);
    void Refuse(Socket* socket);
    void CloseUnlisted();
    void TakeInNewSockets();
    void TakeIn(Socket* socket);
    Ready Wait(timeval* timeout);
    void ReportSelectError(int error);
    void DropBadDescriptors();
    void CallReadySockets(Ready& ready);
    void CallConnected();
    void CheckTimeouts();
    void RetryConnects();
    void CloseSockets();
    void Close(Socket& socket, int fd);
    void Leave(Socket& socket, int fd);
    void Erase();
    void DeleteRefused();
    Socket* Find(int fd, Place place);
    void Call(int fd, Place place, void (Socket::*operation)());
    Descriptors& List(WorkList list) { return mLists[static_cast<std::size_t>(list)]; }
    static bool IsSelectable(int fd) { return fd >= 0 && fd < FD_SETSIZE; }

    std::map<const Socket*, std::unique_ptr<Socket>> mOwned;
    std::map<int, Socket*> mSockets;
    std::map<int, Socket*> mAdd;
    std::vector<Socket*> mDelete;
    StdLog* mLog;
    HandlerMutex* const mMutex;
    const std::size_t mLimit;
    int mMaxSock = 0;
    fd_set mReadSet;
    fd_set mWriteSet;
    fd_set mExceptionSet;
    int mPreviousError = -1;
    int mErrorCount = 0;
    Descriptors mFds;
    /// The snapshot that the results of select are walked over.
    Descriptors mWalk;
    Descriptors mFdsErase;
    std::array<Descriptors, 5> mLists;
    const Clock mClock;
    std::time_t mTimeoutCheck;
    /// An eventfd in the read set.
    int mWakeFd;
    bool mInPass = false;
    /// A socket was marked for closing when it had no descriptor, so that no list has taken it.
    bool mUnlistedClose = false;
    /// The next pass must not wait: this one has left work for it.
    bool mPassAgain = false;
};
