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

    static constexpr std::uint16_t EPHEMERAL = 40000;

    explicit CaptureFile(const std::string& path) : mFile(path, std::ios::binary | std::ios::trunc)
    {
        constexpr std::uint32_t RawIp = 101;
        for (const std::uint32_t word : {0xA1B2C3D4u, 0x00040002u, 0u, 0u, 0xFFFFu, RawIp})
            WriteWord(word);
    }

    /// The next bytes of the stream between these ports. @param cut so many bytes at the end are not captured.
    void AddSegment(std::uint16_t port, const Bytes& payload, std::size_t cut = 0, std::uint16_t source = EPHEMERAL)
    {
        std::uint32_t& sequence = mSequences[{source, port}];
        Bytes header = Ports(source, port);
        Append(header, sequence + 1, 4);
        Append(header, 1, 4);
        Append(header, 0x5018, 2); // five words, ACK and PSH
        Append(header, 0xFFFF, 2);
        Append(header, 0, 4);
        sequence += static_cast<std::uint32_t>(payload.size());
        constexpr std::uint8_t Tcp = 6;
        AddPacket(Tcp, header, payload, cut);
    }

    void AddDatagram(std::uint16_t port, const Bytes& payload)
    {
        Bytes header = Ports(EPHEMERAL, port);
        Append(header, static_cast<std::uint32_t>(8 + payload.size()), 2);
        Append(header, 0, 2);
        constexpr std::uint8_t Udp = 17;
        AddPacket(Udp, header, payload, 0);
    }

    void Close() { mFile.close(); }

private:
    static Bytes Ports(std::uint16_t source, std::uint16_t port)
    {
        Bytes header;
        Append(header, source, 2);
        Append(header, port, 2);
        return header;
    }

    static void Append(Bytes& bytes, std::uint32_t value, int size)
    {
        while (size-- > 0)
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * size)));
    }

    void AddPacket(std::uint8_t protocol, const Bytes& header, const Bytes& payload, std::size_t cut)
    {
        Bytes packet = {0x45, 0};
        Append(packet, static_cast<std::uint32_t>(20 + header.size() + payload.size()), 2);
        packet.insert(packet.end(), {0, 0, 0, 0, 64, protocol, 0, 0, 10, 0, 0, 1, 10, 0, 0, 2});
        packet.insert(packet.end(), header.begin(), header.end());
        packet.insert(packet.end(), payload.begin(), payload.end());
        const auto size = static_cast<std::uint32_t>(packet.size());
        const auto captured = static_cast<std::uint32_t>(size - std::min(cut, payload.size()));
        for (const std::uint32_t word : {0u, 0u, captured, size})
            WriteWord(word);
        mFile.write(reinterpret_cast<const char*>(packet.data()), captured);
    }

    void WriteWord(std::uint32_t word)
    {
        const char bytes[] = {static_cast<char>(word), static_cast<char>(word >> 8), static_cast<char>(word >> 16),
                              static_cast<char>(word >> 24)};
        mFile.write(bytes, sizeof bytes);
    }

    std::ofstream mFile;
    std::map<std::pair<std::uint16_t, std::uint16_t>, std::uint32_t> mSequences;
};
