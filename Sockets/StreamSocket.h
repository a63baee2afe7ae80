#pragma once

#include "Sockets/Socket.h"

/// A socket that connects: with a time-out, and, on request, with retries until it succeeds.
class StreamSocket : public Socket
{
public:
    using Socket::Socket;

    bool Ready() const override { return Socket::Ready() && !mConnecting; }

    /// A change starts or ends the connect time-out.
    void SetConnecting(bool value = true)
    {
        if (value == mConnecting) return;
        mConnecting = value;
        SetTimeout(value ? mConnectTimeout : 0);
    }
    bool IsConnecting() const override { return mConnecting; }
    void SetFlushBeforeClose(bool value = true) { mFlushBeforeClose = value; }
    bool GetFlushBeforeClose() const { return mFlushBeforeClose; }
    /// 0 none, -1 for ever, else that many.
    void SetConnectionRetry(int count) { mConnectionRetry = count; }
    void ResetConnectionRetries() { mRetries = 0; }
    void SetCallOnConnect(bool value = true) { Handler().AddList(GetSocket(), WorkList::CallOnConnect, value); }
    void SetRetryClientConnect(bool value = true) { Handler().AddList(GetSocket(), WorkList::Retry, value); }
    int GetShutdown() const { return mShutdown; }
    void SetShutdown(int bits) { mShutdown |= bits; }

protected:
    bool HasRetryLeft() const { return mConnectionRetry == -1 || mRetries < mConnectionRetry; }
    void CountRetry() { ++mRetries; }
    void ResetShutdown() { mShutdown = 0; }

private:
    bool mConnecting = false;
    int mConnectTimeout = 5;
    bool mFlushBeforeClose = true;
    int mConnectionRetry = 0;
    int mRetries = 0;
    int mShutdown = 0;
};
