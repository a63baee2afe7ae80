#include "OrbModule/Inc/Patching/LinkSlot.h"

#include <ostream>

const Routing::GigeAndSlots& LinkSlot::GetSourceLink() const
{
    static const Routing::GigeAndSlots none;
    return mSourceLink ? *mSourceLink : none;
}

std::uint32_t LinkSlot::GetSourceSlot() const
{
    const auto& slots = GetSourceLink().slots;
    return mIndex < slots.size() ? slots[mIndex] : INVALID_TDM_SLOT;
}

void LinkSlot::Reset()
{
    mSource = HidPort{};
    mSourceLink.reset();
    mDests.clear();
    mIndex = 0;
    mNextSlot = INVALID_TDM_SLOT;
}

std::ostream& operator<<(std::ostream& out, const LinkSlot& slot)
{
    out << "Source " << slot.mSource << "Link " << slot.GetSourceLink() << "Index " << slot.mIndex << " Next "
        << Routing::SlotText(slot.mNextSlot) << " Dests ";
    for (const HidPort& dest : slot.mDests)
        out << dest;
    return out;
}
