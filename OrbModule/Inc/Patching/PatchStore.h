#pragma once

#include "Common/KLV/Commands/PatchCommands.h"
#include "OrbModule/Inc/Patching/OrbPatchInfo.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

/// The memory of patches: for every destination that was patched through this module, what feeds it and how far that
/// has come on each port. It is what lets a patch outlive the loss of a link; nothing outlives the process. Main thread
/// only.
///
/// An index by HID finds the patches of a device without a walk over all of them; those of one device come in the
/// order in which they were stored.
class PatchStore
{
public:
    /// Most patches, and most slot numbers that all of them may hold, since peers can send any number of them.
    static constexpr std::size_t MaxPatches = 65536;
    static constexpr std::size_t MaxSlots = 1048576;

    /// The command for each destination HID.
    using BitmapCommands = std::map<Hid, PortBitmapCmd>;

    PatchStore() : mPatches(InitialBuckets) {}
    PatchStore(const PatchStore&) = delete;
    PatchStore& operator=(const PatchStore&) = delete;

    /// Enters a fresh patch; a destination that has one keeps it with its old source.
    /// @return false, with a line in the log, if the store is full and has no patch of this destination.
    bool StorePatch(const IoPort& source, const IoPort& dest);
    void RemovePatch(const IoPort& dest);
    /// Every patch with this HID at either end and this state on that port. Good until a patch is removed.
    std::vector<const OrbPatchInfo*> GetPatches(Hid hid, Routing::PortsEnum port, Korvo::PatchState state) const;
    /// An update of an unknown destination changes nothing and leaves a line in the log.
    void UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state);
    void UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state, Routing::GigeAndSlots link);
    void UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state, Routing::GigeAndSlots link,
                     Routing::GigeAndSlots swapTarget);
    /// Sets the state and an empty link on that port in every patch with this HID at either end.
    void UpdatePatch(Hid hid, Routing::PortsEnum port, Korvo::PatchState state);
    /// Nothing for an unknown destination.
    std::optional<Korvo::PatchState> GetPatchState(const IoPort& dest, Routing::PortsEnum port) const;
    /// Unused: this module asks GetPatchState.
    std::optional<Routing::GigeAndSlots> GetPatchLink(const IoPort& dest, Routing::PortsEnum port) const;
    /// The commands that make the destinations of this device's patches listen on a port where the patch is made.
    BitmapCommands GetBitmapCommands(Hid hid, Routing::PortsEnum port) const;
    /// Erases every patch that is PatchNotSent on both links.
    void RemoveUnsent();

    /// One line a patch in the log.
    void Print() const;
    /// The patch of a destination, null if there is none. Good until a patch is removed.
    const OrbPatchInfo* Find(const IoPort& dest) const;

private:
    static constexpr std::size_t InitialBuckets = 10;
    /// A record, with the number that puts the patches of one HID in the order of their coming.
    struct Entry
    {
        OrbPatchInfo info;
        std::uint64_t number;
    };
    using Entries = std::unordered_map<IoPort, Entry>;
    using ByNumber = std::map<std::uint64_t, OrbPatchInfo*>;

    OrbPatchInfo* FindForUpdate(const IoPort& dest);
    const ByNumber& PatchesOf(Hid hid) const;
    void SetLink(OrbPatchInfo& patch, Routing::PortsEnum port, Korvo::PatchState state, Routing::GigeAndSlots&& link);
    void SetSwapTarget(OrbPatchInfo& patch, Routing::GigeAndSlots&& target);
    Entries::iterator Erase(Entries::iterator entry);
    void RemoveFromIndex(Hid hid, std::uint64_t number);
    bool HasRoomFor(std::size_t slots) const;

    Entries mPatches;
    std::unordered_map<Hid, ByNumber> mByHid;
    std::uint64_t mNextNumber{};
    std::size_t mSlots = 0;
};
