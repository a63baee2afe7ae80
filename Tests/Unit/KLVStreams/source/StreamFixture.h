#pragma once

#include "Common/KLV/KLVReadSet.h"
#include "KLVStreams/source/KLVTCPStream.h"
#include "Sockets/ListenSocket.h"
#include "Sockets/SocketHandler.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

/// The bytes of one item.
inline std::string Item(std::uint32_t key, const std::string& value)
{
    std::string bytes;
    for (const std::uint32_t word : {key, static_cast<std::uint32_t>(value.size())}) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(word >> shift);
    }
    return bytes + value;
}

/// What a stream handed over, in order.
struct Received
{
    std::uint32_t key;
    std::string value;
    bool overflow;
};

/// A stream that takes items of key type 5 and keeps them.
class KeepingStream : public KLVTCPStream
{
public:
    explicit KeepingStream(ISocketHandler& handler) : KLVTCPStream(handler) { sStream = this; }
    ~KeepingStream() override
    {
        if (sStream == this) sStream = nullptr;
    }

    bool HandleKey(std::uint32_t keyType) override { return Keep(keyType, *this, false); }
    bool HandleKey(std::uint32_t keyType, DataStream* stream) override { return Keep(keyType, *stream, true); }
    void OnReadStart() override { ++mReads; }
    void OnItemDone() override { ++mItemsDone; }

    std::vector<Received> mItems;
    int mReads = 0;
    int mItemsDone = 0;
    /// Bytes of the value that the reader leaves.
    std::uint32_t mLeave = 0;
    /// The one that was made last.
    static inline KeepingStream* sStream = nullptr;

private:
    bool Keep(std::uint32_t keyType, DataStream& stream, bool overflow)
    {
        if (keyType != 5) return false;
        KLVCommandReadSet set(stream);
        Received item{set.GetKey(), std::string(set.GetBytesLeft() - mLeave, '\0'), overflow};
        EXPECT_TRUE(set.ReadRaw(item.value.data(), static_cast<std::uint32_t>(item.value.size())));
        mItems.push_back(std::move(item));
        return true;
    }
};

class StreamTest : public testing::Test
{
protected:
    bool PassUntil(const std::function<bool()>& done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            mHandler.Select(0, 2000);
        }
        return true;
    }
    /// Accepts a connection from source at host, both addresses of loopback.
    KeepingStream& Accept(const std::string& host = "127.0.0.1", const std::string& source = "127.0.0.1")
    {
        auto* const listener = mHandler.Own(std::make_unique<ListenSocket<KeepingStream>>(mHandler));
        EXPECT_EQ(listener->Bind(0, 20), 0);
        mHandler.Add(listener);
        mPeer = LoopbackPeer::ConnectTo(listener->GetPort(), host, source);
        KeepingStream::sStream = nullptr;
        EXPECT_TRUE(PassUntil([&] { return KeepingStream::sStream && mHandler.Valid(KeepingStream::sStream); }));
        return *KeepingStream::sStream;
    }
    /// Sends, even more than the kernel holds, until the stream has this many items.
    bool SendAndWaitForItems(const std::string& bytes, std::size_t count)
    {
        std::thread sender([&] { mPeer.Send(bytes); });
        const bool done =
            PassUntil([&] { return KeepingStream::sStream && KeepingStream::sStream->mItems.size() >= count; });
        sender.join();
        return done;
    }

    LogRecorder mLog{DebugFeature::CommsDebug};
    SocketHandler mHandler;
    LoopbackPeer mPeer{-1};
};
