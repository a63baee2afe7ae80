#include "OrbModule/Inc/Patching/LinkAllocation.h"

#include "Audit/Audit.h"

#include <algorithm>
#include <ostream>

namespace {

/// False, with a line in the log, for a number that is no port.
bool IsPort(UINT8GIGEPORT port, const char* fault)
{
    if (port < Routing::PORT_COUNT) return true;
    AUDIT_STREAM(Fault, fault << unsigned{port} << '\n');
    return false;
}

} // namespace

Allocation LinkAllocation::Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, UINT8GIGEPORT port,
                                    HidPort dest)
{
    AUDIT_STREAM(RouterAudioRoute, "Remote Dest Allocate Src " << source << sourceLink << " Dest Gige Port "
                                                               << Routing::SlotPortText(port) << " Dest " << dest
                                                               << '\n');
    if (!IsPort(port, "Remote Allocate Gige out of range ")) return {};
    const auto known = mLuts[port].find(source);
    if (known != mLuts[port].end() && !known->second.empty()) {
        AUDIT_LOG(RouterAudioRoute, "Link alrady carrying source\r\n");
        if (!HasRoomFor(known->second.size())) return {};
        UpdateSlots(port, known->second, dest);
        return {AlreadyCarrying, {sourceLink, {port, known->second}}};
    }

    const std::size_t wanted = sourceLink.slots.size();
    if (wanted == 0 || !HasRoomFor(wanted)) return {};

    AllocationResult result = AllocationFailed;
    Slots taken;
    taken.reserve(std::min<std::size_t>(wanted, Routing::SLOTS_PER_PORT));
    const auto sharedLink = std::make_shared<const Routing::GigeAndSlots>(sourceLink);
    for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
        LinkSlot& slot = mSlots[port][number];
        if (slot.IsInUse()) continue;
        slot.mSource = source;
        slot.mSourceLink = sharedLink;
        slot.mIndex = static_cast<std::uint32_t>(taken.size());
        taken.push_back(number);
        AUDIT_STREAM(RouterAudioRoute, "Set SRCs " << source << " Link Src " << sourceLink << '\n');
        if (taken.size() == wanted) {
            result = AllocatedNew;
            break;
        }
    }
    AddToLut(port, source, taken);
    UpdateSlots(port, taken, dest);
    return {result, {sourceLink, {port, std::move(taken)}}};
}

Allocation LinkAllocation::Allocate(HidPort source, const Routing::GigeAndSlots& sourceLink, HidPort dest,
                                    const Routing::GigeAndSlots& destLink)
{
    AUDIT_STREAM(RouterAudioRoute, "LinkAllocation::Allocate Local Src " << source << " Link Src " << sourceLink
                                                                         << " Local Dest " << dest << " Link Dest "
                                                                         << destLink << '\n');
    const UINT8GIGEPORT port = destLink.port;
    if (!IsPort(port, "Local Allocate Gige out of range ")) return {};
    if (!HasRoomFor(destLink.slots.size())) return {};

    std::vector<HidPort> displaced;
    const auto sharedLink = std::make_shared<const Routing::GigeAndSlots>(sourceLink);
    std::uint32_t index = 0;
    for (const std::uint32_t number : destLink.slots) {
        LinkSlot& slot = mSlots[port][number];
        if (slot.IsInUse() && slot.mSource != source && (displaced.empty() || displaced.back() != slot.mSource)) {
            displaced.push_back(slot.mSource);
        }
        slot.mSource = source;
        AddDest(slot, dest);
        slot.mSourceLink = sharedLink;
        slot.mIndex = index++;
    }
    AddToLut(port, source, destLink.slots);
    for (const HidPort& former : displaced)
        RemoveFromLutIfGone(former, port);
    return {AllocatedNew, {sourceLink, destLink}};
}

