#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <iosfwd>
#include <vector>

/// Where the audio of a patch stands: the port of the device or node, the link (a Routing::PortsEnum, 0 for either
/// link, 255 unknown) and the slots there, empty when the receiver must find them.
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
