#pragma once

#include "Sockets/ISocketHandler.h"
#include "Sockets/SocketAddress.h"

#include <cstddef>
#include <ctime>
#include <memory>
#include <string>

/// One descriptor under a socket handler. All On... operations run on the thread of the handler's passes, everything
/// else there or under the handler's mutex.
class Socket
{
public:
    explicit Socket(ISocketHandler& handler) : mHandler(handler), mCreateTime(handler.Now()) {}
    virtual ~Socket();

    virtual void Init() {}
    /// Closes the descriptor and takes it out of all lists.
    virtual int Close();
    virtual bool Ready() const { return mSocket != -1 && !mCloseAndDelete; }
    virtual bool IsConnecting() const { return false; }
    /// True from the first reconnect on.
    virtual bool IsReconnect() const { return false; }
    /// Bytes that wait to be sent.
    virtual std::size_t GetOutputLength() const { return 0; }
    /// Connects again to the address of the last Open. False if there was none.
    virtual bool Reopen() { return false; }
    enum class Ending { Lingers, Reopened, Leaves };
    /// Called by the handler's close pass.
    virtual Ending EndConnection() { return Ending::Leaves; }

    virtual void OnRead() {}
    virtual void OnWrite() {}
    virtual void OnException() {}
    virtual void OnDelete() {}
    virtual void OnConnect() {}
    virtual void OnAccept() {}
    virtual void OnConnectFailed() {}
    /// Socket options, once the descriptor is there.
    virtual void OnOptions(int /*fd*/) {}
    /// Whether a connect that failed is tried again.
    virtual bool OnConnectRetry() { return true; }
    virtual void OnReconnect() {}
    virtual void OnDisconnect() {}
    virtual void OnTimeout() {}
    virtual void OnConnectTimeout() {}

    ISocketHandler& Handler() const { return mHandler; }
    int GetSocket() const { return mSocket; }
    void Attach(int fd) { mSocket = fd; }
    /// Set by the handler on a socket that it owns.
    void SetDeleteByHandler() { mDeleteByHandler = true; }
    bool DeleteByHandler() const { return mDeleteByHandler; }
    /// Marks the socket for the close pass. It notes the time of the mark.
    void SetCloseAndDelete(bool value = true);
    bool CloseAndDelete() const { return mCloseAndDelete; }
    std::time_t GetCloseTime() const { return mCloseTime; }
    void SetParent(Socket* parent) { mParent = parent; }
    /// For a socket that only sends; none does yet.
    void DisableRead(bool value = true) { mDisableRead = value; }
    bool IsDisableRead() const { return mDisableRead; }
    void SetConnected(bool value = true) { mConnected = value; }
    bool IsConnected() const { return mConnected; }
    /// Set by the handler, which searches its lists for any other socket that is deleted.
    void SetErasedByHandler() { mErasedByHandler = true; }
    bool ErasedByHandler() const { return mErasedByHandler; }
    /// The address of the last Open; null before.
    const SocketAddress* GetClientRemoteAddress() const { return mClientRemoteAddress.get(); }
    void SetClientRemoteAddress(const SocketAddress& address) { mClientRemoteAddress = address.Clone(); }
    void SetRemoteAddress(const SocketAddress& address) { mRemoteAddress = address.Clone(); }

    /// Starts a time-out; 0 ends it.
    void SetTimeout(std::time_t seconds);
    /// Strictly more seconds than the limit have passed.
    bool HasTimedOut(std::time_t now) const { return now - mTimeoutStart > mTimeoutLimit; }

    bool SetNonblocking(int fd);
    bool SetSoLinger(int fd, bool on, int seconds);
    /// For a socket that has its descriptor. Unused: streams set the option earlier.
    bool SetSoLinger(bool on, int seconds) { return SetSoLinger(mSocket, on, seconds); }
    bool SetSoReuseaddr(int fd, bool on);
    bool SetSoKeepalive(int fd, bool on);
    /// Only reports that the option is not used.
    bool SetTcpNodelay(bool on);
    /// The pending error of the descriptor.
    int SoError() const;

protected:
    /// A new descriptor with its options set; without one -1, an error line and the mark for closing.
    int CreateSocket(int type, const char* protocol);
    void LogError(const std::string& call, int error, LogLevel level);
    void LogError(const std::string& call, int error, const std::string& text, LogLevel level)
    {
        mHandler.LogError(this, call, error, text, level);
    }

private:
    bool SetOption(int fd, int option, const void* value, socklen_t size, const char* name);

    ISocketHandler& mHandler;
    int mSocket = -1;
    bool mDeleteByHandler = false;
    bool mCloseAndDelete = false;
    /// For the debugger only: the age of a socket and the listener that accepted it.
    const std::time_t mCreateTime;
    Socket* mParent = nullptr;
    bool mDisableRead = false;
    bool mConnected = false;
    bool mErasedByHandler = false;
    std::time_t mCloseTime{};
    std::unique_ptr<SocketAddress> mClientRemoteAddress;
    /// The peer that was accepted; for the debugger only.
    std::unique_ptr<SocketAddress> mRemoteAddress;
    std::time_t mTimeoutStart{};
    std::time_t mTimeoutLimit{};
};
