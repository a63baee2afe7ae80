#pragma once

#include "Common/KLV/DataStream.h"
#include "KLVStreams/source/ItemFramer.h"
#include "KLVStreams/source/SendCoalescer.h"
#include "Sockets/TcpSocket.h"

#include <atomic>
#include <cstdint>
#include <string>

/// One TCP connection that carries KLV items. It hands each item that has arrived whole to HandleKey; what is written
/// goes to the socket, all bytes of one item together. It knows nothing of commands.
///
/// OnRead and the other On... operations run on the socket thread. Whoever writes holds the handler's mutex.
class KLVTCPStream : public DataStream, public TcpSocket
{
public:
    static constexpr std::size_t InputSize = 0x40000;

    explicit KLVTCPStream(ISocketHandler& handler);

    /// Opens the connection and adds the stream to the handler.
    virtual void TcpConnect(ISocketHandler& handler, const std::string& host, std::uint16_t port);
    void OnRead() override;
    void OnAccept() override;
    void OnConnect() override { StreamUp("OnConnect"); }
    void OnReconnect() override { StreamUp("OnReconnect"); }
    void OnDisconnect() override;
    /// Kept for a socket layer that gives the cause of an end.
    /// @param info bit 0: a write, else a read; bit 1: a normal end, else an error.
    virtual void OnDisconnect(short info, int errnum);
    void OnConnectFailed() override { mConnectFailed = true; }
    void OnDelete() override;
    /// Ends the stream: the handler closes and deletes it.
    virtual void ShutdownStreamViaHandler();
    /// An item in the input ring. False if this type of key is not for the stream, which then skips the item.
    virtual bool HandleKey(std::uint32_t /*keyType*/) { return false; }
    /// An item in the overflow store.
    virtual bool HandleKey(std::uint32_t /*keyType*/, DataStream* /*stream*/) { return false; }
    // Hooks for heirs.
    virtual void OnReadStart() {}
    virtual void OnItemDone() {}

    bool WriteData(const void* src, std::uint32_t size) override;
    bool ReadData(void* dest, std::uint32_t size) override { return mFramer.Read(dest, size); }
    void IgnoreData(std::uint32_t size) override { mFramer.Ignore(size); }
    void Commit() override { mCoalescer.Commit(); }
    void BeginItem() override;
    void EndItem() override { EndGather(); }

    /// Gathers the writes of many items. An option that no stream of the module turns on. @param size of the buffer, 0
    /// to take the path's segment size.
    void SetCoalesce(std::uint32_t interval, TimerUnits units, std::uint32_t size)
    {
        mCoalescer.Configure(interval, units, size);
    }

    bool WasShutdownLocally() const { return mShutdownLocally; }
    /// Between the start of the connection and its end.
    bool IsStreamConnected() const { return mStreamConnected; }
    std::uint16_t GetLocalPort() const { return mLocalPort; }
    std::uint16_t GetRemotePort() const { return mRemotePort; }
    /// Host order.
    std::uint32_t GetRemoteIp() const { return mRemoteAddress; }

protected:
    /// The stream has connected. @param event the operation that says so, for the log.
    virtual void StreamUp(const char* event);
    /// Ends a stream whose framing can no longer be trusted, with a line in the log.
    void CloseBroken(const std::string& reason);

private:
    void HandleItem();
    void IdentifyPeer();
    void IdentifyRole(std::uint8_t lastLocalOctet);
    void FixSegmentSize();

    // How the connection began and ended; only for the reader of a crash dump.
    bool mOpenResult = true;
    bool mConnectFailed = false;
    bool mDeleted = false;
    bool mAccepted = false;
    std::atomic<bool> mStreamConnected{false};
    ItemFramer mFramer;
    std::uint16_t mLocalPort = 255;
    std::uint16_t mRemotePort = 255;
    std::uint32_t mRemoteAddress = 0;
    std::uint8_t mNodeId = 255;
    std::atomic<bool> mShutdownLocally{false};
    bool mBroken = false;
    SendCoalescer mCoalescer;
};
