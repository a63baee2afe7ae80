#include "Common/KLV/KLVReadSet.h"

#include "Audit/Audit.h"
#include "Common/KLV/CommandIdTexts.h"

#include <cstdio>

KLVReadSet::KLVReadSet(DataStream& stream) : KLVSet(stream)
{
    mStream.ResetReadCount();
    if (!mStream.ReadHeader(mKey, mValueMark)) mBad = true;
    // A length that overflows the counter or exceeds the stream cannot be that of an item.
    const std::uint32_t read = mStream.GetReadCount();
    if (mValueMark < read || mValueMark - read > mStream.GetAvailable()) {
        mValueMark = read;
        mBad = true;
    }
}

KLVReadSet::~KLVReadSet()
{
    const std::uint32_t left = GetBytesLeft();
    if (!mCheckOnClose || left == 0) return;
    const char* const format =
        mKey != 0 ? "Error reading data key = 0x%-8.8lx - Data length read %u is inconsistent with KLV header %u\r\n"
                  : "Data key not recognised = 0x%-8.8lx - Data length read %u is inconsistent with KLV header %u\n";
    char line[160];
    std::snprintf(line, sizeof line, format, static_cast<unsigned long>(mKey), mValueMark, mStream.GetReadCount());
    Audit::Instance()->WriteStampedTagged(Audit::Stamp, Audit::KlvDataTag, "%s", line);
    mStream.Skip(left, true);
}

std::uint32_t KLVReadSet::GetBytesLeft() const
{
    const std::uint32_t read = mStream.GetReadCount();
    return read < mValueMark ? mValueMark - read : 0;
}

bool KLVReadSet::ReadRaw(void* dest, std::uint32_t size)
{
    if (!mBad && size <= GetBytesLeft() && mStream.Read(dest, size)) return true;
    mBad = true;
    return false;
}

std::uint32_t KLVReadSet::ReadCount(std::uint32_t elementSize)
{
    std::uint32_t count{};
    if (!ReadNative(count)) return 0;
    if (std::uint64_t{count} * elementSize <= GetBytesLeft()) return count;
    mBad = true;
    return 0;
}

bool KLVReadSet::ReadString(std::string& text)
{
    std::uint32_t Length{};
    if (!ReadNative(Length)) return false;
    if (!AUDIT_ASSERT_MESSAGE(Length < MAX_STRING_SIZE, "Length (" + std::to_string(Length) + "), MAX_STRING_SIZE (" +
                                                            std::to_string(MAX_STRING_SIZE) + ")")) {
        mBad = true;
        return false;
    }
    // Nothing is allocated for a count that the item cannot hold.
    std::string bytes;
    if (Length <= GetBytesLeft()) bytes.resize(Length);
    if (bytes.size() != Length || !ReadRaw(bytes.data(), Length)) {
        mBad = true;
        AUDIT_LOG(Fault, "Error Reading string data in KLVReadSet\n");
        return false;
    }
    text = std::move(bytes);
    return true;
}

KLVCommandReadSet::~KLVCommandReadSet()
{
    AUDIT_LOG(KLVCommandReadSetDebug, "KLVCommandReadSet: %p (%u):%s\r\n", static_cast<const void*>(&mStream),
              GetCommandId(), CommandIdToText(GetCommandId()));
}
