#include "Sockets/SocketHandler.h"

#include "Sockets/HandlerMutex.h"
#include "Sockets/Socket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

/// The same select error is reported on its first repeat and then on every repeat of this number.
constexpr int ErrorsBetweenReports = 10000;
constexpr long PendingWorkWaitUs = 200000;
/// Descriptors that are left to the log, the shell and the rest of the process.
constexpr std::size_t ReservedDescriptors = 64;

/// Not the time of day: that can be set while a time-out runs.
std::time_t MonotonicSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

std::size_t DescriptorLimit()
{
    constexpr std::size_t SetSize = FD_SETSIZE;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == -1 || limit.rlim_cur >= SetSize + ReservedDescriptors) return SetSize;
    const auto allowed = static_cast<std::size_t>(limit.rlim_cur);
    return allowed > 2 * ReservedDescriptors ? allowed - ReservedDescriptors : allowed;
}

void Without(std::vector<int>& descriptors, int fd)
{
    descriptors.erase(std::remove(descriptors.begin(), descriptors.end(), fd), descriptors.end());
}

void SetFlag(fd_set& set, int fd, bool on)
{
    if (on) {
        FD_SET(fd, &set);
    } else {
        FD_CLR(fd, &set);
    }
}

} // namespace

SocketHandler::SocketHandler(StdLog* log) : SocketHandler(log, MonotonicSeconds) {}

SocketHandler::SocketHandler(StdLog* log, const Clock& clock) : SocketHandler(nullptr, log, clock) {}

SocketHandler::SocketHandler(HandlerMutex& mutex, StdLog* log) : SocketHandler(&mutex, log, MonotonicSeconds) {}

SocketHandler::SocketHandler(HandlerMutex* mutex, StdLog* log, const Clock& clock)
    : mLog(log),
      mMutex(mutex),
      mLimit(DescriptorLimit()),
      mClock(clock),
      mTimeoutCheck(clock()),
      mWakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    FD_ZERO(&mReadSet);
    FD_ZERO(&mWriteSet);
    FD_ZERO(&mExceptionSet);
}

SocketHandler::~SocketHandler()
{
    CloseAll();
    if (mWakeFd != -1) ::close(mWakeFd);
}

void SocketHandler::CloseAll()
{
    mInPass = true;
    while (!mAdd.empty() || !mSockets.empty() || !mDelete.empty()) {
        Socket* socket = nullptr;
        if (!mDelete.empty()) {
            socket = mDelete.back();
            mDelete.pop_back();
        } else {
            socket = (mAdd.empty() ? mSockets : mAdd).begin()->second;
        }
        // One socket can be in both maps while it changes to a new descriptor.
        for (auto* map : {&mAdd, &mSockets}) {
            for (auto entry = map->begin(); entry != map->end();) {
                entry = entry->second == socket ? map->erase(entry) : std::next(entry);
            }
        }
        if (socket->GetSocket() != -1) socket->Close();
        socket->OnDelete();
        socket->SetErasedByHandler();
        mOwned.erase(socket);
    }
    mOwned.clear();
    mInPass = false;
}

void SocketHandler::LogError(Socket* socket, const std::string& call, int error, const std::string& text,
                             LogLevel level)
{
    if (mLog) mLog->error(this, socket, call, error, text, level);
}

void SocketHandler::Wake()
{
    const std::uint64_t one = 1;
    const ssize_t ignored = ::write(mWakeFd, &one, sizeof one);
    static_cast<void>(ignored);
}

void SocketHandler::TakeOver(std::unique_ptr<Socket> socket)
{
    socket->SetDeleteByHandler();
    const Socket* const key = socket.get();
    mOwned.emplace(key, std::move(socket));
}

void SocketHandler::Add(Socket* socket)
{
    const int fd = socket->GetSocket();
    if (fd == -1) {
        LogError(socket, "Add", -1, "Invalid socket", LogLevel::Warning);
        if (socket->CloseAndDelete()) Refuse(socket);
    } else if (mAdd.count(fd) != 0) {
        LogError(socket, "Add", fd, "Attempt to add socket already in add queue", LogLevel::Fatal);
        Refuse(socket);
    } else {
        mAdd[fd] = socket;
    }
    mPassAgain = true;
    if (!mInPass) Wake();
}

