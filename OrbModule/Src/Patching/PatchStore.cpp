#include "OrbModule/Inc/Patching/PatchStore.h"

#include "Audit/Audit.h"

#include <utility>

bool PatchStore::StorePatch(const IoPort& source, const IoPort& dest)
{
    AUDIT_STREAM(Information, "PatchStore::StorePatch " << dest << " Src " << source << '\n');
    if (mPatches.find(dest) != mPatches.end()) return true;
    if (mPatches.size() >= MaxPatches) {
        AUDIT_STREAM(Fault, "PatchStore is full, patches " << mPatches.size() << " not stored " << dest << '\n');
        return false;
    }
    const std::uint64_t number = mNextNumber++;
    OrbPatchInfo& info = mPatches.emplace(dest, Entry{OrbPatchInfo(source, dest), number}).first->second.info;
    mByHid[source.GetHid()].emplace(number, &info);
    if (dest.GetHid() != source.GetHid()) mByHid[dest.GetHid()].emplace(number, &info);
    return true;
}

void PatchStore::RemovePatch(const IoPort& dest)
{
    AUDIT_STREAM(Information, "PatchStore::RemovePatch " << dest << '\n');
    const auto entry = mPatches.find(dest);
    if (entry == mPatches.end()) {
        AUDIT_STREAM(Fault, "Attempt to rmeove unknown patch by dest " << dest << '\n');
        return;
    }
    Erase(entry);
}

std::vector<const OrbPatchInfo*> PatchStore::GetPatches(Hid hid, Routing::PortsEnum port, Korvo::PatchState state) const
{
    std::vector<const OrbPatchInfo*> patches;
    for (const auto& entry : PatchesOf(hid)) {
        if (entry.second->GetState(port) == state) patches.push_back(entry.second);
    }
    return patches;
}

void PatchStore::UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state)
{
    OrbPatchInfo* const patch = FindForUpdate(dest);
    if (!patch) return;
    mSlots -= patch->CountSlots();
    patch->UpdatePatch(port, state);
    mSlots += patch->CountSlots();
}

void PatchStore::UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state,
                             Routing::GigeAndSlots link)
{
    if (OrbPatchInfo* const patch = FindForUpdate(dest)) SetLink(*patch, port, state, std::move(link));
}

void PatchStore::UpdatePatch(const IoPort& dest, Routing::PortsEnum port, Korvo::PatchState state,
                             Routing::GigeAndSlots link, Routing::GigeAndSlots swapTarget)
{
    AUDIT_STREAM(RouterAudioRoute, "UpdatePatch Swap Target " << swapTarget << '\n');
    OrbPatchInfo* const patch = FindForUpdate(dest);
    if (!patch) return;
    SetLink(*patch, port, state, std::move(link));
    SetSwapTarget(*patch, std::move(swapTarget));
}

void PatchStore::UpdatePatch(Hid hid, Routing::PortsEnum port, Korvo::PatchState state)
{
    AUDIT_STREAM(RouterAudioRoute, "PatchStore::UpdatePatch " << hid << " Port " << PortText(port) << state << '\n');
    for (const auto& entry : PatchesOf(hid)) {
        OrbPatchInfo& patch = *entry.second;
        SetLink(patch, port, state, {});
        // A destination that leaves the port of its swap target gives up those slots.
        if (patch.GetDest().GetHid() == hid && patch.GetSwapTarget().port == port) SetSwapTarget(patch, {});
    }
}

const OrbPatchInfo* PatchStore::Find(const IoPort& dest) const
{
    const auto entry = mPatches.find(dest);
    return entry == mPatches.end() ? nullptr : &entry->second.info;
}

std::optional<Korvo::PatchState> PatchStore::GetPatchState(const IoPort& dest, Routing::PortsEnum port) const
{
    const OrbPatchInfo* const patch = Find(dest);
    if (!patch) return std::nullopt;
    return patch->GetState(port);
}

std::optional<Routing::GigeAndSlots> PatchStore::GetPatchLink(const IoPort& dest, Routing::PortsEnum port) const
{
    const OrbPatchInfo* const patch = Find(dest);
    if (!patch) return std::nullopt;
    return patch->GetLink(port);
}

PatchStore::BitmapCommands PatchStore::GetBitmapCommands(Hid hid, Routing::PortsEnum port) const
{
    BitmapCommands commands;
    for (const auto& entry : PatchesOf(hid)) {
        if (entry.second->GetState(port) != Korvo::PatchSuccess) continue;
        const IoPort& dest = entry.second->GetDest();
        PortBitmapCmd& command =
            commands.try_emplace(dest.GetHid(), dest.GetHid(), PortBitmapBlock::AllZero()).first->second;
        command.SetPort(dest.GetIndex(), PortBitmapEntry{0xFFFFFFFF, !IsPrimaryPort(port)});
    }
    return commands;
}

void PatchStore::RemoveUnsent()
{
    for (auto entry = mPatches.begin(); entry != mPatches.end();) {
        entry = entry->second.info.IsUnsent() ? Erase(entry) : std::next(entry);
    }
}

void PatchStore::Print() const
{
    for (const auto& entry : mPatches)
        AUDIT_STREAM(Information, "PI " << entry.second.info << "\r\n");
}

OrbPatchInfo* PatchStore::FindForUpdate(const IoPort& dest)
{
    const auto entry = mPatches.find(dest);
    if (entry != mPatches.end()) return &entry->second.info;
    AUDIT_STREAM(Fault, "Attempt to UpdatePatch unknown patch by dest " << dest << '\n');
    return nullptr;
}

const PatchStore::ByNumber& PatchStore::PatchesOf(Hid hid) const
{
    static const ByNumber none;
    const auto entry = mByHid.find(hid);
    return entry == mByHid.end() ? none : entry->second;
}

/// Sets state and link of one port, and keeps the count of the slots held.
void PatchStore::SetLink(OrbPatchInfo& patch, Routing::PortsEnum port, Korvo::PatchState state,
                         Routing::GigeAndSlots&& link)
{
    mSlots -= patch.CountSlots();
    const std::size_t others = patch.CountSlots() - patch.GetLink(port).slots.size();
    if (!HasRoomFor(others + link.slots.size())) link = {};
    patch.UpdatePatch(port, state, std::move(link));
    mSlots += patch.CountSlots();
}

void PatchStore::SetSwapTarget(OrbPatchInfo& patch, Routing::GigeAndSlots&& target)
{
    mSlots -= patch.GetSwapTarget().slots.size();
    if (!HasRoomFor(target.slots.size())) target = {};
    mSlots += target.slots.size();
    patch.SetSwapTarget(std::move(target));
}

PatchStore::Entries::iterator PatchStore::Erase(Entries::iterator entry)
{
    const OrbPatchInfo& info = entry->second.info;
    const Hid source = info.GetSource().GetHid();
    const Hid dest = info.GetDest().GetHid();
    RemoveFromIndex(source, entry->second.number);
    if (dest != source) RemoveFromIndex(dest, entry->second.number);
    mSlots -= info.CountSlots();
    return mPatches.erase(entry);
}

void PatchStore::RemoveFromIndex(Hid hid, std::uint64_t number)
{
    const auto entry = mByHid.find(hid);
    // A patch that was stored while memory ran out may lack its place here.
    if (entry == mByHid.end()) return;
    entry->second.erase(number);
    if (entry->second.empty()) mByHid.erase(entry);
}

bool PatchStore::HasRoomFor(std::size_t slots) const
{
    if (slots <= MaxSlots - mSlots) return true;
    AUDIT_STREAM(Fault, "PatchStore is full, slots " << mSlots << '\n');
    return false;
}
