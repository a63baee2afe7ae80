#pragma once

#include <cstddef>
#include <memory>

/// Bytes on their way in. The storage is twice the capacity, and each byte stands in it twice, one capacity apart, so
/// that any run of held bytes lies in one piece. Memory is not touched before it is used.
class InputRing
{
public:
    explicit InputRing(std::size_t capacity) : mCapacity(capacity), mStorage(new char[2 * capacity]) {}

    /// False, with nothing written, if there is no room for all of it.
    bool Write(const char* data, std::size_t size);
    /// False, with nothing read, if fewer bytes are held. A null destination drops them.
    bool Read(void* dest, std::size_t size);
    bool Remove(std::size_t size) { return Read(nullptr, size); }
    std::size_t GetLength() const { return mLength; }
    std::size_t GetSpace() const { return mCapacity - mLength; }

private:
    const std::size_t mCapacity;
    const std::unique_ptr<char[]> mStorage;
    std::size_t mReadPosition = 0;
    std::size_t mWritePosition = 0;
    std::size_t mLength = 0;
};
