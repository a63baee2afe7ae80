#pragma once

#include <cstddef>
#include <memory>

#include <sys/uio.h>

/// Bytes on their way in. The socket reads straight into it. Memory is not touched before it is used, and a ring that
/// runs empty starts again at its beginning, so small commands only ever touch its first pages.
class InputRing
{
public:
    explicit InputRing(std::size_t capacity) : mCapacity(capacity), mStorage(new char[capacity]) {}

    /// False, with nothing written, if not all of it fits.
    bool Write(const char* data, std::size_t size);
    /// False, with nothing read, if fewer bytes are held. A null destination drops them.
    bool Read(void* dest, std::size_t size);
    bool Remove(std::size_t size) { return Read(nullptr, size); }
    std::size_t GetLength() const { return mLength; }
    std::size_t GetSpace() const { return mCapacity - mLength; }

    /// Where the next bytes go, in at most two pieces. @param size at most the free space. @return number of pieces.
    std::size_t GetFreePieces(std::size_t size, iovec (&pieces)[2]);
    /// That many bytes were put there.
    void Commit(std::size_t size);

private:
    const std::size_t mCapacity;
    const std::unique_ptr<char[]> mStorage;
    std::size_t mReadPosition = 0;
    std::size_t mWritePosition = 0;
    std::size_t mLength = 0;
};
