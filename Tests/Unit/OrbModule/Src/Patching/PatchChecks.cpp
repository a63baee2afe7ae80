#include "Tests/Unit/OrbModule/Src/Patching/PatchWorld.h"

#include <algorithm>

/// What carries a slot now.
PatchWorld::Snapshot PatchWorld::TakeSnapshot() const
{
    Snapshot snapshot;
    for (UINT8GIGEPORT port = 0; port < Routing::PORT_COUNT; ++port) {
        for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
            const LinkSlot& slot = mController->GetLinkAllocation().GetSlot(port, number);
            if (slot.IsInUse())
                snapshot[{port, number}] = {slot.mSource, slot.GetSourceLink().port, slot.GetSourceSlot()};
        }
    }
    return snapshot;
}

std::string PatchWorld::Check()
{
    if (mHeld || mLost) {
        mBoard.ServeInterrupts();
    } else if (!mBoard.WaitUntil([this] { return CheckTable().empty(); })) {
        return CheckTable();
    }
    std::string wrong = CheckChanges();
    if (wrong.empty()) wrong = CheckSlots();
    // While the desk's I/O is away nobody drives the patches.
    if (wrong.empty() && !IsDisturbed() && mDeskThere) wrong = CheckStates();
    if (wrong.empty() && !IsDisturbed() && mDeskThere) wrong = CheckWishes();
    return wrong;
}

/// The active table says what the slots say, and nothing else.
std::string PatchWorld::CheckTable() const
{
    const Snapshot slots = TakeSnapshot();
    const PatchBoard::Feeds feeds = mBoard.GetFeeds();
    const auto text = [](const PatchBoard::Feed& feed) {
        return feed ? std::to_string(feed->first) + '/' + std::to_string(feed->second) : "silence";
    };
    for (UINT8GIGEPORT port = 0; port < Routing::PORT_COUNT; ++port) {
        for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
            const auto slot = slots.find({port, number});
            PatchBoard::Feed expected;
            if (slot != slots.end()) expected = std::make_pair(slot->second.fromPort, slot->second.fromSlot);
            if (feeds[port][number] == expected) continue;
            return Name({port, number}) + " is fed by " + text(feeds[port][number]) + " and not by " + text(expected);
        }
    }
    return {};
}

/// A step changes no slot that its event does not concern.
std::string PatchWorld::CheckChanges() const
{
    const Snapshot after = TakeSnapshot();
    for (const auto& [slot, was] : mBefore) {
        const auto now = after.find(slot);
        if (now != after.end() && now->second == was) continue;
        const bool isFree = now == after.end();
        const bool keepsSource = isFree || now->second.source == was.source;
        const bool isConcerned = mConcern.kind == Concern::Anything ||
                                 (mConcern.kind == Concern::Patches && IsOfThisStep(was.source) &&
                                  (isFree || IsOfThisStep(now->second.source))) ||
                                 (mConcern.kind == Concern::Loss && keepsSource &&
                                  (slot.first == mConcern.port || was.fromPort == mConcern.port));
        if (!isConcerned) return Name(slot) + " was changed by an event that does not concern it";
    }
    for (const auto& [slot, now] : after) {
        if (mBefore.count(slot)) continue;
        const bool isConcerned = mConcern.kind == Concern::Anything || mConcern.kind == Concern::Growth ||
                                 (mConcern.kind == Concern::Patches && IsOfThisStep(now.source));
        if (!isConcerned) return Name(slot) + " was taken by an event that does not concern it";
    }
    return {};
}

bool PatchWorld::IsOfThisStep(const HidPort& source) const
{
    return std::count(mConcern.sources.begin(), mConcern.sources.end(), source) != 0;
}

/// Whether an end of a patch can be reached over a port.
bool PatchWorld::HasEnd(const HidPort& port, UINT8GIGEPORT link)
{
    if (link == Routing::ORB_PORT) return GetRackId(port.hid) == GetRackId(Own);
    return mDevices->IsDeviceOnline(port.hid, ToPortsEnum(link));
}

