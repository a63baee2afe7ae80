#pragma once

#include "MiscSource/GlobalConstants.h"
#include "MiscSource/IoPort.h"
#include "MiscSource/LinkPatch.h"

#include <array>
#include <cstddef>
#include <iosfwd>
#include <utility>

/// One patch: what feeds a destination, and how far that has come on each port of the module. Main thread only.
class OrbPatchInfo
{
public:
    OrbPatchInfo(IoPort source, IoPort dest) : mSource(source), mDest(dest) {}

    /// A port above 2 changes nothing and leaves a line in the log.
    void UpdatePatch(Routing::PortsEnum port, Korvo::PatchState state);
    void UpdatePatch(Routing::PortsEnum port, Korvo::PatchState state, Routing::GigeAndSlots link);
    void SetSwapTarget(Routing::GigeAndSlots target) { mSwapTarget = std::move(target); }

    const IoPort& GetSource() const { return mSource; }
    const IoPort& GetDest() const { return mDest; }
    /// PatchNotSent for a port above 2.
    Korvo::PatchState GetState(Routing::PortsEnum port) const;
    /// Where the source is to be found on that port; the empty link for a port above 2.
    const Routing::GigeAndSlots& GetLink(Routing::PortsEnum port) const;
    /// Where the audio goes when this patch fails over to the other link.
    const Routing::GigeAndSlots& GetSwapTarget() const { return mSwapTarget; }

    /// For a caller that has a patch without the index of the store.
    bool Concerns(Hid hid) const { return mSource.GetHid() == hid || mDest.GetHid() == hid; }
    /// Whether the patch is PatchNotSent on both links; the internal port does not count.
    bool IsUnsent() const;
    /// Slot numbers that this record holds in all its links.
    std::size_t CountSlots() const;

private:
    /// Once no link has the patch made or prepared, its slots on the internal port may go to another source.
    void DropStaleSwapTarget();
    bool CheckPort(const char* function, Routing::PortsEnum port, Korvo::PatchState state) const;

    IoPort mSource;
    IoPort mDest;
    std::array<Korvo::PatchState, Routing::PORT_COUNT> mStates{};
    std::array<Routing::GigeAndSlots, Routing::PORT_COUNT> mLinks;
    Routing::GigeAndSlots mSwapTarget;
};
/// Several lines, one a field, without a line end at the last.
std::ostream& operator<<(std::ostream& out, const OrbPatchInfo& patch);
