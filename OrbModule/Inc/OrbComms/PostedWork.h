#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

/// What the socket thread has posted to the main service and what has not run there yet. While that is too much, the
/// streams are not read, so that TCP slows the peers down and nothing is lost; the main thread tells when it is done
/// with most of it.
///
/// The socket thread adds and asks, the main thread takes off. No lock, and nobody waits.
class PostedWork
{
public:
    static constexpr std::size_t HighMark = 4u << 20;
    static constexpr std::size_t LowMark = 1u << 20;
    /// What a handler costs beside the bytes of its command.
    static constexpr std::size_t HandlerSize = 256;

    void Add(std::size_t size) { mSize += size; }
    void TakeOff(std::size_t size)
    {
        if ((mSize -= size) <= LowMark && mFull && mDrained) mDrained();
    }
    /// From above the high mark until the low mark is reached. Socket thread.
    bool IsFull()
    {
        if (!mFull && mSize > HighMark) mFull = true;
        // Behind the flag: either this sees that all is done, or the main thread sees that it has to tell.
        if (mFull && mSize <= LowMark) mFull = false;
        return mFull;
    }
    /// Called on the main thread, once or more, when too much work has been done. Set by the main thread.
    void SetDrained(const std::function<void()>& drained) { mDrained = drained; }

private:
    std::atomic<std::size_t> mSize{0};
    std::atomic<bool> mFull{false};
    std::function<void()> mDrained;
};
