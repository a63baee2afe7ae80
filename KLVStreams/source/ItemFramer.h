#pragma once

#include "KLVStreams/source/IOStream.h"
#include "Sockets/InputRing.h"

#include <cstdint>

/// Cuts the bytes that an input ring receives into whole KLV items, and serves the item at hand to its reader, header
/// first. An item that is too large for the ring goes through an overflow store. Knows no socket; one thread.
class ItemFramer
{
public:
    static constexpr std::uint32_t HEADER_SIZE = 8;
    /// A longer value does not go through the ring but through the overflow store.
    static constexpr std::uint32_t MaxNormalLength = 241648;
    /// A header that promises more is garbage.
    static constexpr std::uint32_t MaxLength = 16u << 20;

    enum class Result {
        NeedsBytes,
        Item,
        /// A header is garbage, and so is all that follows.
        TooLong
    };

    explicit ItemFramer(InputRing& ring) : mRing(ring) {}

    /// Takes what the ring holds, up to the end of an item. After Item the reader has its turn, and then Finish.
    Result Next();
    void Finish();

    std::uint32_t GetKey() const { return mKey; }
    std::uint32_t GetLength() const { return mLength; }
    /// The store if it holds the item, null if the ring does.
    IOStream* GetOverflow() { return mOverflowActive ? &mOverflow : nullptr; }
    /// The next bytes of the item. False if the ring does not hold so many.
    bool Read(void* dest, std::uint32_t size);
    void Ignore(std::uint32_t size);

private:
    enum class ReadState : std::uint8_t { KeyAndLength = 0, Data = 1 };
    enum class ReadPhase : std::uint8_t { Header = 0, Body = 1 };

    bool IsWhole();
    bool CollectOverflow();
    std::uint32_t TakeOfHeader(std::uint32_t size);

    InputRing& mRing;
    ReadState mReadState = ReadState::KeyAndLength;
    ReadPhase mReadPhase = ReadPhase::Header;
    /// Key and length of the item, as on the wire and as numbers.
    std::uint8_t mHeader[HEADER_SIZE] = {};
    std::uint32_t mKey{};
    std::uint32_t mLength{};
    /// What of the header has not been handed to the reader.
    const std::uint8_t* mKeyLenPtr = mHeader;
    std::uint32_t mKeyLenLeft{};
    IOStream mOverflow;
    bool mOverflowActive = false;
};
