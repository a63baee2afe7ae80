#pragma once

#include <cstdint>
#include <vector>

/// The stream of bytes under all KLV sets. Its kinds are the TCP stream, its overflow store, and CommandContainer.
/// Used by one thread at a time; it holds no lock.
class DataStream
{
public:
    DataStream() = default;
    virtual ~DataStream() = default;
    DataStream(const DataStream&) = delete;
    DataStream& operator=(const DataStream&) = delete;

    /// Ends the item that BeginKey gave this index and start. A declared length that differs from what was written is
    /// logged; the bytes have gone by then.
    virtual void EndKey(std::uint32_t index, std::uint32_t start, std::uint32_t key);
    virtual bool ReadData(void* dest, std::uint32_t size) = 0;
    virtual bool WriteData(const void* src, std::uint32_t size) = 0;
    virtual void IgnoreData(std::uint32_t size) = 0;
    virtual void Commit() {}
    /// These two enclose the bytes of one item, which a stream may gather and send together.
    virtual void BeginItem() {}
    virtual void EndItem() {}
    /// The most bytes that can still be read, for streams that know; a reader allocates nothing beyond.
    virtual std::uint32_t GetAvailable() const { return 0xFFFFFFFF; }

    void ResetForWrite(bool enable);
    /// Opens an item and writes its header.
    /// @param length bytes of the value, or negative to take the length noted by an earlier pass.
    void BeginKey(std::uint32_t key, std::uint32_t& index, std::uint32_t& start, std::int32_t length);
    /// Counts and carries out a write, but only while writing is enabled.
    bool Write(const void* src, std::uint32_t size);
    bool Read(void* dest, std::uint32_t size);
    /// Reads the 8 bytes of a header. @param end value of the read count at which the item's value is used up.
    /// @return false, with key and end 0, if there are no 8 bytes.
    bool ReadHeader(std::uint32_t& key, std::uint32_t& end);
    void Skip(std::uint32_t size, bool report);

    /// Bytes consumed for the current read set, header included.
    std::uint32_t GetReadCount() const { return mReadCount; }
    void ResetReadCount() { mReadCount = 0; }
    std::uint32_t GetWriteCount() const { return mWriteCount; }

protected:
    void SetWriteEnabled(bool enable) { mWriteEnabled = enable; }
    void ResetCounts() { mReadCount = mWriteCount = 0; }
    void AddWriteCount(std::uint32_t size) { mWriteCount += size; }

private:
    std::uint32_t mReadCount{};
    std::uint32_t mWriteCount = 0;
    bool mWriteEnabled{};
    std::vector<std::uint32_t> mItemLengths;
    std::uint32_t mNextItem{};
    std::int32_t mPredefinedLength = -1;
};
