#pragma once

#include "OrbModule/Inc/OrbComms/iStreamContainer.h"

#include <cstddef>
#include <unordered_map>
#include <utility>

/// The directory as one table by remote address and type. Used under the mutex of the comms.
class OrbSimpleStreamContainer : public iStreamContainer
{
public:
    void Store(OrbKLVStream& stream) override;
    /// Keeps the entry if a newer stream has taken it.
    void Remove(OrbKLVStream& stream) override;
    OrbKLVStream* GetStreamByPortAndType(UINT8GIGEPORT port, StreamType type) override;
    OrbKLVStream* GetStreamByAddressAndType(std::uint32_t address, StreamType type) override;

private:
    using Key = std::pair<std::uint32_t, StreamType>;
    struct KeyHash
    {
        std::size_t operator()(const Key& key) const noexcept
        {
            return std::hash<std::uint64_t>{}(std::uint64_t{key.first} << 8 | static_cast<std::uint8_t>(key.second));
        }
    };

    std::unordered_map<Key, OrbKLVStream*, KeyHash> mStreams{10};
};
