#include "Tests/Support/Joined.h"
#include "Tests/Support/QuietLog.h"
#include "Tests/Unit/OrbModule/Src/Patching/RandomPatches.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

constexpr unsigned EventsPerSeed = 1500;

/// Returns after each event what violates the rules; empty if nothing does.
class CheckedPatches : public RandomPatches
{
public:
    using RandomPatches::RandomPatches;

    std::string Check()
    {
        std::map<Place, Place> slots;
        const auto before = std::exchange(mBefore, {});
        for (UINT8GIGEPORT port = 0; port < Routing::PORT_COUNT; ++port) {
            for (std::uint32_t number = 0; number < Routing::SLOTS_PER_PORT; ++number) {
                const LinkSlot& slot = GetSlot({port, number});
                if (!slot.IsInUse()) continue;
                slots[{port, number}] = {slot.GetSourceLink().port, slot.GetSourceSlot()};
                mBefore[{port, number}] = {slots[{port, number}], {slot.mSource.hid, slot.mSource.port}};
            }
        }
        // The routes say what the slots say, and nothing else.
        const auto [slot, route] = std::mismatch(slots.begin(), slots.end(), mRoutes.begin(), mRoutes.end());
        if (slot != slots.end()) return Name(slot->first) + " has no such route";
        if (route != mRoutes.end()) return Name(route->first) + " has a route alone";
        // A step changes no slot that it does not concern.
        for (const auto& [place, was] : before) {
            const auto now = mBefore.find(place);
            if (now != mBefore.end() && now->second == was) continue;
            if (mLost.count(place.first) + mLost.count(was.first.first) + mSources.count(was.second) == 0)
                return Name(place) + " was changed by an event that does not concern it";
        }
        std::string wrong = CheckSlots();
        // While the desk's I/O is away nobody drives the patches.
        if (wrong.empty() && !IsDisturbed() && mHasDeskIo) wrong = CheckRequests();
        return wrong;
    }

    /// Breaks every patch; then what was not given back.
    std::string CheckEnd()
    {
        mIsLate = false;
        ReturnDeskIo();
        Settle();
        while (!mRequests.empty()) {
            BreakPatch();
            Settle();
        }
        const std::string wrong = Check();
        return wrong.empty() && !mRoutes.empty() ? "slots were not given back" : wrong;
    }

    /// Patches that were heard, the sum over all checks.
    std::uint64_t GetHeard() const { return mHeard; }

private:
    static std::string Name(const Place& place)
    {
        return "slot " + std::to_string(place.first) + '/' + std::to_string(place.second);
    }

    /// Whether an end of a patch can be reached over a port.
    bool IsThere(const HidPort& end, unsigned port) const
    {
        if (port == Routing::ORB_PORT) return GetRackId(end.hid) == GetRackId(Own);
        return mDevices.IsDeviceOnline(end.hid, ToPortsEnum(static_cast<UINT8GIGEPORT>(port)));
    }

    /// A slot in use has a source and destinations that are there, and carries for each what the store and the
    /// requests say that it hears.
    std::string CheckSlots() const
    {
        for (const auto& [place, feed] : mRoutes) {
            const LinkSlot& slot = GetSlot(place);
            if (!IsThere(slot.mSource, feed.first)) return Name(place) + " has a source that is gone";
            for (const HidPort& dest : slot.mDests) {
                if (!IsThere(dest, place.first) || (place.first == Routing::ORB_PORT && !mHasDeskIo))
                    return Name(place) + " has a destination that is gone";
                if (IsDisturbed()) continue;
                const auto isThis = [&](const Request& request) {
                    return ToHidPort(request.source) == slot.mSource && ToHidPort(request.dest) == dest;
                };
                if (std::none_of(mRequests.begin(), mRequests.end(), isThis))
                    return Name(place) + " has a patch that nobody wants";
                const OrbPatchInfo* const patch = mController.GetPatchStore().Find(IoPort(dest.hid, 2, dest.port));
                if (!patch || ToHidPort(patch->GetSource()) != slot.mSource)
                    return Name(place) + " has a destination that the store does not know with this source";
            }
        }
        return {};
    }

    /// What is wanted and can be reached is heard: by the desk over one link at least, on a link over that link.
    std::string CheckRequests()
    {
        for (const Request& request : mRequests) {
            unsigned reachable = 0;
            unsigned heard = 0;
            for (const unsigned link : {1u, 2u}) {
                if (!IsOwn(request.source) && !IsThere(ToHidPort(request.source), link)) continue;
                if (!IsOwn(request.dest) && !IsThere(ToHidPort(request.dest), link)) continue;
                ++reachable;
                if (IsHeard(request, IsOwn(request.source) ? 0 : link, IsOwn(request.dest) ? 0 : link)) ++heard;
            }
            mHeard += heard;
            if (heard >= (IsOwn(request.dest) ? std::min(reachable, 1u) : reachable)) continue;
            return "no audio from and to " + Joined(ToHidPort(request.source), ToHidPort(request.dest));
        }
        return {};
    }

    /// Whether the destination hears all slots of this source, the desk in those that the Orb router was sent.
    bool IsHeard(const Request& request, unsigned from, unsigned to) const
    {
        std::ptrdiff_t heard = 0;
        const Slots wanted = SlotsOf(request.source, static_cast<UINT8GIGEPORT>(from));
        const auto listening = mListening.find(request.dest);
        for (const auto& [place, feed] : mRoutes) {
            const LinkSlot& slot = GetSlot(place);
            if (place.first != to || feed.first != from || slot.mSource != ToHidPort(request.source)) continue;
            if (slot.mDests.count(ToHidPort(request.dest)) == 0) continue;
            if (IsBox(request.dest) && place.second != request.dest.GetIndex()) continue;
            if (IsOwn(request.dest)) {
                if (listening == mListening.end() || !(listening->second.first == request.source)) continue;
                const Slots& slots = listening->second.second;
                if (std::count(slots.begin(), slots.end(), place.second) == 0) continue;
            }
            heard += std::count(wanted.begin(), wanted.end(), feed.second);
        }
        return heard == (IsBox(request.dest) ? 1 : static_cast<std::ptrdiff_t>(wanted.size()));
    }

    /// What fed each slot in use at the last check, and its source.
    std::map<Place, std::pair<Place, std::pair<Hid, AudioPortNumber>>> mBefore;
    std::uint64_t mHeard = 0;
};

} // namespace

/// ORB_SEED=n plays another seed, with its whole log.
TEST(PatchInvariants, HoldAfterEveryEvent)
{
    std::vector<std::uint32_t> seeds{1, 2, 3, 4};
    if (const char* seed = std::getenv("ORB_SEED")) {
        seeds = {static_cast<std::uint32_t>(std::stoul(seed))};
        Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::RouterAudioRoute), 1);
    } else {
        // Thousands of lines of the log would bury what the test has to say.
        QuietLog::Install();
    }
    for (const std::uint32_t seed : seeds) {
        CheckedPatches patches(seed);
        std::string wrong = patches.Check();
        unsigned event = 0;
        for (; event < EventsPerSeed && wrong.empty(); ++event) {
            patches.Step();
            wrong = patches.Check();
        }
        if (wrong.empty()) wrong = patches.CheckEnd();
        ASSERT_EQ(wrong, "") << "after event " << event << "; ORB_SEED=" << seed << " replays it";
        EXPECT_GT(patches.GetHeard(), 5000u) << "the rules had little to look at";
    }
}