Allocation LinkAllocation::Free(HidPort source, UINT8GIGEPORT port, HidPort dest)
{
    if (!IsPort(port, "LinkAllocation Free Gige out of range ")) return {};
    const auto known = mLuts[port].find(source);
    if (known == mLuts[port].end() || known->second.empty()) return {};

    // A copy, since the entry goes as soon as the first of its slots comes free.
    const Slots slots = known->second;
    AllocationResult result = AllocationFailed;
    std::shared_ptr<const Routing::GigeAndSlots> sourceLink;
    Slots left;
    left.reserve(slots.size());
    for (const std::uint32_t number : slots) {
        LinkSlot& slot = mSlots[port][number];
        AUDIT_STREAM(RouterAudioRoute, "LinkAllocation::Free Index " << number << ' ' << slot << '\n');
        const auto listener = slot.mDests.find(dest);
        if (listener == slot.mDests.end()) continue;
        if (slot.mSource != source) {
            AUDIT_STREAM(RouterAudioRoute,
                         "Attempt to unpatch from differing sources skipping " << slot.mSource << source << '\n');
            continue;
        }
        slot.mDests.erase(listener);
        --mTotalDests;
        left.push_back(number);
        if (slot.IsInUse()) {
            result = AlreadyCarrying;
            continue;
        }
        sourceLink = slot.mSourceLink;
        RemoveFromLut(source, port);
        ResetSlot(slot);
        result = FreedLast;
    }
    return {result, {sourceLink ? *sourceLink : Routing::GigeAndSlots{}, {port, std::move(left)}}};
}

Allocation LinkAllocation::Free(HidPort source, const Routing::GigeAndSlots& sourceLink,
                                const Routing::GigeAndSlots& destLink)
{
    AUDIT_STREAM(RouterAudioRoute, "Free Link Src " << sourceLink << " Link Dst " << destLink << '\n');
    const UINT8GIGEPORT port = destLink.port;
    if (!IsPort(port, "Local Free Gige out of range ")) return {};
    for (const std::uint32_t number : destLink.slots) {
        LinkSlot& slot = mSlots[port][number];
        const HidPort holder = slot.mSource;
        const bool foreign = slot.IsInUse() && holder != source;
        ResetSlot(slot);
        if (foreign) RemoveFromLutIfGone(holder, port);
    }
    RemoveFromLut(source, port);
    return {AllocatedNew, {sourceLink, destLink}};
}

std::vector<LinkPatch> LinkAllocation::GetUnpatchesByHidAndPort(Hid hid, UINT8GIGEPORT port)
{
    std::vector<LinkPatch> unpatches;
    for (const UINT8GIGEPORT walked : {UINT8GIGEPORT{Routing::ORB_PORT}, port}) {
        Slots freed = LeavePort(hid, port, walked);
        if (!freed.empty()) unpatches.push_back({{}, {walked, std::move(freed)}});
    }
    return unpatches;
}

/// @return the slots of this port that came free.
LinkAllocation::Slots LinkAllocation::LeavePort(Hid hid, UINT8GIGEPORT leftPort, UINT8GIGEPORT port)
{
    Slots freed;
    if (port >= Routing::PORT_COUNT) return freed;
    for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
        LinkSlot& slot = mSlots[port][number];
        if (!slot.IsInUse()) continue;
        if (slot.mSource.hid == hid) {
            // A source that arrives over the other link stays where it is.
            if (slot.GetSourceLink().port != leftPort) continue;
            AUDIT_STREAM(RouterAudioRoute, "GetUnpatchesByHid Source AWOL " << slot.mSource << '\n');
        } else {
            for (auto dest = slot.mDests.begin(); dest != slot.mDests.end();) {
                if (dest->hid == hid) {
                    dest = slot.mDests.erase(dest);
                    --mTotalDests;
                } else {
                    ++dest;
                }
            }
            if (slot.IsInUse()) continue;
            AUDIT_STREAM(RouterAudioRoute, "GetUnpatchesByHid Dest AWOL " << slot.mSource << '\n');
        }
        RemoveFromLut(slot.mSource, port);
        freed.push_back(number);
        ResetSlot(slot);
    }
    return freed;
}