/// A slot in use has a source and destinations that are there, and carries for each what the store and the surroundings
/// say that it hears.
std::string PatchWorld::CheckSlots()
{
    for (const auto& [place, carried] : TakeSnapshot()) {
        const LinkSlot& slot = mController->GetLinkAllocation().GetSlot(place.first, place.second);
        if (!HasEnd(slot.mSource, carried.fromPort)) return Name(place) + " has a source that is gone";
        for (const HidPort& dest : slot.mDests) {
            if (!HasEnd(dest, place.first) || (place.first == Routing::ORB_PORT && !mDeskThere)) {
                return Name(place) + " has a destination that is gone";
            }
            const bool wanted =
                std::any_of(mWishes.begin(), mWishes.end(), [&, &source = slot.mSource](const Wish& wish) {
                    return ToHidPort(wish.source) == source && ToHidPort(wish.dest) == dest;
                });
            if (IsDisturbed()) continue;
            if (!wanted) return Name(place) + " has a patch that nobody wants";
            const OrbPatchInfo* const patch = mController->GetPatchStore().Find(IoPort(dest.hid, 2, dest.port));
            if (!patch) return Name(place) + " has a destination that the store does not know";
            if (ToHidPort(patch->GetSource()) != slot.mSource)
                return Name(place) + " has another source than the store";
        }
    }
    return {};
}

/// What is wanted and can be reached is heard.
std::string PatchWorld::CheckWishes()
{
    for (const Wish& wish : mWishes) {
        if (!IsCarried(wish)) return "no audio from " + Text(wish.source) + " to " + Text(wish.dest);
    }
    return {};
}

/// To the desk over one link at least, in the slots that the Orb router was told; to a link over that link.
bool PatchWorld::IsCarried(const Wish& wish)
{
    bool reachable = false;
    for (const UINT8GIGEPORT link : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        const bool hasSource = IsOwn(wish.source) || HasEnd(ToHidPort(wish.source), link);
        const bool hasDest = IsOwn(wish.dest) || HasEnd(ToHidPort(wish.dest), link);
        if (!hasSource || !hasDest) continue;
        reachable = true;
        const UINT8GIGEPORT from = IsOwn(wish.source) ? UINT8GIGEPORT{Routing::ORB_PORT} : link;
        const UINT8GIGEPORT to = IsOwn(wish.dest) ? UINT8GIGEPORT{Routing::ORB_PORT} : link;
        const bool isHeard = CountHeard(wish, from, to) == (IsBox(wish.dest) ? 1 : SlotsOf(wish.source, from).size());
        if (isHeard == IsOwn(wish.dest)) return isHeard;
    }
    return !reachable || !IsOwn(wish.dest);
}

/// Slots of a port in which the destination hears this source.
std::size_t PatchWorld::CountHeard(const Wish& wish, UINT8GIGEPORT from, UINT8GIGEPORT to)
{
    std::size_t heard = 0;
    const Slots wanted = SlotsOf(wish.source, from);
    const Told& told = mTold[wish.dest];
    for (const auto& [place, carried] : TakeSnapshot()) {
        if (place.first != to || carried.source != ToHidPort(wish.source)) continue;
        if (mController->GetLinkAllocation().GetSlot(to, place.second).mDests.count(ToHidPort(wish.dest)) == 0)
            continue;
        if (IsBox(wish.dest) && place.second != wish.dest.GetIndex()) continue;
        const bool isTold =
            told.source == wish.source && std::count(told.slots.begin(), told.slots.end(), place.second);
        if (IsOwn(wish.dest) && !isTold) continue;
        const auto feed = mBoard.GetFeed(to, place.second);
        heard += feed && feed->first == from && std::count(wanted.begin(), wanted.end(), feed->second) != 0;
    }
    return heard;
}

/// The states of a patch on the two links are ones that its life can reach.
std::string PatchWorld::CheckStates()
{
    for (const Wish& wish : mWishes) {
        const OrbPatchInfo* const patch = mController->GetPatchStore().Find(wish.dest);
        if (!patch) continue;
        for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
            const std::string name = Text(wish.dest) + " on " + PortText(port);
            const Korvo::PatchState state = patch->GetState(port);
            if (state == Korvo::PatchAwaitingReply || state == Korvo::PatchRetrySent) return name + " awaits a reply";
            if (state == Korvo::PatchNotSent && !(patch->GetLink(port) == Routing::GigeAndSlots{})) {
                return name + " has a link without a patch";
            }
            if (state != Korvo::PatchReserved) continue;
            if (!IsOwn(wish.dest)) return name + " is reserved away from the desk";
            if (patch->GetState(OtherLinkPort(port)) != Korvo::PatchSuccess) {
                return name + " stands by for nothing";
            }
        }
    }
    return {};
}

std::string PatchWorld::CheckEnd()
{
    Recover();
    ReturnDeskIo();
    Settle();
    while (!mWishes.empty()) {
        BreakPatch();
        Settle();
    }
    mConcern = {Concern::Anything};
    std::string wrong = Check();
    if (wrong.empty() && !TakeSnapshot().empty()) wrong = "slots were not given back";
    return wrong;
}

std::string PatchWorld::Name(const Place& place)
{
    return "slot " + std::to_string(place.first) + '/' + std::to_string(place.second);
}
