#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <map>

/// One port in a PortBitmapCmd: which link it shall listen to.
struct PortBitmapEntry
{
    std::uint32_t word = 0xFFFFFFFF;
    /// 0 for the primary link, 1 for the secondary.
    std::uint8_t secondary = 0;

    /// The entry as it stands on the wire, the port in front.
    template <class Port, class Self, class Visitor>
    static void VisitFields(Port& port, Self& self, Visitor&& visitor)
    {
        visitor("port", port);
        visitor("word", self.word);
        visitor("secondary", self.secondary);
    }
};

/// The words in front of the entries: all ones in a fresh block, all zero in those that this module sends.
struct PortBitmapBlock
{
    std::uint32_t word1 = 0xFFFFFFFF;
    std::uint16_t word2 = 0;
    std::uint32_t word3 = 0xFFFFFFFF;
    std::uint16_t word4 = 0;

    static PortBitmapBlock AllZero() { return {0, 0, 0, 0}; }

    template <class Self, class Visitor>
    static void VisitFields(Self& self, Visitor&& visitor)
    {
        visitor("word1", self.word1);
        visitor("word2", self.word2);
        visitor("word3", self.word3);
        visitor("word4", self.word4);
    }
};

using PortBitmapEntries = std::map<std::uint16_t, PortBitmapEntry>;

namespace Klv {

/// In ascending order of the ports. An entry's flag is one byte.
template <>
struct FieldCodec<PortBitmapEntries>
{
    static constexpr std::uint32_t ENTRY_SIZE = 7;

    static std::uint32_t GetLength(const PortBitmapEntries& entries)
    {
        return 4 + ENTRY_SIZE * static_cast<std::uint32_t>(entries.size());
    }
    static void Write(KLVWriteSet& set, const PortBitmapEntries& entries);
    static void Read(KLVReadSet& set, PortBitmapEntries& entries);
};

} // namespace Klv

/// Tells a device, port by port, which link to listen to.
class PortBitmapCmd : public Command<PortBitmapCmd, 815>
{
public:
    PortBitmapCmd() = default;
    PortBitmapCmd(Hid hid, const PortBitmapBlock& block) : mHid(hid), mBlock(block) {}
    explicit PortBitmapCmd(KLVCommandReadSet& set) { ReadFields(set); }

    /// Replaces the port's entry if there is one.
    void SetPort(std::uint16_t index, const PortBitmapEntry& entry) { mEntries[index] = entry; }

    KLV_FIELDS((Hid, Hid), (PortBitmapBlock, Block), (PortBitmapEntries, Entries))
};
