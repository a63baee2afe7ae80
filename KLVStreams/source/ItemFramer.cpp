#include "KLVStreams/source/ItemFramer.h"

#include "Audit/Audit.h"
#include "MiscSource/LittleEndian.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

unsigned long ForPrintf(const void* address)
{
    return static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(address));
}

} // namespace

ItemFramer::Result ItemFramer::Next()
{
    if (mReadState == ReadState::KeyAndLength) {
        AUDIT_LOG(CommsVerboseDebug, " Waiting for key+len buf=%d\r\n", static_cast<int>(mRing.GetLength()));
        if (!mRing.Read(mHeader, HEADER_SIZE)) return Result::NeedsBytes;
        mKey = LoadLittleEndian<std::uint32_t>(mHeader);
        mLength = LoadLittleEndian<std::uint32_t>(mHeader + 4);
        mReadState = ReadState::Data;
    } else if (mReadState != ReadState::Data) {
        // There is no third state, nor a third phase below: memory that was overwritten is caught here.
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return Result::NeedsBytes;
    }
    if (mLength > MaxLength) return Result::TooLong;
    if (!(mLength <= MaxNormalLength ? IsWhole() : CollectOverflow())) return Result::NeedsBytes;
    mKeyLenPtr = mHeader;
    mKeyLenLeft = HEADER_SIZE;
    mReadPhase = ReadPhase::Header;
    return Result::Item;
}

bool ItemFramer::IsWhole()
{
    AUDIT_LOG(CommsVerboseDebug, "Key 0x%lx Waiting for %d bytes of data buf=%d\r\n", static_cast<unsigned long>(mKey),
              static_cast<int>(mLength), static_cast<int>(mRing.GetLength()));
    return mRing.GetLength() >= mLength;
}

bool ItemFramer::CollectOverflow()
{
    if (!mOverflowActive) {
        mOverflow.WriteData(mHeader, HEADER_SIZE);
        mOverflowActive = true;
    }
    AUDIT_LOG(CommsVerboseDebug, " Waiting for %d bytes of overflow data buf=%d\r\n", static_cast<int>(mLength),
              static_cast<int>(mRing.GetLength()));
    if (mRing.GetLength() == 0) return false;
    const std::size_t take = std::min<std::size_t>(mRing.GetLength(), mLength - mOverflow.GetWriteCount());
    std::string piece(take, '\0');
    mRing.Read(piece.data(), take);
    const auto size = static_cast<std::uint32_t>(take);
    if (mOverflow.WriteData(piece.data(), size)) mOverflow.CountValueBytes(size);
    return mOverflow.GetWriteCount() >= mLength;
}

void ItemFramer::Finish()
{
    if (mOverflowActive) mOverflow.Reset();
    mOverflowActive = false;
    mReadState = ReadState::KeyAndLength;
}

std::uint32_t ItemFramer::TakeOfHeader(std::uint32_t size)
{
    const std::uint32_t piece = std::min(size, mKeyLenLeft);
    mKeyLenPtr += piece;
    mKeyLenLeft -= piece;
    if (mKeyLenLeft == 0) mReadPhase = ReadPhase::Body;
    return piece;
}

bool ItemFramer::Read(void* dest, std::uint32_t size)
{
    AUDIT_LOG(CommsVerboseDebug, "ReadData( 0x%-8.8lx, %zu )\n", ForPrintf(dest), static_cast<std::size_t>(size));
    auto* out = static_cast<std::uint8_t*>(dest);
    if (mReadPhase == ReadPhase::Header) {
        const std::uint8_t* const header = mKeyLenPtr;
        const std::uint32_t piece = TakeOfHeader(size);
        std::memcpy(out, header, piece);
        AUDIT_LOG(CommsVerboseDebug, " copy %zu from KeyLenPtr into 0x%-8.8lx\n", static_cast<std::size_t>(piece),
                  ForPrintf(out));
        out += piece;
        size -= piece;
        if (size == 0) return true;
    }
    if (mReadPhase != ReadPhase::Body) {
        AuditAssertFailed(__FILE__, __LINE__, "false");
        return false;
    }
    const bool success = mOverflowActive ? mOverflow.ReadData(out, size) : mRing.Read(out, size);
    AUDIT_LOG(CommsVerboseDebug, " read %d from %s into 0x%-8.8lx. Success=%d\n", static_cast<int>(size),
              mOverflowActive ? "overflow stream" : "ibuf", ForPrintf(out), success ? 1 : 0);
    return success || mOverflowActive;
}

void ItemFramer::Ignore(std::uint32_t size)
{
    if (mReadPhase == ReadPhase::Header) {
        const std::uint32_t piece = TakeOfHeader(size);
        AUDIT_LOG(CommsVerboseDebug, " IgnoreData() : Skipping %d bytes\n", static_cast<int>(piece));
        size -= piece;
    }
    if (size == 0) return;
    if (mOverflowActive) {
        AUDIT_LOG(CommsVerboseDebug, " IgnoreData() overflow : Removing %d bytes from buf\n", static_cast<int>(size));
        mOverflow.Skip(size, true);
        return;
    }
    AUDIT_LOG(CommsVerboseDebug, " IgnoreData() : Removing %d bytes from buf\n", static_cast<int>(size));
    if (!mRing.Remove(size)) AuditAssertFailed(__FILE__, __LINE__, "ibuf.Remove( Size )");
}
