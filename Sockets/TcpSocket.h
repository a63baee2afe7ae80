#pragma once

#include "Sockets/InputRing.h"
#include "Sockets/OutputQueue.h"
#include "Sockets/StreamSocket.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// A non-blocking TCP connection: an input ring, an output queue, and a connect that the handler drives.
class TcpSocket : public StreamSocket
{
public:
    static constexpr int ShutWrite = 1;
    static constexpr int ShutByPeer = 2;
    /// A peer that does not read must not exhaust the memory.
    static constexpr std::size_t MaxUnsent = 64u << 20;

    /// @param inputSize capacity of the input ring in bytes.
    TcpSocket(ISocketHandler& handler, std::size_t inputSize) : StreamSocket(handler), ibuf(inputSize) {}

    /// Starts to connect. @param host a dotted quad. Returns false and marks itself for closing if it cannot.
    bool Open(const std::string& host, std::uint16_t port);
    /// @param bindAddress for a host with several networks; streams pass none.
    bool Open(const SocketAddress& address, const SocketAddress* bindAddress = nullptr);
    int Close() override;

    /// Sends what the kernel takes and queues the rest, in order; never blocks. Between BeginGather and EndGather the
    /// bytes are gathered, to be sent together.
    virtual void SendBuf(const char* data, std::size_t size);
    void BeginGather() { mGathering = true; }
    void EndGather();

    // Since the connection began; for diagnosis.
    std::uint64_t GetBytesSent() const { return mBytesSent; }
    std::uint64_t GetBytesReceived() const { return mBytesReceived; }
    std::size_t GetOutputLength() const override { return mOutput.GetLength(); }
    void SetReconnect(bool value = true) { mReconnect = value; }
    bool IsReconnect() const override { return mIsReconnect; }
    bool Reopen() override;
    Ending EndConnection() override;

    void OnRead() override;
    void OnWrite() override;
    void OnException() override;
    void OnOptions(int fd) override;
    void OnConnectTimeout() override;

protected:
    InputRing ibuf;

private:
    static constexpr std::size_t ReadSize = 16400;

    /// Like recv, with the free space of the ring as the buffer.
    std::ptrdiff_t ReceiveIntoRing();
    /// The pending error of a connect; if it failed at once and left none, that of getpeername.
    int ConnectError() const;
    void OnConnectWritable();
    void Enqueue(const char* data, std::size_t size);
    /// Bytes that the kernel took; an error marks the socket for closing.
    std::size_t TrySend(const char* data, std::size_t size);
    void RenewFlags();
    void CloseAtOnce();
    /// True while there is still something to send or to wait for.
    bool Lingers();
    bool Reconnect();

    std::uint64_t mBytesSent = 0;
    std::uint64_t mBytesReceived = 0;
    OutputQueue mOutput;
    std::string mGathered;
    bool mGathering = false;
    bool mReconnect = false;
    bool mIsReconnect = false;
};
