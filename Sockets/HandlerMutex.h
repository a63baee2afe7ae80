#pragma once

#include <atomic>
#include <mutex>
#include <thread>

/// The mutex between the thread that runs a socket handler's passes and all others. The passes come one behind the
/// other, so their thread lets those who wait go first.
class HandlerMutex
{
public:
    /// For the thread of the passes.
    void lock()
    {
        // Bounded: whoever waits may be stuck for want of a processor.
        for (int i = 0; i < MaxYields && mWaiting.load() > 0; ++i)
            std::this_thread::yield();
        mMutex.lock();
    }
    void unlock() { mMutex.unlock(); }

    /// Holds the mutex for any other thread.
    class Guard
    {
    public:
        explicit Guard(HandlerMutex& mutex) : mMutex(mutex)
        {
            ++mMutex.mWaiting;
            mMutex.mMutex.lock();
            --mMutex.mWaiting;
        }
        ~Guard() { mMutex.mMutex.unlock(); }
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;

    private:
        HandlerMutex& mMutex;
    };

private:
    static constexpr int MaxYields = 100;

    std::mutex mMutex;
    std::atomic<int> mWaiting{0};
};
