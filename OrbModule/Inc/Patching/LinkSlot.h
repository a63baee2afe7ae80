#pragma once

#include "MiscSource/LinkPatch.h"

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <unordered_set>

/// One TDM slot of one port: the source that occupies it and the destinations that listen to it. A slot is in use
/// exactly when somebody listens. Main thread only.
class LinkSlot
{
public:
    LinkSlot() : mDests(InitialBuckets) {}

    bool IsInUse() const { return !mDests.empty(); }
    /// Where the source arrives on this module; the empty link if there is none.
    const Routing::GigeAndSlots& GetSourceLink() const;
    /// The entry of the source's slot list that feeds this slot, INVALID_TDM_SLOT if the list is too short.
    std::uint32_t GetSourceSlot() const;
    void Reset();

    HidPort mSource;
    /// All slots of one allocation share one copy; null is the empty link.
    std::shared_ptr<const Routing::GigeAndSlots> mSourceLink;
    std::unordered_set<HidPort> mDests;
    /// Position of this slot in the source's list.
    std::uint32_t mIndex = 0;
    /// Next slot of the same source, INVALID_TDM_SLOT at the last; for the log.
    std::uint32_t mNextSlot = INVALID_TDM_SLOT;

private:
    static constexpr std::size_t InitialBuckets = 10;
};
std::ostream& operator<<(std::ostream& out, const LinkSlot& slot);
