#include "OrbModule/Inc/Patching/OrbPatchInfo.h"

#include "Audit/Audit.h"

#include <ostream>

void OrbPatchInfo::UpdatePatch(Routing::PortsEnum port, Korvo::PatchState state)
{
    AUDIT_STREAM(IOPatchDebug, "UpdatePatch " << PortText(port) << state << '\n');
    if (!CheckPort(__func__, port, state)) return;
    mStates[port] = state;
    DropStaleSwapTarget();
}

void OrbPatchInfo::UpdatePatch(Routing::PortsEnum port, Korvo::PatchState state, Routing::GigeAndSlots link)
{
    AUDIT_STREAM(IOPatchDebug, "UpdatePatch " << PortText(port) << state << " Slots " << link << '\n');
    if (!CheckPort(__func__, port, state)) return;
    mStates[port] = state;
    mLinks[port] = std::move(link);
    DropStaleSwapTarget();
}

void OrbPatchInfo::DropStaleSwapTarget()
{
    const auto isMade = [this](Routing::PortsEnum port) {
        return mStates[port] == Korvo::PatchSuccess || mStates[port] == Korvo::PatchReserved;
    };
    if (!isMade(Routing::PRIMARY_PORT) && !isMade(Routing::SECONDARY_PORT)) mSwapTarget = {};
}

Korvo::PatchState OrbPatchInfo::GetState(Routing::PortsEnum port) const
{
    return port < mStates.size() ? mStates[port] : Korvo::PatchNotSent;
}

const Routing::GigeAndSlots& OrbPatchInfo::GetLink(Routing::PortsEnum port) const
{
    static const Routing::GigeAndSlots none;
    return port < mLinks.size() ? mLinks[port] : none;
}

bool OrbPatchInfo::IsUnsent() const
{
    return mStates[Routing::PRIMARY_PORT] == Korvo::PatchNotSent &&
           mStates[Routing::SECONDARY_PORT] == Korvo::PatchNotSent;
}

std::size_t OrbPatchInfo::CountSlots() const
{
    std::size_t count = mSwapTarget.slots.size();
    for (const Routing::GigeAndSlots& link : mLinks)
        count += link.slots.size();
    return count;
}

bool OrbPatchInfo::CheckPort(const char* function, Routing::PortsEnum port, Korvo::PatchState state) const
{
    if (port < Routing::PORT_COUNT) return true;
    AUDIT_LOG(Fault, "%s: Trying to update patch on invalid port %d 0x%02x\n", function, int{port}, unsigned{state});
    return false;
}

std::ostream& operator<<(std::ostream& out, const OrbPatchInfo& patch)
{
    return out << " Src " << patch.GetSource() << "\n\t\t\tDst " << patch.GetDest() << "\n\t\t\tPri "
               << patch.GetState(Routing::PRIMARY_PORT) << "\n\t\t\tSec " << patch.GetState(Routing::SECONDARY_PORT)
               << "\n\t\t\tPri  " << patch.GetLink(Routing::PRIMARY_PORT) << "\n\t\t\tSec  "
               << patch.GetLink(Routing::SECONDARY_PORT) << "\n\t\t\tSwap " << patch.GetSwapTarget();
}
