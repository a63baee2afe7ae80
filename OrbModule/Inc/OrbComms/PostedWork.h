#pragma once

#include <atomic>
#include <cstddef>
#include <functional>

/// Work that the socket thread has posted to the main service and that has not run yet. Above a limit the streams are
/// not read, so that TCP slows the peers down and nothing is lost; the main thread wakes the socket thread once most of
/// it is done.
///
/// The socket thread adds and asks, the main thread takes off. Lock-free; neither thread waits.
class PostedWork
{
public:
    static constexpr std::size_t HighMark = 4u << 20;
    static constexpr std::size_t LowMark = 1u << 20;
    /// Memory of a queued handler besides the bytes of its command.
    static constexpr std::size_t HandlerSize = 256;

    void Add(std::size_t size) { mSize += size; }
    void TakeOff(std::size_t size)
    {
        if ((mSize -= size) <= LowMark && mFull && mDrained) mDrained();
    }
    /// From above the high mark until the low mark is reached. Socket thread.
    bool IsFull()
    {
        if (mSize > HighMark) mFull = true;
        // After the flag is set: either this sees that most is done, or the main thread sees that it has to wake.
        if (mSize <= LowMark) mFull = false;
        return mFull;
    }
    /// Called on the main thread, once or more, when too much work has been done. Set by the main thread.
    void SetDrained(const std::function<void()>& drained) { mDrained = drained; }

private:
    std::atomic<std::size_t> mSize{0};
    std::atomic<bool> mFull{false};
    std::function<void()> mDrained;
};
