#include "KLVStreams/source/IOStream.h"

#include <algorithm>
#include <cstring>

bool IOStream::ReadData(void* dest, std::uint32_t size)
{
    if (size > mBytes.size() - mReadPosition) return false;
    if (size != 0) std::memcpy(dest, mBytes.data() + mReadPosition, size);
    mReadPosition += size;
    return true;
}

bool IOStream::WriteData(const void* src, std::uint32_t size)
{
    mBytes.append(static_cast<const char*>(src), size);
    return true;
}

void IOStream::IgnoreData(std::uint32_t size)
{
    mReadPosition += std::min<std::size_t>(size, mBytes.size() - mReadPosition);
}

void IOStream::Reset()
{
    // A large item is rare, and its memory is not kept.
    std::string().swap(mBytes);
    mReadPosition = 0;
    ResetCounts();
}
