#pragma once

#include "Common/KLV/DataStream.h"

#include <cstdint>
#include <string>

/// Holds one item that is too large for a stream's input ring: what is written can be read again. It grows as bytes
/// arrive, never by what a header claims.
class IOStream : public DataStream
{
public:
    IOStream() { SetWriteEnabled(true); }

    bool ReadData(void* dest, std::uint32_t size) override;
    bool WriteData(const void* src, std::uint32_t size) override;
    void IgnoreData(std::uint32_t size) override;

    /// Counts bytes of the value that were stored; the header is not counted.
    void CountValueBytes(std::uint32_t size) { AddWriteCount(size); }
    void Reset();

private:
    std::string mBytes;
    std::size_t mReadPosition = 0;
};
