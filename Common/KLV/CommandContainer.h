#pragma once

#include "Common/KLV/DataStream.h"
#include "Common/KLV/FieldCodec.h"
#include "Common/KLV/KLVReadSet.h"

#include <cstdint>
#include <memory>
#include <vector>

class ForwardableDeskCommand;

/// One command as raw bytes, header included: how one command rides inside another. Used by one thread at a time.
class CommandContainer : public DataStream
{
public:
    /// Stores a command as a whole item. The container must be empty.
    void Store(const ForwardableDeskCommand& command);

    bool WriteData(const void* src, std::uint32_t size) override;
    bool ReadData(void* dest, std::uint32_t size) override;
    void IgnoreData(std::uint32_t size) override;
    std::uint32_t GetAvailable() const override { return GetSize() - mReadCounter; }

    /// Bytes of the nested form: the count and the item.
    std::uint32_t GetLength() const { return GetSize() + 4; }
    void Write(KLVWriteSet& set) const;
    void Read(KLVReadSet& set);
    /// Opens the nested command in place; made on the first call. Null if the container is empty. Kept for the end
    /// that a command is meant for; this module passes it on unread.
    std::shared_ptr<KLVCommandReadSet> GetReadSet();

private:
    std::uint32_t GetSize() const { return static_cast<std::uint32_t>(mCmdBuffer.size()); }

    std::vector<std::uint8_t> mCmdBuffer;
    std::uint32_t mReadCounter = 0;
    /// Reads from the buffer when it closes, so it goes first.
    std::shared_ptr<KLVCommandReadSet> mReadSet;
};
