#include "KLVStreams/source/KLVTCPStream.h"

#include "Audit/Audit.h"
#include "Common/KLV/CommandTimingStats.h"
#include "MiscSource/GlobalConstants.h"

#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <netinet/ip.h>
#include <sys/socket.h>

namespace {

constexpr std::uint8_t OwnerHost = 254;
constexpr std::uint32_t TcpIpHeaders = 40;

} // namespace

KLVTCPStream::KLVTCPStream(ISocketHandler& handler)
    : TcpSocket(handler, InputSize),
      mFramer(ibuf),
      mCoalescer(static_cast<DataStream*>(this), [this](const char* data, std::size_t size) { SendBuf(data, size); })
{}

void KLVTCPStream::TcpConnect(ISocketHandler& handler, const std::string& host, std::uint16_t port)
{
    AUDIT_LOG(CommsVerboseDebug, "TCP Connect to remote at %s:%u\n", host.c_str(), unsigned{port});
    mOpenResult = Open(host, port);
    mRemotePort = port;
    handler.Add(this);
}

void KLVTCPStream::OnRead()
{
    TcpSocket::OnRead();
    AUDIT_LOG(CommsVerboseDebug, "OnRead()\n");
    OnReadStart();
    while (!mBroken) {
        switch (mFramer.Next()) {
        case ItemFramer::Result::NeedsBytes:
            return;
        case ItemFramer::Result::TooLong:
            CloseBroken("an item of " + std::to_string(mFramer.GetLength()) + " bytes is announced");
            break;
        case ItemFramer::Result::Item:
            HandleItem();
            break;
        }
    }
}

void KLVTCPStream::HandleItem()
{
    const std::uint32_t keyType = mFramer.GetKey() >> 27;
    IOStream* const overflow = mFramer.GetOverflow();
    CommandTimingStats::Instance().SetCurrentKey(mFramer.GetKey());
    if (!(overflow ? HandleKey(keyType, overflow) : HandleKey(keyType))) {
        AUDIT_LOG(Fault, "KLVTCPStream::OnRead() %s: Could not process key type 0x%x\n",
                  overflow ? "(Length > 262144)" : "(Length <= 262144)", keyType);
        Skip(mFramer.GetLength() + ItemFramer::HEADER_SIZE, true);
    }
    mFramer.Finish();
    OnItemDone();
}

void KLVTCPStream::CloseBroken(const std::string& reason)
{
    mBroken = true;
    AUDIT_STREAM(Fault, "KLVTCPStream from " << AddressText(mRemoteAddress) << " closed: " << reason << "\r\n");
    SetFlushBeforeClose(false);
    SetCloseAndDelete();
}

void KLVTCPStream::BeginItem()
{
    if (mCoalescer.GetState() == SendCoalescer::State::None) BeginGather();
}

bool KLVTCPStream::WriteData(const void* src, std::uint32_t size)
{
    if (mCoalescer.GetState() == SendCoalescer::State::None) {
        SendBuf(static_cast<const char*>(src), size);
    } else {
        // The handler must not sleep through the time that is armed here.
        if (mCoalescer.Write(static_cast<const char*>(src), size)) Handler().Wake();
    }
    return true;
}

// Start, peer and end of a stream

void KLVTCPStream::OnAccept()
{
    mAccepted = true;
    StreamUp("OnAccept");
}

void KLVTCPStream::StreamUp(const char* event)
{
    mStreamConnected = true;
    IdentifyPeer();
    AUDIT_STREAM(CommsDebug, "*** KLVTCPStream::" << event << " RemoteIP " << AddressText(mRemoteAddress) << "Local "
                                                  << unsigned{mNodeId} << "Local Port " << mLocalPort << " Remote Port "
                                                  << mRemotePort << " this " << static_cast<const void*>(this)
                                                  << " ***\r\n");
}

void KLVTCPStream::OnDisconnect()
{
    mStreamConnected = false;
    AUDIT_LOG(CommsDebug, "*** KLVTCPStream::OnDisconnect %p ***\r\n", static_cast<const void*>(this));
}

