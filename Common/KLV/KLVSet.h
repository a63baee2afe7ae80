#pragma once

#include "Common/KLV/DataStream.h"

#include <cstdint>

/// One KLV item on a stream, opened by the constructor of a derived set and closed by its destructor; the value is
/// written or read between the two. A stack object: a stream has at most one open set, and sets do not nest on it.
class KLVSet
{
public:
    virtual ~KLVSet() = default;
    KLVSet(const KLVSet&) = delete;
    KLVSet& operator=(const KLVSet&) = delete;

    std::uint32_t GetKey() const { return mKey; }

protected:
    explicit KLVSet(DataStream& stream) : mStream(stream) {}

    DataStream& mStream;
    /// Of a write set the stream's write count when the item was opened, of a read set the read count at which its
    /// value ends.
    std::uint32_t mValueMark{};
    std::uint32_t mKey{};
};

namespace Klv {

constexpr std::uint32_t COMMAND_KEY = 0x28000000;
constexpr std::uint32_t PANEL_EVENT_KEY = 0x08000000;
constexpr std::uint32_t COMMAND_KEY_TYPE = 5;
constexpr std::uint32_t ID_MASK = 0x3FFFFF;

constexpr std::uint32_t MakeCommandKey(std::uint32_t version, std::uint32_t id)
{
    return COMMAND_KEY | (version & 31) << 22 | (id & ID_MASK);
}

} // namespace Klv