void SocketHandler::Refuse(Socket* socket)
{
    // A socket that was only added twice stays where it is.
    const auto isHeld = [&](const auto& entry) { return entry.second == socket && socket->GetSocket() != -1; };
    if (std::any_of(mAdd.begin(), mAdd.end(), isHeld) || std::any_of(mSockets.begin(), mSockets.end(), isHeld)) return;
    if (std::find(mDelete.begin(), mDelete.end(), socket) == mDelete.end()) mDelete.push_back(socket);
}

void SocketHandler::Remove(Socket* socket)
{
    if (socket->ErasedByHandler()) return;
    const auto report = [&] {
        LogError(socket, "Remove", -1, "Socket destructor called while still in use", LogLevel::Warning);
    };
    for (auto* sockets : {&mSockets, &mAdd}) {
        const auto entry = std::find_if(sockets->begin(), sockets->end(),
                                        [socket](const auto& candidate) { return candidate.second == socket; });
        if (entry == sockets->end()) continue;
        report();
        if (sockets == &mSockets) {
            // Its descriptor closes now; in the sets it would make every select fail.
            Set(entry->first, {});
            Without(mFds, entry->first);
        }
        sockets->erase(entry);
        return;
    }
    const auto entry = std::find(mDelete.begin(), mDelete.end(), socket);
    if (entry == mDelete.end()) return;
    report();
    mDelete.erase(entry);
}

Interest SocketHandler::Get(int fd) const
{
    if (!IsSelectable(fd)) return {};
    return {FD_ISSET(fd, &mReadSet), FD_ISSET(fd, &mWriteSet), FD_ISSET(fd, &mExceptionSet)};
}

void SocketHandler::Set(int fd, Interest interest)
{
    // What is not under control yet gets its flags when it is taken in.
    if (!IsSelectable(fd) || mSockets.count(fd) == 0) return;
    SetFlag(mReadSet, fd, interest.read);
    SetFlag(mWriteSet, fd, interest.write);
    SetFlag(mExceptionSet, fd, interest.exception);
    if (!mInPass) Wake();
}

bool SocketHandler::Valid(const Socket* socket) const
{
    return std::any_of(mSockets.begin(), mSockets.end(),
                       [socket](const auto& entry) { return entry.second == socket; });
}

void SocketHandler::AddList(int fd, WorkList list, bool add)
{
    if (fd == -1) {
        if (!add || list != WorkList::Close) return;
        mUnlistedClose = true;
        mPassAgain = true;
        if (!mInPass) Wake();
        return;
    }
    Descriptors& descriptors = List(list);
    if (!add) {
        Without(descriptors, fd);
    } else if (std::find(descriptors.begin(), descriptors.end(), fd) == descriptors.end()) {
        descriptors.push_back(fd);
        if (list == WorkList::Close || list == WorkList::CallOnConnect) mPassAgain = true;
        if (!mInPass) Wake();
    }
}

int SocketHandler::Select(long seconds, long microseconds)
{
    timeval timeout{seconds, static_cast<suseconds_t>(microseconds)};
    return Select(&timeout);
}

int SocketHandler::Select()
{
    const bool pending = !mAdd.empty() || !mDelete.empty() ||
                         std::any_of(mLists.begin(), mLists.end(), [](const auto& list) { return !list.empty(); });
    return pending ? Select(0, PendingWorkWaitUs) : Select(nullptr);
}

int SocketHandler::Select(timeval* timeout)
{
    mInPass = true;
    TakeInNewSockets();
    Ready ready = Wait(timeout);
    if (ready.count > 0) CallReadySockets(ready);
    CallConnected();
    CheckTimeouts();
    RetryConnects();
    CloseUnlisted();
    CloseSockets();
    Erase();
    DeleteRefused();
    mInPass = false;
    return ready.count;
}

void SocketHandler::TakeInNewSockets()
{
    while (!mAdd.empty()) {
        if (mSockets.size() >= GetLimit()) {
            LogError(nullptr, "Select", static_cast<int>(mSockets.size()), "FD_SETSIZE reached", LogLevel::Warning);
            return;
        }
        Socket* const socket = mAdd.begin()->second;
        const int fd = mAdd.begin()->first;
        mAdd.erase(mAdd.begin());
        if (mSockets.count(fd) != 0) {
            LogError(socket, "Add", fd, "Attempt to add socket already in controlled queue", LogLevel::Fatal);
            Refuse(socket);
        } else if (!IsSelectable(fd)) {
            LogError(socket, "Select", fd, "FD_SETSIZE reached", LogLevel::Warning);
            Refuse(socket);
        } else {
            TakeIn(socket);
        }
    }
}

