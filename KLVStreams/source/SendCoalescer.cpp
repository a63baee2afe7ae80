#include "KLVStreams/source/SendCoalescer.h"

#include "Audit/Audit.h"

#include <algorithm>
#include <array>
#include <cstring>

SendCoalescer::~SendCoalescer()
{
    if (mTimer) EventTimerManager::Instance().Stop(mTimer->GetId());
}

void SendCoalescer::Configure(std::uint32_t interval, TimerUnits units, std::uint32_t size)
{
    constexpr std::array<const char*, 3> Texts = {"None", "Fixed", "Mtu"};
    if (mTimer) EventTimerManager::Instance().Stop(mTimer->GetId());
    // What the old buffer holds goes first.
    if (mUsed != 0) Send();
    mSize = size;
    mState = size != 0 ? State::Fixed : State::Mtu;
    mTimer = EventTimerManager::Instance().CreateTimer("KLV Coalesce", this, interval, 0, 0, units);
    AUDIT_LOG(CommsDebug, "Stream coalesce: %lu ms, BufferSize=%zu, State:%s\r\n",
              static_cast<unsigned long>(mTimer->GetIntervalMs()), static_cast<std::size_t>(mSize),
              Texts[static_cast<std::size_t>(mState)]);
    mBuffer.reset(new char[size]);
}

bool SendCoalescer::Write(const char* data, std::uint32_t size)
{
    ++mMessages;
    // Until the MTU is known there is no buffer.
    if (mSize == 0) {
        mSender(data, size);
        return false;
    }
    while (size != 0) {
        const std::uint32_t piece = std::min(size, mSize - mUsed);
        std::memcpy(mBuffer.get() + mUsed, data, piece);
        mUsed += piece;
        data += piece;
        size -= piece;
        if (mUsed == mSize) Flush("sent together");
    }
    if (mUsed == 0) return false;
    const bool wasRunning = mTimer->IsRunning();
    EventTimerManager::Instance().Start(mTimer);
    return !wasRunning;
}

void SendCoalescer::Commit()
{
    if (mUsed != 0) Flush("sent on Commit");
}

void SendCoalescer::OnTimer(boost::shared_ptr<IEventTimer>)
{
    if (mUsed != 0) Flush("sent on timer");
}

void SendCoalescer::Flush(const char* reason)
{
    AUDIT_LOG(CommsDebug, "%p %zu bytes %s (%zu messages)\r\n", mOwner, static_cast<std::size_t>(mUsed), reason,
              static_cast<std::size_t>(mMessages));
    Send();
}

void SendCoalescer::Send()
{
    mSender(mBuffer.get(), mUsed);
    mUsed = 0;
    EventTimerManager::Instance().Stop(mTimer->GetId());
    mMessages = 0;
}
