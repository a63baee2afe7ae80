#pragma once

// Commands of patches.

#include "Common/KLV/Command.h"

#include <cstdint>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

/// One port in a PortBitmapCmd: which link it shall listen to.
struct PortBitmapEntry
{
    std::uint32_t word = 0xFFFFFFFF;
    /// 0 for the primary link, 1 for the secondary.
    std::uint8_t secondary = 0;

    /// The entry in wire order, the port first.
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

/// A patch could not be delivered.
class AudioPatchFailedCmd : public Command<AudioPatchFailedCmd, 834>
{
    KLV_COMMAND_FIELDS(AudioPatchFailedCmd, (IoPort, Source), (IoPort, Dest))
};

/// Asks for the patches of a device that has come online to be sent again.
class AudioPatchRetryForHidCmd : public Command<AudioPatchRetryForHidCmd, 835>
{
    KLV_COMMAND_FIELDS(AudioPatchRetryForHidCmd, (Hid, Hid))
};

/// A ping, or its reply with the address of the replying side and its counts of patches and destinations.
class OstrelPingCmd : public Command<OstrelPingCmd, 839>
{
    KLV_COMMAND_FIELDS(OstrelPingCmd, (std::string, Name), (std::uint32_t, PatchCount), (std::uint32_t, TotalDests))
};

/// A patch was made at the far end.
class PatchSucessfulCmd : public Command<PatchSucessfulCmd, 841>
{
    KLV_COMMAND_FIELDS(PatchSucessfulCmd, (IoPort, Dest))
};

/// Where the audio of a patch is: the port of the device or node, the link (a Routing::PortsEnum, 0 for either link,
/// 255 unknown) and the slots there, empty when the receiver must find them.
class PatchSource
{
public:
    using SlotList = std::vector<std::uint32_t>;

    PatchSource() = default;
    PatchSource(const IoPort& port, std::uint8_t link, const SlotList& slots) : mPort(port), mLink(link), mSlots(slots)
    {}
    /// A node: the index is the first slot, 4095 without one.
    PatchSource(Hid hid, std::uint8_t link, const SlotList& slots)
        : mPort(hid, 0, slots.empty() ? IoPort::NO_INDEX : slots.front()), mLink(link), mSlots(slots)
    {}

    const IoPort& GetPort() const { return mPort; }
    std::uint8_t GetLink() const { return mLink; }
    const SlotList& GetSlots() const { return mSlots; }
    void SetLink(std::uint8_t link) { mLink = link; }

    template <class Self, class Visitor>
    static void VisitFields(Self& self, Visitor&& visitor)
    {
        visitor("mSource", self.mPort);
        visitor("mSourceLink", self.mLink);
        visitor("mSourceSlots", self.mSlots);
    }

private:
    IoPort mPort;
    std::uint8_t mLink = 0xFF;
    SlotList mSlots;
};

/// Asks to make or break one patch. The orig is the source as the user chose it and stays the same along the way.
class RouterPatchAudio : public Command<RouterPatchAudio, 886>
{
public:
    RouterPatchAudio(const PatchSource& source, const IoPort& dest, const IoPort& orig, bool make, bool useMe)
        : mSource(source), mDest(dest), mMake(make), mOrig(orig), mUseMe(useMe)
    {}
    explicit RouterPatchAudio(KLVCommandReadSet& set) { ReadFields(set); }

    void SetSourceLink(std::uint8_t link) { mSource.SetLink(link); }

    KLV_FIELDS((PatchSource, Source), (IoPort, Dest), (bool, Make), (IoPort, Orig), (bool, UseMe))
};

std::ostream& operator<<(std::ostream& out, const PatchSource& source);
std::ostream& operator<<(std::ostream& out, const RouterPatchAudio& patch);