void SocketHandler::TakeIn(Socket* socket)
{
    const int fd = socket->GetSocket();
    mSockets[fd] = socket;
    mFds.push_back(fd);
    mMaxSock = std::max(mMaxSock, fd);
    if (socket->CloseAndDelete()) {
        LogError(socket, "Add", fd, "Trying to add socket with SetCloseAndDelete() true", LogLevel::Warning);
        return;
    }
    if (socket->IsConnecting()) {
        Set(fd, {false, true, true});
    } else {
        Set(fd, {!socket->IsDisableRead(), socket->GetOutputLength() != 0, true});
    }
}

SocketHandler::Ready SocketHandler::Wait(timeval* timeout)
{
    Ready ready{-1, mReadSet, mWriteSet, mExceptionSet};
    if (IsReadingHeld()) FD_ZERO(&ready.read);
    int highest = mMaxSock;
    if (IsSelectable(mWakeFd)) {
        FD_SET(mWakeFd, &ready.read);
        highest = std::max(highest, mWakeFd);
    }
    timeval atOnce{0, 0};
    if (mPassAgain) timeout = &atOnce;
    mPassAgain = false;

    mInPass = false;
    if (mMutex) mMutex->unlock();
    ready.count = ::select(highest + 1, &ready.read, &ready.write, &ready.exception, timeout);
    const int error = errno;
    if (mMutex) mMutex->lock();
    mInPass = true;

    if (ready.count == -1) {
        ReportSelectError(error);
        return ready;
    }
    mPreviousError = -1;
    if (ready.count > 0 && IsSelectable(mWakeFd) && FD_ISSET(mWakeFd, &ready.read)) {
        std::uint64_t ignored{};
        const ssize_t size = ::read(mWakeFd, &ignored, sizeof ignored);
        static_cast<void>(size);
        --ready.count;
    }
    return ready;
}

void SocketHandler::ReportSelectError(int error)
{
    bool report = error != mPreviousError;
    if (!report) report = mErrorCount++ % ErrorsBetweenReports == 0;
    if (report) LogError(nullptr, "select", error, std::strerror(error), LogLevel::Warning);
    mPreviousError = error;
    if (error == EBADF) DropBadDescriptors();
}

void SocketHandler::DropBadDescriptors()
{
    const Descriptors snapshot = mFds;
    for (const int fd : snapshot) {
        if (fcntl(fd, F_GETFD) != -1) continue;
        Set(fd, {});
        if (Socket* const socket = Find(fd, Place::Read)) socket->SetCloseAndDelete();
    }
}

Socket* SocketHandler::Find(int fd, Place place)
{
    const auto entry = mSockets.find(fd);
    if (entry != mSockets.end()) return entry->second;
    LogError(nullptr, "GetSocket/handler/" + std::to_string(static_cast<int>(place)), fd,
             "Did not find expected socket using file descriptor", LogLevel::Warning);
    return nullptr;
}

void SocketHandler::Call(int fd, Place place, void (Socket::*operation)())
{
    if (Socket* const socket = Find(fd, place)) (socket->*operation)();
}

void SocketHandler::CallReadySockets(Ready& ready)
{
    mWalk = mFds;
    for (const int fd : mWalk) {
        if (ready.count == 0) break;
        if (FD_ISSET(fd, &ready.read)) {
            if (!IsReadingHeld()) Call(fd, Place::Read, &Socket::OnRead);
            --ready.count;
        }
        if (FD_ISSET(fd, &ready.write)) {
            Call(fd, Place::Write, &Socket::OnWrite);
            --ready.count;
        }
        if (FD_ISSET(fd, &ready.exception)) {
            Call(fd, Place::Exception, &Socket::OnException);
            --ready.count;
        }
    }
}

void SocketHandler::CallConnected()
{
    const Descriptors snapshot = List(WorkList::CallOnConnect);
    for (const int fd : snapshot) {
        // OnConnect waits until the socket is under control.
        if (mAdd.count(fd) != 0) continue;
        Socket* const socket = Find(fd, Place::Connected);
        AddList(fd, WorkList::CallOnConnect, false);
        if (!socket) continue;
        // A retry that was asked for before the connect was seen would close it.
        AddList(fd, WorkList::Retry, false);
        socket->SetConnected();
        if (socket->GetOutputLength() != 0) socket->OnWrite();
        if (socket->IsReconnect()) {
            socket->OnReconnect();
        } else {
            socket->OnConnect();
        }
    }
}

