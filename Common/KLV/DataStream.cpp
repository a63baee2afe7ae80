#include "Common/KLV/DataStream.h"

#include "Audit/Audit.h"
#include "MiscSource/LittleEndian.h"

namespace {

constexpr std::uint32_t HeaderSize = 8;

} // namespace

void DataStream::EndKey(std::uint32_t index, std::uint32_t start, std::uint32_t key)
{
    const std::uint32_t written = mWriteCount - start - HeaderSize;
    if (mPredefinedLength < 0) {
        if (index < mItemLengths.size()) mItemLengths[index] = written;
    } else if (written != static_cast<std::uint32_t>(mPredefinedLength)) {
        Audit::Instance()->WriteStampedTagged(
            Audit::Stamp, Audit::KlvDataTag,
            "Error writing data for key 0x%-8.8lx - Predefined data length %d / write mismatch %d\n",
            static_cast<unsigned long>(key), mPredefinedLength, static_cast<int>(written));
    }
    EndItem();
}

void DataStream::ResetForWrite(bool enable)
{
    mWriteEnabled = enable;
    mNextItem = 0;
    mPredefinedLength = -1;
    if (!enable) mItemLengths.clear();
}

void DataStream::BeginKey(std::uint32_t key, std::uint32_t& index, std::uint32_t& start, std::int32_t length)
{
    BeginItem();
    mPredefinedLength = length;
    index = mNextItem++;
    start = mWriteCount;
    if (length >= 0) mWriteEnabled = true;
    if (!mWriteEnabled) {
        mItemLengths.push_back(0);
        mWriteCount += HeaderSize;
        return;
    }
    std::uint32_t word = static_cast<std::uint32_t>(length);
    if (length < 0) word = index < mItemLengths.size() ? mItemLengths[index] : 0;
    std::uint8_t header[HeaderSize];
    StoreLittleEndian(key, header);
    StoreLittleEndian(word, header + 4);
    Write(header, HeaderSize);
}

bool DataStream::Write(const void* src, std::uint32_t size)
{
    if (!mWriteEnabled) return false;
    const bool written = WriteData(src, size);
    if (written) mWriteCount += size;
    return written;
}

bool DataStream::Read(void* dest, std::uint32_t size)
{
    const bool read = ReadData(dest, size);
    if (read) mReadCount += size;
    return read;
}

bool DataStream::ReadHeader(std::uint32_t& key, std::uint32_t& end)
{
    std::uint8_t header[HeaderSize];
    if (!Read(header, HeaderSize)) {
        key = 0;
        end = mReadCount;
        return false;
    }
    key = LoadLittleEndian<std::uint32_t>(header);
    end = LoadLittleEndian<std::uint32_t>(header + 4) + mReadCount;
    return true;
}

void DataStream::Skip(std::uint32_t size, bool report)
{
    if (report) {
        Audit::Instance()->WriteStampedTagged(Audit::Stamp, Audit::KlvDataTag, "Skipping %u bytes of data\n", size);
    }
    mReadCount += size;
    IgnoreData(size);
}
