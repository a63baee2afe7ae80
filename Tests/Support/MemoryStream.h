#pragma once

#include "Common/KLV/DataStream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/// A KLV stream over bytes in memory: writing appends to `bytes`, reading takes from their front.
class MemoryStream : public DataStream
{
public:
    MemoryStream() = default;
    explicit MemoryStream(const std::vector<std::uint8_t>& content) : bytes(content) {}

    bool ReadData(void* dest, std::uint32_t size) override
    {
        if (size > bytes.size() - position) return false;
        if (size != 0) std::memcpy(dest, bytes.data() + position, size);
        position += size;
        return true;
    }
    bool WriteData(const void* src, std::uint32_t size) override
    {
        if (isBroken) return false;
        const auto* const first = static_cast<const std::uint8_t*>(src);
        bytes.insert(bytes.end(), first, first + size);
        return true;
    }
    void IgnoreData(std::uint32_t size) override { position += size; }
    void Commit() override { events += "!"; }
    void BeginItem() override { events += "<"; }
    void EndItem() override { events += ">"; }

    std::vector<std::uint8_t> bytes;
    std::size_t position = 0;
    bool isBroken = false;
    std::string events;
};

/// The bytes of a text of hexadecimal digits; everything else in it only parts them.
inline std::vector<std::uint8_t> HexBytes(std::string text)
{
    const auto isOther = [](char letter) { return std::string("0123456789ABCDEF").find(letter) == std::string::npos; };
    text.erase(std::remove_if(text.begin(), text.end(), isOther), text.end());
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at + 1 < text.size(); at += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}