void KLVTCPStream::OnDisconnect(short info, int errnum)
{
    AUDIT_STREAM(CommsDebug, "Disconnect " << ((info & 1) != 0 ? "write " : "read ") << " "
                                           << ((info & 2) != 0 ? "normal " : "error ") << ": [" << errnum << "] "
                                           << std::strerror(errnum) << "\r\n");
}

void KLVTCPStream::OnDelete()
{
    mStreamConnected = false;
    mShutdownLocally = false;
    mDeleted = true;
    AUDIT_LOG(CommsDebug, "*** KLVTCPStream::OnDelete %p ***\r\n", static_cast<const void*>(this));
}

void KLVTCPStream::ShutdownStreamViaHandler()
{
    AUDIT_LOG(CommsDebug, "*** KLVTCPStream::ShutdownStreamViaHandler %p ***\r\n", static_cast<const void*>(this));
    SetConnectionRetry(0);
    SetReconnect(false);
    SetCloseAndDelete(true);
    mShutdownLocally = true;
}

void KLVTCPStream::IdentifyPeer()
{
    sockaddr_in local{};
    socklen_t size = sizeof local;
    if (getsockname(GetSocket(), reinterpret_cast<sockaddr*>(&local), &size) == 0) {
        mLocalPort = ntohs(local.sin_port);
    } else {
        AUDIT_LOG(Fault, "KLVTCPStream FAILED TO GET LOCAL PORT (Errno=%d:%s)\r\n", errno, std::strerror(errno));
    }
    sockaddr_in remote{};
    size = sizeof remote;
    if (getpeername(GetSocket(), reinterpret_cast<sockaddr*>(&remote), &size) == 0) {
        mRemotePort = ntohs(remote.sin_port);
        mRemoteAddress = ntohl(remote.sin_addr.s_addr);
        IdentifyRole(static_cast<std::uint8_t>(ntohl(local.sin_addr.s_addr)));
    } else {
        AUDIT_LOG(Fault, "KLVTCPStream FAILED TO GET REMOTE PORT (Errno=%d:%s)\r\n", errno, std::strerror(errno));
    }
    FixSegmentSize();
}

void KLVTCPStream::IdentifyRole(std::uint8_t lastOctet)
{
    mNodeId = lastOctet == OwnerHost ? static_cast<std::uint8_t>((mRemoteAddress >> 8) & 31)
                                     : static_cast<std::uint8_t>(lastOctet - 1);
    const char* text = "Primary router: ";
    int less = 0;
    if (mNodeId >= 0x10 && mNodeId <= 0x2F) {
        text = "Primary expander: ";
        less = 0x10;
    } else if (mNodeId >= 0x30 && mNodeId <= 0x3F) {
        text = "Secondary router: ";
        less = 0x20;
    } else if (mNodeId >= 0x40 && mNodeId <= 0x4F) {
        text = "Secondary expander: ";
        less = 0x30;
    }
    AUDIT_STREAM(CommsDebug, text << unsigned{mNodeId} << AddressText(mRemoteAddress) << "\r\n");
    mNodeId = static_cast<std::uint8_t>(mNodeId - less);
}

void KLVTCPStream::FixSegmentSize()
{
    if (!mCoalescer.HasTimer() || mCoalescer.GetState() != SendCoalescer::State::Mtu) return;
    int mtu{};
    socklen_t size = sizeof mtu;
    if (getsockopt(GetSocket(), IPPROTO_IP, IP_MTU, &mtu, &size) == -1) {
        AUDIT_LOG(Fault, "setsockopt(IPPROTO_IP, IP_MTU):%d %s\r\n", errno, std::strerror(errno));
        mtu = 100;
    }
    const std::uint32_t segment = static_cast<std::uint32_t>(mtu) - TcpIpHeaders;
    AUDIT_LOG(CommsDebug, "Mtu=%zu, Mss=%zu\r\n", static_cast<std::size_t>(mtu), static_cast<std::size_t>(segment));
    SetCoalesce(mCoalescer.GetIntervalUs(), TimerUnits::Microseconds, segment);
}
