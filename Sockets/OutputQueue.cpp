#include "Sockets/OutputQueue.h"

#include <algorithm>
#include <cstring>

void OutputQueue::Append(const char* data, std::size_t size)
{
    mLength += size;
    while (size != 0) {
        if (mBlocks.empty() || mBlocks.back().write == BlockSize) mBlocks.emplace_back();
        Block& block = mBlocks.back();
        const std::size_t piece = std::min(size, BlockSize - block.write);
        std::memcpy(block.bytes.get() + block.write, data, piece);
        block.write += piece;
        data += piece;
        size -= piece;
    }
}

const char* OutputQueue::GetFront(std::size_t& size) const
{
    size = mBlocks.empty() ? 0 : mBlocks.front().GetLeft();
    return size == 0 ? nullptr : mBlocks.front().bytes.get() + mBlocks.front().read;
}

void OutputQueue::RemoveFront(std::size_t size)
{
    Block& block = mBlocks.front();
    block.read += size;
    mLength -= size;
    if (block.GetLeft() == 0) mBlocks.pop_front();
}
