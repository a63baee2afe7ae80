#pragma once

#include "Timers/Source/EventTimerManager.h"

#include <cstdint>
#include <functional>
#include <memory>

/// Gathers the small writes of a stream and sends them together: when the buffer is full, on request, or after a spell
/// of silence. Works on the event timers, so under the lock and by the thread that those need.
class SendCoalescer : public IEventTimerHandler
{
public:
    enum class State : std::uint8_t { None = 0, Fixed = 1, Mtu = 2 };
    using Sender = std::function<void(const char* data, std::size_t size)>;

    /// @param owner the stream, for the log alone.
    SendCoalescer(const void* owner, const Sender& sender) : mOwner(owner), mSender(sender) {}
    ~SendCoalescer() override;

    /// @param size of the buffer in bytes; 0 to have it follow from the path's MTU once the stream is connected.
    void Configure(std::uint32_t interval, TimerUnits units, std::uint32_t size);
    /// True if the time of silence now runs and did not before.
    bool Write(const char* data, std::uint32_t size);
    void Commit();
    void OnTimer(boost::shared_ptr<IEventTimer> timer) override;

    State GetState() const { return mState; }
    bool HasTimer() const { return mTimer != nullptr; }
    std::uint32_t GetIntervalUs() const { return mTimer ? mTimer->GetIntervalUs() : 0; }

private:
    void Flush(const char* reason);
    void Send();

    const void* const mOwner;
    const Sender mSender;
    State mState = State::None;
    std::unique_ptr<char[]> mBuffer;
    std::uint32_t mSize{};
    std::uint32_t mUsed = 0;
    std::uint32_t mMessages = 0;
    EventTimerManager::Timer mTimer;
};
