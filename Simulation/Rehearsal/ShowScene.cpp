#include "Simulation/Rehearsal/ShowScene.h"

#include "Simulation/Peers/CommandIds.h"

#include <chrono>
#include <ctime>
#include <sstream>

using namespace stage;

namespace rehearsal {

namespace {

/// A device beyond the master router.
constexpr char FarBox[] = "0x00400001";

/// The microphone at input 3 of the box, and the slot on the Orb side at which it ends.
constexpr Sample OnPrimary{FirstLinkEndpoint, 3};
constexpr Sample OnSecondary{SecondLinkEndpoint, 3};
constexpr Sample AtOrb{BulkEndpoint, 0};

long long MonotonicNanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

std::string PortOf(const std::string& hid, int style, int index)
{
    return hid + ":" + std::to_string(style) + ":" + std::to_string(index);
}

constexpr int Input = 1;
constexpr int Output = 2;

} // namespace

std::vector<Step> ShowScene::Steps()
{
    return {{"the master router patches to an absent device", [this] { return RouterPatchFails(); }},
            {"the device appears and the patch is made", [this] { return RouterPatchSucceeds(); }},
            {"a microphone is patched to the Orb router", [this] { return PatchMicrophone(); }},
            {"a second cable is on standby", [this] { return ReserveSecond(); }},
            {"the primary cable is lost", [this] { return LoseCable(); }},
            {"the cable returns", [this] { return CableReturns(); }},
            {"the Orb router patches to an output of the box", [this] { return PatchToBox(); }},
            {"a patch goes to a box behind a hub", [this] { return PatchBehindHub(); }},
            {"the hub is pinged", [this] { return PingHub(); }}};
}

void ShowScene::ExpectInStore(const std::string& text)
{
    // A box with two cables is described on each, and reported each time: the first report may precede the change.
    constexpr Milliseconds Moment(500);
    const Deadline deadline(mPatience);
    while (true) {
        mRouting.GetShell().Ask("ps", mPatience);
        try {
            mLog.WaitForLine(text, Moment);
            return;
        } catch (const NotSeen&) {
            if (deadline.HasPassed()) throw;
        }
    }
}

std::string ShowScene::RouterPatchFails()
{
    Peer& router = mNetwork.GetNeighbour(0);
    router.Tell("patch src=" + PortOf(OrbIo, Input, 2) + " dest=" + PortOf(FarBox, Output, 1) + " on=data", mPatience);
    router.WaitFor(peers::PATCH_FAILED, 1, mPatience);
    return "The module reports the failure to the router, and will ask for a retry when the device appears.";
}

std::string ShowScene::RouterPatchSucceeds()
{
    Peer& router = mNetwork.GetNeighbour(0);
    Peer& orb = mNetwork.GetOrb();
    orb.Tell("clear", mPatience);
    router.Tell(std::string("device ") + FarBox + " fixed 0.64.9.1", mPatience);
    router.WaitFor(peers::PATCH_RETRY, 1, mPatience);
    router.Tell("patch src=" + PortOf(OrbIo, Input, 2) + " dest=" + PortOf(FarBox, Output, 1) + " on=data", mPatience);
    orb.WaitFor(peers::ROUTER_PATCH_AUDIO, 1, mPatience);
    // The Orb router answers with the slot at which it delivers the audio.
    orb.Tell("patch src=" + PortOf(OrbIo, Input, 2) + " link=1 slots=11 dest=" + PortOf(FarBox, Output, 1), mPatience);
    router.WaitFor(peers::ROUTER_PATCH_AUDIO, 1, mPatience);
    mRouting.GetControl().WaitForRoute({FirstLinkEndpoint, 0}, Sample{BulkEndpoint, 11}, mPatience);
    return "The device comes online and the module asks the router to retry. The Orb router delivers at slot 11, the "
           "FPGA "
           "feeds slot 0 of the primary link from it, and the router learns that slot.";
}

std::string ShowScene::PatchMicrophone()
{
    mNetwork.Unplug(0);
    mRouting.GetControl().WaitForRoute({FirstLinkEndpoint, 0}, std::nullopt, mPatience);
    mNetwork.PlugBox(0);
    Peer& orb = mNetwork.GetOrb();
    orb.Tell("patch src=" + PortOf(NetworkScene::Box, Input, 3) + " link=0 dest=" + PortOf(OrbIo, Output, 5),
             mPatience);
    mRouting.GetControl().WaitForRoute(AtOrb, OnPrimary, mPatience);
    orb.WaitFor(peers::ROUTER_PATCH_AUDIO, 1, mPatience);
    return "The router is unplugged, which silences its route, and the box returns. Slot 3 of the primary link, the "
           "box's "
           "input 3, feeds slot 0 of the Orb side, and the Orb router learns that slot.";
}

std::string ShowScene::ReserveSecond()
{
    const unsigned long syncs = mRouting.GetControl().Syncs();
    mNetwork.PlugBox(1);
    ExpectInStore("Sec Patch Reserved");
    if (mRouting.GetControl().Syncs() != syncs) throw NotSeen("the FPGA was given a new table");
    return "The same box appears on the secondary link. The patch is reserved there, and the FPGA's table stays the "
           "same.";
}

std::string ShowScene::LoseCable()
{
    const long long lost = MonotonicNanoseconds();
    mNetwork.TellDriver("unplug 0");
    mRouting.GetControl().WaitForRoute(AtOrb, OnSecondary, mPatience);
    std::istringstream times(mRouting.GetControl().AskOne("times", mPatience));
    long long request = 0;
    long long activation = 0;
    times >> request >> activation;
    mNetwork.Unplug(0);
    const double milliseconds = static_cast<double>(activation - lost) / 1e6;
    if (activation < lost) throw NotSeen("the table became active before the cable was lost");
    std::ostringstream text;
    text.precision(1);
    text << std::fixed << "Failover: slot 3 of the secondary link feeds slot 0 of the Orb side, " << milliseconds
         << " ms after the driver's report. The destination was silent for that time.";
    return text.str();
}

std::string ShowScene::CableReturns()
{
    mNetwork.PlugBox(0);
    ExpectInStore("Pri Patch Reserved");
    if (!(mRouting.GetControl().Probe(AtOrb) == OnSecondary)) throw NotSeen("the route has moved");
    return "The route stays on the secondary link, and the patch is now reserved on the primary link.";
}

std::string ShowScene::PatchToBox()
{
    mNetwork.GetOrb().Tell("patch src=" + PortOf(OrbIo, Input, 2) +
                               " link=0 slots=9 dest=" + PortOf(NetworkScene::Box, Output, 4),
                           mPatience);
    for (const unsigned int endpoint : {FirstLinkEndpoint, SecondLinkEndpoint}) {
        mRouting.GetControl().WaitForRoute({endpoint, 4}, Sample{BulkEndpoint, 9}, mPatience);
    }
    mNetwork.GetNeighbour(0).WaitFor(peers::PORT_BITMAP, 1, mPatience);
    if (!mNetwork.GetNeighbour(1).GetReceived(peers::PORT_BITMAP).empty())
        throw NotSeen("the box got the command on its secondary link too");
    return "Slot 9 of the Orb side feeds slot 4 of both links, and the box gets the command to listen there, on its "
           "primary "
           "link only.";
}

std::string ShowScene::PatchBehindHub()
{
    mNetwork.Unplug(1);
    mNetwork.Unplug(0);
    mRouting.GetControl().WaitForRoute(AtOrb, std::nullopt, mPatience);
    mNetwork.PlugHub();
    mNetwork.AwaitHubBox();
    Peer& hub = mNetwork.GetNeighbour(0);
    mNetwork.GetOrb().Tell("patch src=" + PortOf(OrbIo, Input, 2) +
                               " link=0 slots=21 dest=" + PortOf(NetworkScene::HubBox, Output, 1),
                           mPatience);
    mRouting.GetControl().WaitForRoute({FirstLinkEndpoint, 0}, Sample{BulkEndpoint, 21}, mPatience);
    hub.WaitFor(peers::ROUTER_PATCH_AUDIO, 1, mPatience);
    return "Without both cables the microphone's route is silent. A hub takes the box's place: slot 21 of the Orb side "
           "feeds "
           "the first free slot of its link, and the hub learns where the audio arrives.";
}

std::string ShowScene::PingHub()
{
    mRouting.GetShell().Ask("ping", mPatience);
    mNetwork.GetNeighbour(0).WaitFor(peers::PING, 1, mPatience);
    mLog.WaitForLine("Ping Response ", mPatience);
    return "The shell's 'ping' reaches the hub over its data link, and the answer is in the log.";
}

} // namespace rehearsal
