#pragma once

#include "Common/KLV/KLVReadSet.h"
#include "KLVStreams/source/KLVTCPStream.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/Sockets/SocketFixture.h"

#include <thread>

constexpr std::uint32_t Key = 0x28000347;

/// The bytes of one item.
inline std::string Item(std::uint32_t key, const std::string& value)
{
    std::string bytes;
    for (const std::uint64_t header = key | std::uint64_t{value.size()} << 32; bytes.size() < 8;)
        bytes += static_cast<char>(header >> 8 * bytes.size());
    return bytes + value;
}

/// A stream that takes items of key type 5 and keeps them.
class KeepingStream : public KLVTCPStream
{
public:
    explicit KeepingStream(ISocketHandler& handler) : KLVTCPStream(handler) { sStream = this; }
    ~KeepingStream() override
    {
        if (sStream == this) sStream = nullptr;
    }

    bool HandleKey(std::uint32_t keyType) override { return HandleKey(keyType, this); }
    bool HandleKey(std::uint32_t keyType, DataStream* stream) override
    {
        if (keyType != 5) return false;
        KLVCommandReadSet set(*stream);
        std::string value(set.GetBytesLeft() - mLeave, '\0');
        EXPECT_TRUE(set.ReadRaw(value.data(), static_cast<std::uint32_t>(value.size())));
        mKeys.push_back(set.GetKey());
        mValues.push_back(value);
        return true;
    }
    void OnReadStart() override { ++mReads; }
    void OnItemDone() override { ++mItemsDone; }

    std::vector<std::uint32_t> mKeys;
    Lines mValues;
    int mReads = 0;
    int mItemsDone = 0;
    /// Bytes of each value that the reader leaves.
    std::uint32_t mLeave = 0;
    /// The one that was made last, while it lives.
    static inline KeepingStream* sStream = nullptr;
};

class StreamTest : public SocketTest
{
protected:
    /// Accepts a connection from source at host, both addresses of loopback.
    KeepingStream& AcceptStream(const std::string& host = "127.0.0.1", const std::string& source = "127.0.0.1")
    {
        mPeer = LoopbackPeer::ConnectTo(Listen<KeepingStream>().GetPort(), host, source);
        KeepingStream::sStream = nullptr;
        EXPECT_TRUE(PassUntil([&] { return KeepingStream::sStream && mHandler.Valid(KeepingStream::sStream); }));
        return *KeepingStream::sStream;
    }
    bool PassUntilGone()
    {
        return PassUntil([] { return !KeepingStream::sStream; });
    }
    /// Sends, even more than the kernel holds, until the stream has this many items.
    bool SendAndWaitForItems(const std::string& bytes, std::size_t count)
    {
        std::thread sender([&] { mPeer.Send(bytes); });
        const bool done =
            PassUntil([&] { return KeepingStream::sStream && KeepingStream::sStream->mValues.size() >= count; });
        sender.join();
        return done;
    }

    LogRecorder mLog{DebugFeature::CommsDebug};
};
