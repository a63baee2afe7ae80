#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

/// The mutex between the thread that runs a socket handler's passes and all others. One pass follows another, and
/// their thread could always get a plain mutex again; this one is given to the thread that asked first.
class HandlerMutex
{
public:
    void lock()
    {
        std::unique_lock<std::mutex> state(mState);
        const std::uint64_t ticket = mNextTicket++;
        mTurn.wait(state, [&] { return mServing == ticket; });
    }
    void unlock()
    {
        std::unique_lock<std::mutex> state(mState);
        const bool waiting = ++mServing != mNextTicket;
        state.unlock();
        if (waiting) mTurn.notify_all();
    }

    using Guard = std::lock_guard<HandlerMutex>;

private:
    std::mutex mState;
    std::condition_variable mTurn;
    std::uint64_t mNextTicket = 0;
    std::uint64_t mServing = 0;
};
