#include "KLVStreams/source/KLVTCPStream.h"

#include "Audit/Audit.h"
#include "Common/KLV/CommandTimingStats.h"
#include "Common/KLV/LittleEndian.h"
#include "MiscSource/GlobalConstants.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>

namespace {

constexpr std::uint32_t HeaderSize = 8;

unsigned long Printed(const void* address)
{
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(address));
}

} // namespace

KLVTCPStream::KLVTCPStream(ISocketHandler& handler)
    : TcpSocket(handler, INPUT_SIZE),
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
    bool advanced = true;
    while (advanced && !mBroken) {
        if (mReadState == ReadState::KeyAndLength) {
            advanced = ReadKeyAndLength();
        } else if (mReadState != ReadState::Data) {
            AuditAssertFailed(__FILE__, __LINE__, "false");
            return;
        } else if (mLength <= MAX_NORMAL_LENGTH) {
            advanced = ReadNormalItem();
        } else {
            advanced = ReadOverflowItem();
        }
    }
}

bool KLVTCPStream::ReadKeyAndLength()
{
    AUDIT_LOG(CommsVerboseDebug, " Waiting for key+len buf=%d\r\n", static_cast<int>(ibuf.GetLength()));
    if (!ibuf.Read(mHeader, HeaderSize)) return false;
    mKey = LoadLittleEndian<std::uint32_t>(mHeader);
    mLength = LoadLittleEndian<std::uint32_t>(mHeader + 4);
    mReadState = ReadState::Data;
    if (mOverflowActive) ResetOverflow();
    if (mLength > MAX_LENGTH) CloseBroken("an item of " + std::to_string(mLength) + " bytes is announced");
    return true;
}

bool KLVTCPStream::ReadNormalItem()
{
    AUDIT_LOG(CommsVerboseDebug, "Key 0x%lx Waiting for %d bytes of data buf=%d\r\n", static_cast<unsigned long>(mKey),
              static_cast<int>(mLength), static_cast<int>(ibuf.GetLength()));
    if (ibuf.GetLength() < mLength) return false;
    ServeHeader();
    if (!HandleKey(mKey >> 27)) SkipRefused("(Length <= 262144)");
    FinishItem();
    return true;
}

bool KLVTCPStream::ReadOverflowItem()
{
    if (!mOverflowActive) {
        mOverflow.WriteData(mHeader, HeaderSize);
        mOverflowActive = true;
    }
    AUDIT_LOG(CommsVerboseDebug, " Waiting for %d bytes of overflow data buf=%d\r\n", static_cast<int>(mLength),
              static_cast<int>(ibuf.GetLength()));
    if (ibuf.GetLength() == 0) return false;
    const std::size_t take = std::min<std::size_t>(ibuf.GetLength(), mLength - mOverflow.GetWriteCount());
    std::string piece(take, '\0');
    ibuf.Read(piece.data(), take);
    const auto size = static_cast<std::uint32_t>(take);
    if (mOverflow.WriteData(piece.data(), size)) mOverflow.CountValueBytes(size);
    if (mOverflow.GetWriteCount() < mLength) return false;
    ServeHeader();
    if (!HandleKey(mKey >> 27, &mOverflow)) SkipRefused("(Length > 262144)");
    ResetOverflow();
    FinishItem();
    return true;
}

void KLVTCPStream::ServeHeader()
{
    mKeyLenPtr = mHeader;
    mKeyLenLeft = HeaderSize;
    mReadPhase = ReadPhase::Header;
    CommandTimingStats::Instance().SetCurrentKey(mKey);
}

void KLVTCPStream::SkipRefused(const char* limitText)
{
    AUDIT_LOG(Fault, "KLVTCPStream::OnRead() %s: Could not process key type 0x%x\n", limitText, mKey >> 27);
    Skip(mLength + HeaderSize, true);
}

void KLVTCPStream::FinishItem()
{
    OnItemDone();
    mReadState = ReadState::KeyAndLength;
}

void KLVTCPStream::ResetOverflow()
{
    mOverflow.Reset();
    mOverflowActive = false;
}

void KLVTCPStream::CloseBroken(const std::string& reason)
{
    mBroken = true;
    AUDIT_STREAM(Fault, "KLVTCPStream from " << AddressText(mRemoteAddress) << " closed: " << reason << "\r\n");
    SetFlushBeforeClose(false);
    SetCloseAndDelete();
}

bool KLVTCPStream::HandleKey(std::uint32_t)
{
    return false;
}

bool KLVTCPStream::HandleKey(std::uint32_t, DataStream*)
{
    return false;
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

void KLVTCPStream::Commit()
{
    mCoalescer.Commit();
}

bool KLVTCPStream::ReadData(void* dest, std::uint32_t size)
{
    AUDIT_LOG(CommsVerboseDebug, "ReadData( 0x%-8.8lx, %zu )\n", Printed(dest), static_cast<std::size_t>(size));
    auto* out = static_cast<std::uint8_t*>(dest);
    if (mReadPhase == ReadPhase::Header) {
        const std::uint32_t piece = std::min(size, mKeyLenLeft);
        std::memcpy(out, mKeyLenPtr, piece);
        mKeyLenPtr += piece;
        mKeyLenLeft -= piece;
        if (mKeyLenLeft == 0) mReadPhase = ReadPhase::Body;
        AUDIT_LOG(CommsVerboseDebug, " copy %zu from KeyLenPtr into 0x%-8.8lx\n", static_cast<std::size_t>(piece),
                  Printed(out));
        out += piece;
        size -= piece;
        if (size == 0) return true;
    }
    if (mReadPhase != ReadPhase::Body) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return false;
    }
    const bool success = mOverflowActive ? mOverflow.ReadData(out, size) : ibuf.Read(out, size);
    AUDIT_LOG(CommsVerboseDebug, " read %d from %s into 0x%-8.8lx. Success=%d\n", static_cast<int>(size),
              mOverflowActive ? "overflow stream" : "ibuf", Printed(out), success ? 1 : 0);
    return success || mOverflowActive;
}

void KLVTCPStream::IgnoreData(std::uint32_t size)
{
    if (mReadPhase == ReadPhase::Header) {
        const std::uint32_t piece = std::min(size, mKeyLenLeft);
        AUDIT_LOG(CommsVerboseDebug, " IgnoreData() : Skipping %d bytes\n", static_cast<int>(piece));
        mKeyLenPtr += piece;
        mKeyLenLeft -= piece;
        if (mKeyLenLeft == 0) mReadPhase = ReadPhase::Body;
        size -= piece;
    }
    if (size == 0) return;
    if (mOverflowActive) {
        AUDIT_LOG(CommsVerboseDebug, " IgnoreData() overflow : Removing %d bytes from buf\n", static_cast<int>(size));
        mOverflow.Skip(size, true);
        return;
    }
    AUDIT_LOG(CommsVerboseDebug, " IgnoreData() : Removing %d bytes from buf\n", static_cast<int>(size));
    if (!ibuf.Remove(size)) AuditAssertFailed(__FILE__, __LINE__, "ibuf.Remove( Size )");
}
