#pragma once

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// A capture file of datagrams and segments between two made-up hosts, for programs that read such files.
class CaptureFile
{
public:
    using Bytes = std::vector<std::uint8_t>;

    explicit CaptureFile(const std::string& path) : mFile(path, std::ios::binary | std::ios::trunc)
    {
        constexpr std::uint32_t RawIp = 101;
        const std::uint32_t header[] = {0xA1B2C3D4, 0x00040002, 0, 0, 0xFFFF, RawIp};
        mFile.write(reinterpret_cast<const char*>(header), sizeof header);
    }
    /// The next bytes of the stream between these ports. @param cut so many bytes at the end are not captured.
    void AddSegment(std::uint32_t port, const Bytes& payload, std::size_t cut = 0, std::uint32_t source = 40000)
    {
        std::uint32_t& sequence = mSequences[{source, port}];
        // Five words, ACK and PSH, and the largest window.
        AddPacket(6, {source << 16 | port, sequence + 1, 1, 0x5018FFFF, 0}, payload, cut);
        sequence += static_cast<std::uint32_t>(payload.size());
    }
    void AddDatagram(std::uint32_t port, const Bytes& payload)
    {
        AddPacket(17, {40000u << 16 | port, static_cast<std::uint32_t>(8 + payload.size()) << 16}, payload, 0);
    }
    void Close() { mFile.close(); }

private:
    /// @param header the words of the transport's header.
    void AddPacket(std::uint32_t protocol, const std::vector<std::uint32_t>& header, const Bytes& payload,
                   std::size_t cut)
    {
        const auto size = static_cast<std::uint32_t>(20 + 4 * header.size() + payload.size());
        std::vector<std::uint32_t> words = {0x45000000 | size, 0, 64u << 24 | protocol << 16, 0x0A000001, 0x0A000002};
        words.insert(words.end(), header.begin(), header.end());
        Bytes packet;
        for (const std::uint32_t word : words)
            for (const int shift : {24, 16, 8, 0})
                packet.push_back(static_cast<std::uint8_t>(word >> shift));
        packet.insert(packet.end(), payload.begin(), payload.end());
        const auto captured = static_cast<std::uint32_t>(size - std::min(cut, payload.size()));
        const std::uint32_t record[] = {0, 0, captured, size};
        mFile.write(reinterpret_cast<const char*>(record), sizeof record);
        mFile.write(reinterpret_cast<const char*>(packet.data()), captured);
    }

    std::ofstream mFile;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> mSequences;
};