LinkAllocation::Counts LinkAllocation::GetCounts() const
{
    Counts counts;
    counts.destinations = mTotalDests;
    for (const auto& port : mSlots) {
        counts.slotsInUse += static_cast<std::uint32_t>(
            std::count_if(port.begin(), port.end(), [](const LinkSlot& slot) { return slot.IsInUse(); }));
    }
    return counts;
}

void LinkAllocation::Print(std::ostream& out) const
{
    const std::ios_base::fmtflags flags = out.flags();
    for (std::size_t port = 0; port < mSlots.size(); ++port) {
        out << "Link " << std::dec << port << '\n';
        for (std::size_t number = 0; number < mSlots[port].size(); ++number) {
            const LinkSlot& slot = mSlots[port][number];
            if (!slot.IsInUse()) continue;
            out << "\tSlot " << std::dec << number << "  Source" << slot.mSource.hid << " Port " << std::hex
                << slot.mSource.port << std::dec << Routing::SlotPortText(slot.GetSourceLink().port)
                << slot.GetSourceSlot() << '\n';
            for (const HidPort& dest : slot.mDests) {
                out << "\t\tDest " << dest.hid << " Port " << std::hex << dest.port << std::dec << '\n';
            }
        }
    }
    out.flags(flags);
}

void LinkAllocation::AddToLut(UINT8GIGEPORT port, HidPort source, const Slots& slots)
{
    if (port >= Routing::PORT_COUNT) {
        AUDIT_STREAM(Fault, "AddToLut Out of Range " << Routing::SlotPortText(port) << '\n');
        return;
    }
    // Without slots there is nothing to look up, and a full port must not grow the table.
    if (!slots.empty()) mLuts[port].insert_or_assign(source, slots);
}

void LinkAllocation::RemoveFromLut(HidPort source, UINT8GIGEPORT port)
{
    if (port >= Routing::PORT_COUNT) {
        AUDIT_STREAM(Fault, "RemoveFromLut Out of Range " << Routing::SlotPortText(port) << '\n');
        return;
    }
    mLuts[port].erase(source);
}

/// Drops the entry of a source that lost a slot to another one, once it has no slot left.
void LinkAllocation::RemoveFromLutIfGone(HidPort source, UINT8GIGEPORT port)
{
    const auto entry = mLuts[port].find(source);
    if (entry == mLuts[port].end()) return;
    const bool holdsOne = std::any_of(entry->second.begin(), entry->second.end(), [&](std::uint32_t number) {
        return mSlots[port][number].IsInUse() && mSlots[port][number].mSource == source;
    });
    if (!holdsOne) mLuts[port].erase(entry);
}

void LinkAllocation::UpdateSlots(UINT8GIGEPORT port, const Slots& slots, HidPort dest)
{
    std::uint32_t next = INVALID_TDM_SLOT;
    for (auto number = slots.rbegin(); number != slots.rend(); ++number) {
        AUDIT_STREAM(RouterAudioRoute,
                     "UpdateSlots tdm " << *number << " NextSlot " << Routing::SlotText(next) << '\n');
        LinkSlot& slot = mSlots[port][*number];
        AddDest(slot, dest);
        slot.mNextSlot = next;
        next = *number;
    }
}

void LinkAllocation::AddDest(LinkSlot& slot, HidPort dest)
{
    if (slot.mDests.insert(dest).second) ++mTotalDests;
}

void LinkAllocation::ResetSlot(LinkSlot& slot)
{
    mTotalDests -= static_cast<std::uint32_t>(slot.mDests.size());
    slot.Reset();
}

bool LinkAllocation::HasRoomFor(std::size_t destinations) const
{
    if (destinations <= MaxDestinations - mTotalDests) return true;
    AUDIT_STREAM(Fault, "LinkAllocation is full, destinations " << mTotalDests << '\n');
    return false;
}
