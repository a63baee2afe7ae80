#include "Sockets/InputRing.h"

#include <algorithm>
#include <cstring>

std::size_t InputRing::GetFreePieces(std::size_t size, iovec (&pieces)[2])
{
    const std::size_t first = std::min(size, mCapacity - mWritePosition);
    pieces[0] = {mStorage.get() + mWritePosition, first};
    pieces[1] = {mStorage.get(), size - first};
    return first < size ? 2 : 1;
}

void InputRing::Commit(std::size_t size)
{
    mLength += size;
    mWritePosition += size;
    if (mWritePosition >= mCapacity) mWritePosition -= mCapacity;
}

bool InputRing::Write(const char* data, std::size_t size)
{
    if (size > GetSpace()) return false;
    iovec pieces[2];
    const std::size_t count = GetFreePieces(size, pieces);
    for (std::size_t i = 0; i < count; ++i) {
        if (pieces[i].iov_len != 0) std::memcpy(pieces[i].iov_base, data, pieces[i].iov_len);
        data += pieces[i].iov_len;
    }
    Commit(size);
    return true;
}

bool InputRing::Read(void* dest, std::size_t size)
{
    if (size > mLength) return false;
    const std::size_t first = std::min(size, mCapacity - mReadPosition);
    if (dest && size != 0) {
        std::memcpy(dest, mStorage.get() + mReadPosition, first);
        if (first < size) std::memcpy(static_cast<char*>(dest) + first, mStorage.get(), size - first);
    }
    mLength -= size;
    mReadPosition += size;
    if (mReadPosition >= mCapacity) mReadPosition -= mCapacity;
    if (mLength == 0) mReadPosition = mWritePosition = 0;
    return true;
}
