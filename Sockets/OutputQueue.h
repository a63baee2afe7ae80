#pragma once

#include <cstddef>
#include <list>
#include <memory>

/// Bytes to send, in blocks, so that a burst costs few allocations.
class OutputQueue
{
public:
    static constexpr std::size_t BlockSize = 0xFA000;

    void Append(const char* data, std::size_t size);
    /// The first run of bytes; its size is 0 if the queue is empty.
    const char* GetFront(std::size_t& size) const;
    /// Drops that many bytes of the first run.
    void RemoveFront(std::size_t size);
    std::size_t GetLength() const { return mLength; }

private:
    struct Block
    {
        std::unique_ptr<char[]> bytes{new char[BlockSize]};
        std::size_t read = 0;
        std::size_t write = 0;
        std::size_t GetLeft() const { return write - read; }
    };

    std::list<Block> mBlocks;
    std::size_t mLength = 0;
};
