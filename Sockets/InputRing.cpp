#include "Sockets/InputRing.h"

#include <algorithm>
#include <cstring>

bool InputRing::Write(const char* data, std::size_t size)
{
    if (size > GetSpace()) return false;
    mLength += size;
    while (size != 0) {
        const std::size_t piece = std::min(size, mCapacity - mWritePosition);
        std::memcpy(mStorage.get() + mWritePosition, data, piece);
        std::memcpy(mStorage.get() + mWritePosition + mCapacity, data, piece);
        mWritePosition = (mWritePosition + piece) % mCapacity;
        data += piece;
        size -= piece;
    }
    return true;
}

bool InputRing::Read(void* dest, std::size_t size)
{
    if (size > mLength) return false;
    if (dest && size != 0) std::memcpy(dest, mStorage.get() + mReadPosition, size);
    mLength -= size;
    mReadPosition += size;
    if (mReadPosition >= mCapacity) mReadPosition -= mCapacity;
    if (mLength == 0) mReadPosition = mWritePosition = 0;
    return true;
}
