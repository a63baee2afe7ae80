#pragma once

#include "MiscSource/LinkPatch.h"
#include "OrbModule/Inc/Patching/LinkSlot.h"

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <unordered_map>
#include <vector>

/// What an allocation came to. The caller makes or breaks the route for AllocatedNew and FreedLast only; with
/// AlreadyCarrying the audio flows already, or goes on to flow.
enum AllocationResult : std::uint32_t { AllocatedNew = 0, AlreadyCarrying = 1, AllocationFailed = 2, FreedLast = 3 };

/// The table of TDM slots of all ports: which source occupies a slot, who listens to it. One source occupies one set
/// of slots on a port, however many destinations hear it. Bookkeeping only: it touches no hardware, sends nothing and
/// keeps nothing over a restart. Ports are Routing::PortsEnum. Main thread only.
///
/// The remote forms choose slots on a port for a destination further away; the local forms are told the slots,
/// since those belong to the box that is plugged in.
class LinkAllocation
{
public:
    /// Most destinations that all slots together may have, since peers can name any number of them.
    static constexpr std::uint32_t MaxDestinations = 262144;

    LinkAllocation() = default;
    virtual ~LinkAllocation() = default;
    LinkAllocation(const LinkAllocation&) = delete;
    LinkAllocation& operator=(const LinkAllocation&) = delete;

    /// Takes the lowest free slots of the port, or joins the slots that carry this source there already.
    /// @param out the slots to be joined; untouched if the port is out of range or nothing can be taken.
    /// When the port runs out, the slots taken so far stay with the destination and the result is AllocationFailed.
    AllocationResult Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, UINT8GIGEPORT port, HidPort dest,
                              LinkPatch& out);
    /// Books the slots of destLink, whoever holds them. A slot above 511 is left out.
    AllocationResult Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, HidPort dest,
                              const Routing::GigeAndSlots& destLink, LinkPatch& out);

    /// Takes a destination off the slots of its source; the last one gives the slots back.
    /// @param out untouched if the source has no slots on this port.
    AllocationResult Free(HidPort source, UINT8GIGEPORT port, HidPort dest, LinkPatch& out);
    /// Gives the slots of destLink back, whatever they hold. A slot above 511 is left out.
    AllocationResult Free(HidPort source, const Routing::GigeAndSlots& sourceLink,
                          const Routing::GigeAndSlots& destLink, LinkPatch& out);

    /// Takes a device that left a link off all slots of the internal port and of this port.
    /// @param out gains one patch a port, with an empty source and the slots that came free.
    void GetUnpatchesByHidAndPort(Hid hid, UINT8GIGEPORT port, std::vector<LinkPatch>& out);

    /// Whether this destination listens to the slots that carry this source on a port.
    bool IsListening(HidPort source, UINT8GIGEPORT port, HidPort dest) const;

    /// Slots in use on all ports, and the sum of their destinations.
    void GetCounts(std::uint32_t& slotsInUse, std::uint32_t& totalDests) const;

    /// @param port below 3; @param number below 512
    const LinkSlot& GetSlot(UINT8GIGEPORT port, std::uint32_t number) const { return mSlots.at(port).at(number); }

    /// The listing of all slots in use.
    void Print(std::ostream& out) const;

private:
    using Slots = std::vector<std::uint32_t>;

    void AddToLut(UINT8GIGEPORT port, HidPort source, const Slots& slots);
    void RemoveFromLut(HidPort source, UINT8GIGEPORT port);
    void RemoveFromLutIfGone(HidPort source, UINT8GIGEPORT port);
    void UpdateSlots(UINT8GIGEPORT port, const Slots& slots, HidPort dest);
    void AddDest(LinkSlot& slot, HidPort dest);
    void ResetSlot(LinkSlot& slot);
    bool HasRoomFor(std::size_t destinations) const;
    void LeavePort(Hid hid, UINT8GIGEPORT leftPort, UINT8GIGEPORT port, std::vector<LinkPatch>& out);

    std::array<std::array<LinkSlot, Routing::SLOTS_PER_PORT>, Routing::PORT_COUNT> mSlots;
    std::array<std::unordered_map<HidPort, Slots>, Routing::PORT_COUNT> mLuts;
    std::uint32_t mTotalDests = 0;
};