void SocketHandler::CheckTimeouts()
{
    const std::time_t now = Now();
    if (now == mTimeoutCheck) return;
    mTimeoutCheck = now;
    const Descriptors snapshot = List(WorkList::Timeout);
    for (const int fd : snapshot) {
        if (mAdd.count(fd) != 0) continue;
        Socket* const socket = Find(fd, Place::Timeout);
        if (!socket) {
            AddList(fd, WorkList::Timeout, false);
            continue;
        }
        if (!socket->HasTimedOut(now)) continue;
        if (socket->IsConnecting()) {
            socket->OnConnectTimeout();
        } else {
            socket->OnTimeout();
        }
        socket->SetTimeout(0);
    }
}

void SocketHandler::RetryConnects()
{
    const Descriptors snapshot = List(WorkList::Retry);
    for (const int fd : snapshot) {
        if (mAdd.count(fd) != 0) continue;
        Socket* const socket = Find(fd, Place::Retry);
        AddList(fd, WorkList::Retry, false);
        if (!socket || socket->CloseAndDelete()) continue;
        socket->Close();
        if (!socket->Reopen()) LogError(socket, "RetryClientConnect", 0, "no address", LogLevel::Error);
        Add(socket);
        mFdsErase.push_back(fd);
    }
}

void SocketHandler::CloseUnlisted()
{
    if (!mUnlistedClose) return;
    mUnlistedClose = false;
    std::vector<std::pair<int, Socket*>> unlisted;
    for (const auto& entry : mSockets) {
        const auto& [fd, socket] = entry;
        if (socket->GetSocket() != -1 || !socket->CloseAndDelete()) continue;
        // A retry that found no descriptor is dealt with among the refused.
        if (std::find(mDelete.begin(), mDelete.end(), socket) == mDelete.end()) unlisted.emplace_back(fd, socket);
    }
    for (const auto& [fd, socket] : unlisted)
        Leave(*socket, fd);
}

void SocketHandler::CloseSockets()
{
    const Descriptors snapshot = List(WorkList::Close);
    for (const int fd : snapshot) {
        // It was marked before it came under control: the next pass closes it.
        if (mAdd.count(fd) != 0 && mSockets.count(fd) == 0) {
            mPassAgain = true;
            continue;
        }
        Socket* const socket = Find(fd, Place::Close);
        if (!socket) {
            AddList(fd, WorkList::Close, false);
        } else {
            Close(*socket, fd);
        }
    }
}

void SocketHandler::Close(Socket& socket, int fd)
{
    switch (socket.EndConnection()) {
    case Socket::Ending::Lingers:
        break;
    case Socket::Ending::Reopened:
        Add(&socket);
        mFdsErase.push_back(fd);
        break;
    case Socket::Ending::Leaves:
        Leave(socket, fd);
        break;
    }
}

void SocketHandler::Leave(Socket& socket, int fd)
{
    Set(fd, {});
    if (socket.GetSocket() != -1) socket.Close();
    const auto queued = mAdd.find(fd);
    if (queued != mAdd.end() && queued->second == &socket) mAdd.erase(queued);
    socket.OnDelete();
    if (socket.DeleteByHandler()) socket.SetErasedByHandler();
    mFdsErase.push_back(fd);
}

void SocketHandler::Erase()
{
    if (mFdsErase.empty()) return;
    for (const int fd : mFdsErase) {
        // The descriptor may already be that of a socket in the queue: its lists stay as they are.
        Without(List(WorkList::Detach), fd);
        Without(mFds, fd);
        const auto entry = mSockets.find(fd);
        if (entry == mSockets.end()) continue;
        Set(fd, {});
        const Socket* const socket = entry->second;
        mSockets.erase(entry);
        if (socket->ErasedByHandler()) mOwned.erase(socket);
    }
    mFdsErase.clear();
    mMaxSock = mFds.empty() ? 0 : *std::max_element(mFds.begin(), mFds.end());
}

void SocketHandler::DeleteRefused()
{
    while (!mDelete.empty()) {
        Socket* const socket = mDelete.back();
        mDelete.pop_back();
        if (socket->GetSocket() != -1) socket->Close();
        socket->OnDelete();
        if (!socket->DeleteByHandler()) continue;
        socket->SetErasedByHandler();
        mOwned.erase(socket);
    }
}
