#pragma once

#include "MiscSource/LinkPatch.h"
#include "OrbModule/Inc/Patching/LinkSlot.h"

#include <array>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <unordered_map>
#include <vector>

/// What came of taking slots or giving them back.
enum AllocationResult : std::uint32_t {
    /// New slots were taken; for Free: the slots of the box were returned.
    AllocatedNew = 0,
    /// The audio flows on: a destination joined the source's slots, or left them to others.
    AlreadyCarrying = 1,
    /// Nothing that could be used.
    AllocationFailed = 2,
    /// The last destination left, and the slots are free.
    FreedLast = 3
};

struct Allocation
{
    AllocationResult result = AllocationFailed;
    /// The slots concerned; none if nothing was found.
    LinkPatch patch{};

    /// Whether the route of the patch is to be made or broken.
    bool ChangesRoutes() const { return result == AllocatedNew || result == FreedLast; }
};

/// The table of TDM slots of all ports: which source occupies a slot, who listens to it. One source occupies one set of
/// slots on a port, however many destinations listen to it. Bookkeeping only: it touches no hardware, sends nothing and
/// forgets all at a restart. Ports are Routing::PortsEnum. Main thread only.
///
/// The remote forms choose slots on a port for a destination further away; the local forms get the slots, since those
/// belong to the box that is plugged in.
class LinkAllocation
{
public:
    /// Most destinations that all slots together may have, since peers can name any number of them.
    static constexpr std::uint32_t MaxDestinations = 262144;

    LinkAllocation() = default;
    LinkAllocation(const LinkAllocation&) = delete;
    LinkAllocation& operator=(const LinkAllocation&) = delete;

    /// Takes the lowest free slots of the port, or joins the slots that carry this source there already. When the port
    /// runs out, the slots taken so far stay with the destination, and the result is AllocationFailed.
    Allocation Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, UINT8GIGEPORT port, HidPort dest);
    /// Books the slots of destLink, whichever source holds them.
    /// @param destLink slots below 512
    Allocation Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, HidPort dest,
                        const Routing::GigeAndSlots& destLink);

    /// Takes a destination off the slots of its source; the last one gives the slots back.
    Allocation Free(HidPort source, UINT8GIGEPORT port, HidPort dest);
    /// Gives the slots of destLink back, whatever they hold.
    /// @param destLink slots below 512
    Allocation Free(HidPort source, const Routing::GigeAndSlots& sourceLink, const Routing::GigeAndSlots& destLink);

    /// Takes a device that left a link off all slots of the internal port and of this port. In spite of its name it
    /// frees the slots: asked twice, it has nothing more to say.
    /// @return at most one patch for each of the two ports, with an empty source and the slots that came free.
    std::vector<LinkPatch> GetUnpatchesByHidAndPort(Hid hid, UINT8GIGEPORT port);

    struct Counts
    {
        /// On all ports.
        std::uint32_t slotsInUse = 0;
        /// The sum over these slots.
        std::uint32_t destinations{};
    };
    Counts GetCounts() const;

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
    Slots LeavePort(Hid hid, UINT8GIGEPORT leftPort, UINT8GIGEPORT port);

    std::array<std::array<LinkSlot, Routing::SLOTS_PER_PORT>, Routing::PORT_COUNT> mSlots;
    std::array<std::unordered_map<HidPort, Slots>, Routing::PORT_COUNT> mLuts;
    std::uint32_t mTotalDests = 0;
};
