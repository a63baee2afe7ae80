#include "OrbModule/Inc/Patching/PatchController.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/AudioPatchFailedCmd.h"
#include "Common/KLV/Commands/AudioPatchRetryForHidCmd.h"
#include "Common/KLV/Commands/OstrelPingCmd.h"
#include "Common/KLV/Commands/PatchSucessfulCmd.h"
#include "Common/KLV/Commands/PortBitmapCmd.h"
#include "Common/KLV/Commands/RouterPatchAudio.h"

#include <algorithm>
#include <utility>
#include <vector>

using Routing::GigeAndSlots;

namespace {

constexpr std::size_t InitialRetryBuckets = 10;

/// The Orb router names itself by a node form or by 0; slots are booked under the link form of both.
Hid NormaliseHid(Hid hid)
{
    return (hid & 0xF000) == 0x4000 || hid == LOCAL_DSP_HID ? MakeLinkHid(hid) : hid;
}

HidPort ToHidPort(const IoPort& port)
{
    return {NormaliseHid(port.GetHid()), port.GetIndex()};
}

std::uint64_t RetryKey(Hid hid, UINT8GIGEPORT port)
{
    return std::uint64_t{hid} << 8 | port;
}

/// Whether a link can be routed. Its slots may come from the network, so they are looked at.
bool IsUsable(const GigeAndSlots& link)
{
    if (link.slots.size() > Routing::SLOTS_PER_PORT) {
        AUDIT_STREAM(Fault, "PatchController too many slots " << link.slots.size() << '\n');
        return false;
    }
    const auto wild = std::find_if(link.slots.begin(), link.slots.end(),
                                   [](std::uint32_t slot) { return slot >= Routing::SLOTS_PER_PORT; });
    if (wild != link.slots.end()) {
        AUDIT_STREAM(Fault, "PatchController slot out of range " << *wild << '\n');
        return false;
    }
    return link.IsValid();
}

/// Of lists of unequal length the shorter counts.
void CutToShorter(GigeAndSlots& source, GigeAndSlots& dest)
{
    const std::size_t length = std::min(source.slots.size(), dest.slots.size());
    source.slots.resize(length);
    dest.slots.resize(length);
}

/// Results that leave something to be done to the routes; with the others the audio flows on as it did.
bool ChangesRoutes(AllocationResult result)
{
    return result == AllocatedNew || result == FreedLast;
}

/// Whether all these slots are among those that have just come free.
bool IsSilenced(const GigeAndSlots& link, const std::vector<LinkPatch>& unpatches)
{
    const auto port = std::find_if(unpatches.begin(), unpatches.end(),
                                   [&](const LinkPatch& unpatch) { return unpatch.destination.port == link.port; });
    if (port == unpatches.end()) return false;
    const auto& silenced = port->destination.slots;
    return std::all_of(link.slots.begin(), link.slots.end(), [&](std::uint32_t slot) {
        return std::find(silenced.begin(), silenced.end(), slot) != silenced.end();
    });
}

PortBitmapCmd MakeBitmapCommand(Hid hid, AudioPortNumber index, bool secondary)
{
    PortBitmapCmd command(hid, PortBitmapBlock::AllZero());
    command.SetPort(index, PortBitmapEntry{0xFFFFFFFF, secondary});
    return command;
}

/// The command that makes a stored patch again.
RouterPatchAudio MakeAgain(const OrbPatchInfo& patch, UINT8GIGEPORT sourceLink)
{
    return RouterPatchAudio(PatchSource(patch.GetSource(), sourceLink, {}), patch.GetDest(), patch.GetSource(), true,
                            false);
}

std::ostream& operator<<(std::ostream& out, const DevicePorts& ports)
{
    return out << PortText(ports.local) << unsigned{ports.remote} << ' ';
}

} // namespace

PatchController::PatchController(boost::asio::io_service&, iDevices& devices, iOrbKLVComms& comms, iPatcher& patcher)
    : mDevices(&devices), mComms(&comms), mPatcher(&patcher), mPendingRetries(InitialRetryBuckets)
{
    AUDIT_LOG(Information, "Starting PatchController\n");
}

void PatchController::OnLocalHidChanged(Hid hid)
{
    AUDIT_STREAM(Information, "PatchController::OnLocalHidChanged " << hid << '\n');
    mHid = hid;
}

void PatchController::OnNetworkConnectionChanged(bool connected)
{
    AUDIT_STREAM(Information, "KORVO NETWORK CONNECTION " << FlagText(connected) << '\n');
    mRouterConnected = connected;
    if (connected) mPatchStore.RemoveUnsent();
}

void PatchController::ReceivedRouterPatchAudioCmd(const std::shared_ptr<const RouterPatchAudio>& command,
                                                  UINT8GIGEPORT port, StreamType)
{
    if (!command) {
        AUDIT_LOG(Fault, "ReceiveRouterPatchAudioCmd Shared pointer contains nothing\r\n");
        return;
    }
    AUDIT_STREAM(RouterAudioRoute, "ReceivedRouterPatchAudioCmd " << *command << " On Link " << PortText(port) << '\n');
    if (!mRouterConnected) {
        if (UpdatePatchStore(*command)) HandleOrbGeneratedPatch(*command, port);
        return;
    }
    const bool bothOwn = mDevices->IsOwnDevice(command->GetSource().GetPort().GetHid()) &&
                         mDevices->IsOwnDevice(command->GetDest().GetHid());
    if (port != Routing::ORB_PORT && !bothOwn && !UpdatePatchStore(*command)) return;
    HandleRouterGeneratedPatch(*command, port);
}

/// False if the patch finds no room; then nothing is to be made of it either.
bool PatchController::UpdatePatchStore(const RouterPatchAudio& command)
{
    AUDIT_STREAM(RouterAudioRoute, "UpdatePatchStore Dst" << command.GetDest() << " Src " << command.GetOrig()
                                                          << " Patch " << FlagText(command.GetMake()) << '\n');
    if (command.GetMake()) return mPatchStore.StorePatch(command.GetOrig(), command.GetDest());
    mPatchStore.RemovePatch(command.GetDest());
    return true;
}

void PatchController::HandleRouterGeneratedPatch(const RouterPatchAudio& command, UINT8GIGEPORT port)
{
    const Hid source = NormaliseHid(command.GetSource().GetPort().GetHid());
    const Hid dest = NormaliseHid(command.GetDest().GetHid());
    PatchEnds ends;
    if (port != Routing::ORB_PORT) {
        ends.sourceIsOwn = mDevices->IsOwnDevice(source);
        ends.destIsOwn = mDevices->IsOwnDevice(dest);
        ends.destReachable = mDevices->IsDeviceOnline(dest, port);
    }
    switch (FindRouterRoad(port, ends)) {
    case PatchRoad::PassToOrbAndAcknowledge:
        SendToOrb(command);
        ReportPatchSuccessful(command.GetDest(), port);
        break;
    case PatchRoad::PassToOrbWithPort: {
        RouterPatchAudio copy = command;
        copy.SetSourceLink(port);
        SendToOrb(copy);
        break;
    }
    case PatchRoad::ReportFailed:
        ReportPatchFailed(command, port);
        break;
    case PatchRoad::LinkToOrb:
        LocalOrbPatch(command, mDevices->GetDevicePorts(source, port));
        break;
    case PatchRoad::OrbToLink:
        for (const UINT8GIGEPORT link : FindRouterPorts(command.GetMake(), command.GetSource().GetLink())) {
            const DevicePorts ports = mDevices->GetDevicePorts(dest, link);
            AUDIT_STREAM(RouterAudioRoute, "ORB SRC DSPort " << ports << '\n');
            RemoteDestinationPatch(command, ports);
        }
        break;
    default:
        break;
    }
}

void PatchController::HandleOrbGeneratedPatch(const RouterPatchAudio& command, UINT8GIGEPORT port)
{
    const Hid source = NormaliseHid(command.GetSource().GetPort().GetHid());
    const Hid dest = NormaliseHid(command.GetDest().GetHid());
    const UINT8GIGEPORT link = command.GetSource().GetLink();
    AUDIT_STREAM(RouterAudioRoute,
                 "HandleOrbGeneratedPatch Link Port " << unsigned{port} << " Src Link " << unsigned{link} << '\n');
    if (port != Routing::ORB_PORT) {
        AUDIT_LOG(RouterAudioRoute, "RECEIVED PATCH COMMAND FROM DOWNSTREAM PORT....\r\n");
        LocalOrbPatch(command, mDevices->GetDevicePorts(source, port));
        return;
    }
    PatchEnds ends;
    ends.sourceIsLocal = mDevices->IsLocalIo(source);
    ends.destIsLocal = mDevices->IsLocalIo(dest);
    ends.sourceIsOwn = mDevices->IsOwnDevice(source);
    ends.destIsOwn = mDevices->IsOwnDevice(dest);
    bool bitmapDone = link != Routing::ORB_PORT;
    for (const UINT8GIGEPORT candidate : FindOrbPorts(link)) {
        const DevicePorts destPorts = mDevices->GetDevicePorts(dest, candidate);
        const DevicePorts sourcePorts = mDevices->GetDevicePorts(source, candidate);
        AUDIT_STREAM(RouterAudioRoute, "Src Ports " << sourcePorts << " Dest Ports " << destPorts << '\n');
        ends.sourceReachable = sourcePorts.IsValid();
        ends.destReachable = destPorts.IsValid();
        TakeOrbRoad(FindOrbRoad(port, ends), command, sourcePorts, destPorts, candidate, bitmapDone);
    }
}

void PatchController::TakeOrbRoad(PatchRoad road, const RouterPatchAudio& command, const DevicePorts& sourcePorts,
                                  const DevicePorts& destPorts, UINT8GIGEPORT port, bool& bitmapDone)
{
    switch (road) {
    case PatchRoad::LinkToOrb:
    case PatchRoad::LinkToOrbNotHeard:
        AUDIT_STREAM(RouterAudioRoute, "Destination HID " << command.GetDest().GetHid() << '\n');
        if (road == PatchRoad::LinkToOrb) LocalOrbPatch(command, sourcePorts);
        break;
    case PatchRoad::ToLocalBox:
        LocalDestinationPatch(command, sourcePorts.local, destPorts.local, bitmapDone);
        break;
    case PatchRoad::OrbToLink:
        AUDIT_LOG(RouterAudioRoute, "ORB SRC\r\n");
        RemoteDestinationPatch(command, destPorts);
        break;
    case PatchRoad::OnwardsToSource:
        AUDIT_LOG(RouterAudioRoute, "Remote SRC send patch onwards\r\n");
        SendToSourceNode(command, NormaliseHid(command.GetSource().GetPort().GetHid()), port);
        mPatchStore.UpdatePatch(command.GetDest(), destPorts.local, Korvo::PatchSent, {});
        break;
    case PatchRoad::SourceNotValid:
        AUDIT_LOG(RouterAudioRoute, "Remote SRC link not valid\r\n");
        break;
    default:
        break;
    }
}

void PatchController::LocalDestinationPatch(const RouterPatchAudio& command, UINT8GIGEPORT sourcePort,
                                            UINT8GIGEPORT destPort, bool& bitmapDone)
{
    const IoPort& dest = command.GetDest();
    GigeAndSlots destLink{destPort, mDevices->GetOutputLinkSlot(dest.GetHid(), dest.GetIndex())};
    GigeAndSlots sourceLink = GetSourceLink(command, sourcePort);
    AUDIT_STREAM(RouterAudioRoute, "LocalDestinationPatch Src Link " << sourceLink << " Dst Link " << destLink << '\n');
    if (!IsUsable(sourceLink) || !IsUsable(destLink)) {
        AUDIT_LOG(Fault, "LocalDestinationPatch INVALID TDM SLOTS\r\n");
        return;
    }
    const HidPort orig = ToHidPort(command.GetOrig());
    LinkPatch patch;
    AllocationResult result = AllocationFailed;
    if (command.GetMake()) {
        CutToShorter(sourceLink, destLink);
        result = mLinkAllocation.Allocate(orig, sourceLink, ToHidPort(dest), destLink, patch);
    } else {
        result = mLinkAllocation.Free(orig, sourceLink, destLink, patch);
    }
    if (result == AllocationFailed) {
        AUDIT_LOG(Fault, "Unknown Patch\r\n");
        return;
    }
    mPatcher->ProcessPatchUnpatch(patch, command.GetMake());
    mPatchStore.UpdatePatch(dest, destPort, Korvo::PatchSuccess, std::move(sourceLink));
    if (bitmapDone) return;
    bitmapDone = true;
    const PortBitmapCmd bitmap = MakeBitmapCommand(dest.GetHid(), dest.GetIndex(), !IsPrimaryPort(destPort));
    mComms->SendCmd(destPort, bitmap, iOrbKLVComms::LOCAL_LINK, 0);
}

void PatchController::LocalOrbPatch(const RouterPatchAudio& command, const DevicePorts& ports)
{
    const bool isLocal = mDevices->IsLocalIo(command.GetSource().GetPort().GetHid());
    AUDIT_LOG(RouterAudioRoute, "LocalOrbPatch %s Source\r\n", isLocal ? "Local" : "Remote");
    GigeAndSlots sourceLink = GetSourceLink(command, ports.local);
    AUDIT_STREAM(RouterAudioRoute, "RDP SrcLink " << sourceLink << '\n');
    if (!IsUsable(sourceLink)) {
        AUDIT_LOG(Fault, "RemoteDestinationPatch Source Link TDM slot INVALID\r\n");
        return;
    }
    const IoPort& dest = command.GetDest();
    LinkPatch patch;
    const AllocationResult result = AssignSlots(command, sourceLink, Routing::ORB_PORT, patch);
    if (result == AllocationFailed) return;
    if (mRouterConnected) ReportPatchSuccessful(dest, ports.local);
    if (result == AlreadyCarrying && StandsByForOtherLink(dest, ports.local, patch.destination)) {
        const bool isReserve = mPatchStore.GetPatchState(dest, OtherLinkPort(ports.local)) == Korvo::PatchSuccess;
        mPatchStore.UpdatePatch(dest, ports.local, isReserve ? Korvo::PatchReserved : Korvo::PatchSuccess,
                                std::move(sourceLink));
        return;
    }

    mPatchStore.UpdatePatch(dest, ports.local, Korvo::PatchSuccess, std::move(sourceLink), patch.destination);
    SendToOrb(RouterPatchAudio(PatchSource(MakeLinkHid(mHid), Routing::ORB_PORT, patch.destination.slots), dest,
                               command.GetOrig(), command.GetMake(), true));
    if (ChangesRoutes(result)) mPatcher->ProcessPatchUnpatch(patch, command.GetMake());
}

/// Whether the source reaches this destination through the other link already. The swap target is what the Orb router
/// was last told for this destination: unless these are the slots, it has to be told, whatever the other state says.
bool PatchController::StandsByForOtherLink(const IoPort& dest, UINT8GIGEPORT port, const GigeAndSlots& slots) const
{
    const OrbPatchInfo* const patch = mPatchStore.Find(dest);
    return patch && patch->GetState(OtherLinkPort(port)) != Korvo::PatchNotSent && patch->GetSwapTarget() == slots;
}

void PatchController::RemoteDestinationPatch(const RouterPatchAudio& command, const DevicePorts& ports)
{
    GigeAndSlots sourceLink{Routing::ORB_PORT, command.GetSource().GetSlots()};
    AUDIT_STREAM(RouterAudioRoute,
                 "RemoteDestinationPatch Dest Ports " << ports << "RDP SrcLink " << sourceLink << '\n');
    if (!IsUsable(sourceLink)) {
        AUDIT_LOG(Fault, "RemoteDestinationPatch Source Link TDM slot INVALID\r\n");
        return;
    }
    const IoPort& dest = command.GetDest();
    LinkPatch patch;
    const AllocationResult result = AssignSlots(command, sourceLink, ports.local, patch);
    if (result == AllocationFailed) return;
    mPatchStore.UpdatePatch(dest, ports.local, mRouterConnected ? Korvo::PatchSuccess : Korvo::PatchSent,
                            std::move(sourceLink));
    if (ChangesRoutes(result)) mPatcher->ProcessPatchUnpatch(patch, command.GetMake());
    // The next node learns on which of its ports, and in which slots, the audio arrives.
    const RouterPatchAudio onward(PatchSource(MakeLinkHid(mHid), ports.remote, patch.destination.slots), dest,
                                  command.GetOrig(), command.GetMake(), command.GetUseMe());
    mComms->SendCmd(ports.local, onward, iOrbKLVComms::LOCAL_LINK, 0);
}

AllocationResult PatchController::AssignSlots(const RouterPatchAudio& command, const GigeAndSlots& sourceLink,
                                              UINT8GIGEPORT port, LinkPatch& patch)
{
    const HidPort orig = ToHidPort(command.GetOrig());
    const HidPort dest = ToHidPort(command.GetDest());
    if (!command.GetMake()) return mLinkAllocation.Free(orig, port, dest, patch);
    const AllocationResult result = mLinkAllocation.Allocate(orig, sourceLink, port, dest, patch);
    if (result == AllocationFailed && !patch.destination.slots.empty()) {
        // The port ran out half-way. What was taken would pass for a route when the same patch comes over the other
        // link.
        LinkPatch taken;
        mLinkAllocation.Free(orig, port, dest, taken);
    }
    return result;
}

GigeAndSlots PatchController::GetSourceLink(const RouterPatchAudio& command, UINT8GIGEPORT port)
{
    const IoPort& source = command.GetSource().GetPort();
    if (!mDevices->IsLocalIo(source.GetHid())) return {port, command.GetSource().GetSlots()};
    return {port, mDevices->GetInputLinkSlot(source.GetHid(), source.GetIndex())};
}

void PatchController::ReportPatchFailed(const RouterPatchAudio& command, UINT8GIGEPORT port)
{
    if (mPendingRetries.size() < MaxPendingRetries) {
        mPendingRetries.insert(RetryKey(command.GetDest().GetHid(), port));
    } else {
        AUDIT_STREAM(Fault, "PatchController has too many pending retries, none for " << command.GetDest() << '\n');
    }
    mComms->SendCmd(port, AudioPatchFailedCmd(command.GetSource().GetPort(), command.GetDest()),
                    iOrbKLVComms::MASTER_LINK, 0);
}

void PatchController::ReportPatchSuccessful(const IoPort& dest, UINT8GIGEPORT port)
{
    mComms->SendCmd(port, PatchSucessfulCmd(dest), iOrbKLVComms::MASTER_LINK, 0);
}

void PatchController::SendToOrb(const RouterPatchAudio& command)
{
    mComms->SendCmd(Routing::ORB_PORT, command, iOrbKLVComms::LOCAL_LINK, 0);
}

void PatchController::SendToSourceNode(const RouterPatchAudio& command, Hid source, UINT8GIGEPORT port)
{
    mComms->SendCmd(UNKNOWN_GIGE_PORT, command, iOrbKLVComms::SLAVE_LINK, mDevices->GetSlaveAddress(source, port));
}

void PatchController::ReceivedPatchSucessfulCmd(const std::shared_ptr<const PatchSucessfulCmd>& command,
                                                UINT8GIGEPORT port, StreamType)
{
    if (!command) return;
    AUDIT_STREAM(RouterAudioRoute, "ReceivedPatchSucessfulCmd " << PortText(port) << '\n');
    mPatchStore.UpdatePatch(command->GetDest(), port, Korvo::PatchSuccess);
}

void PatchController::ReceivedAudioPatchRetryForHid(const std::shared_ptr<const AudioPatchRetryForHidCmd>& command,
                                                    UINT8GIGEPORT port, StreamType)
{
    if (!command) return;
    AUDIT_STREAM(RouterAudioRoute, "ReceivedAudioPatchRetryForHid " << command->GetHid() << '\n');
    std::vector<OrbPatchInfo*> patches;
    mPatchStore.GetPatches(command->GetHid(), port, Korvo::PatchSent, patches);
    for (const OrbPatchInfo* const patch : patches) {
        SendToSourceNode(MakeAgain(*patch, UNKNOWN_GIGE_PORT), patch->GetSource().GetHid(), port);
        mPatchStore.UpdatePatch(patch->GetDest(), port, Korvo::PatchSent, {});
    }
}

void PatchController::ReceivedPingCmd(const std::shared_ptr<const OstrelPingCmd>& command, UINT8GIGEPORT port,
                                      StreamType)
{
    if (!command || !mRouterConnected) return;
    const std::string address = AddressText((mHid & 0xFFFF0000) + (IsPrimaryPort(port) ? 0x500 : 0x600));
    std::uint32_t patches = 0;
    std::uint32_t dests = 0;
    mLinkAllocation.GetCounts(patches, dests);
    AUDIT_STREAM(RouterAudioRoute, "Hid " << mHid << " ReceivedPingCmd From " << command->GetName()
                                          << " Replaying with Address " << address << " Patch Count " << patches
                                          << " Total Dests " << dests << '\n');
    mComms->SendCmd(port, OstrelPingCmd(address, patches, dests), iOrbKLVComms::MASTER_LINK, 0);
}

void PatchController::SendPortBitmap(Hid hid, AudioPortNumber index, bool secondary)
{
    DevicePorts ports = mDevices->GetDevicePorts(hid, secondary ? Routing::SECONDARY_PORT : Routing::PRIMARY_PORT);
    if (!ports.IsValid()) {
        ports = mDevices->GetDevicePorts(hid, secondary ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT);
    }
    mComms->SendCmd(ports.local, MakeBitmapCommand(hid, index, secondary), iOrbKLVComms::LOCAL_LINK, 0);
}

void PatchController::OnDeviceChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType)
{
    AUDIT_STREAM(RouterAudioRoute, "PatchController::OnDeviceChange Hid " << hid << " Port " << PortText(port)
                                                                          << " Online " << FlagText(online) << '\n');
    if (!online) {
        DeviceLeft(hid, port);
    } else if (!mRouterConnected) {
        RemakePatches(hid, port);
    } else if (mPendingRetries.erase(RetryKey(hid, port)) != 0) {
        mComms->SendCmd(port, AudioPatchRetryForHidCmd(hid), iOrbKLVComms::MASTER_LINK, 0);
    }
}

void PatchController::DeviceLeft(Hid hid, UINT8GIGEPORT port)
{
    mPendingRetries.erase(RetryKey(hid, port));
    std::vector<LinkPatch> unpatches;
    mLinkAllocation.GetUnpatchesByHidAndPort(IsIoHid(hid) ? hid : MakeLinkHid(hid), port, unpatches);
    mPatcher->ProcessUnpatches(unpatches);
    if (port != Routing::ORB_PORT) SwingOver(hid, port, unpatches);
    mPatchStore.UpdatePatch(hid, port, Korvo::PatchNotSent);
    mPatchStore.RemoveUnsent();
    if (!mRouterConnected) FlipPorts(hid, OtherLinkPort(port));
}

/// Puts the prepared routes of the other link in the place of those that have just gone.
void PatchController::SwingOver(Hid hid, UINT8GIGEPORT port, const std::vector<LinkPatch>& unpatches)
{
    const UINT8GIGEPORT other = OtherLinkPort(port);
    std::vector<OrbPatchInfo*> prepared;
    mPatchStore.GetPatches(hid, port, Korvo::PatchSuccess, prepared);
    // Destinations of one source share its slots, whichever link feeds them. So a patch that is made on the other link
    // may have had its audio from the one that has gone.
    std::vector<OrbPatchInfo*> shared;
    mPatchStore.GetPatches(hid, other, Korvo::PatchSuccess, shared);
    for (const OrbPatchInfo* const patch : prepared) {
        if (patch->GetState(other) != Korvo::PatchReserved) continue;
        if (!mDevices->IsOwnDevice(patch->GetDest().GetHid())) continue;
        if (!RouteToSwapTarget(*patch, other)) continue;
        mPatchStore.UpdatePatch(patch->GetDest(), other, Korvo::PatchSuccess);
    }
    for (const OrbPatchInfo* const patch : shared) {
        if (patch->GetSource().GetHid() != hid) continue;
        if (!mDevices->IsOwnDevice(patch->GetDest().GetHid())) continue;
        if (IsSilenced(patch->GetSwapTarget(), unpatches)) RouteToSwapTarget(*patch, other);
    }
}

/// Feeds the slots that the destination has on the internal port from where the source arrives on this link port.
bool PatchController::RouteToSwapTarget(const OrbPatchInfo& patch, UINT8GIGEPORT port)
{
    const HidPort source = ToHidPort(patch.GetSource());
    GigeAndSlots sourceLink = patch.GetLink(port);
    GigeAndSlots target = patch.GetSwapTarget();
    AUDIT_STREAM(RouterAudioRoute, "Found a swap target Src " << sourceLink << " Target " << target << '\n');
    if (!IsUsable(sourceLink) || !IsUsable(target) || IsHeldByAnother(target, source)) {
        AUDIT_STREAM(Fault, "PatchController no way to swing over " << patch.GetDest() << '\n');
        return false;
    }
    CutToShorter(sourceLink, target);
    LinkPatch route;
    if (mLinkAllocation.Allocate(source, sourceLink, ToHidPort(patch.GetDest()), target, route) == AllocationFailed) {
        return false;
    }
    mPatcher->ProcessPatchUnpatch(route, true);
    return true;
}

/// Whether one of these slots carries a source other than this one.
bool PatchController::IsHeldByAnother(const GigeAndSlots& link, HidPort source) const
{
    return std::any_of(link.slots.begin(), link.slots.end(), [&](std::uint32_t number) {
        const LinkSlot& slot = mLinkAllocation.GetSlot(link.port, number);
        return slot.IsInUse() && slot.mSource != source;
    });
}

/// Tells the destinations of this device's patches to listen on the port that is left.
void PatchController::FlipPorts(Hid hid, UINT8GIGEPORT port)
{
    PatchStore::BitmapCommands commands;
    mPatchStore.GetBitmapCommands(hid, port, commands);
    for (const auto& entry : commands) {
        AUDIT_STREAM(RouterAudioRoute, "Bitmap Flip Target " << entry.first << '\n');
        mComms->SendCmd(UNKNOWN_GIGE_PORT, *entry.second, iOrbKLVComms::SLAVE_LINK,
                        mDevices->GetSlaveAddress(entry.first, port));
    }
}

void PatchController::RemakePatches(Hid hid, UINT8GIGEPORT port)
{
    std::vector<OrbPatchInfo*> patches;
    mPatchStore.GetPatches(hid, port, Korvo::PatchNotSent, patches);
    for (OrbPatchInfo* const patch : patches) {
        AUDIT_STREAM(RouterAudioRoute, "RemakePatches Patch " << *patch << '\n');
        RemakePatch(*patch, port);
    }
}

void PatchController::RemakePatch(OrbPatchInfo& patch, UINT8GIGEPORT port)
{
    const Hid source = patch.GetSource().GetHid();
    if (mDevices->IsLocalIo(source)) {
        if (mDevices->IsOwnDevice(patch.GetDest().GetHid())) {
            // A route over the other link may be working; without one the patch waits to be sent again.
            mPatchStore.UpdatePatch(patch.GetDest(), port, Korvo::PatchReserved,
                                    {port, mDevices->GetInputLinkSlot(source, patch.GetSource().GetIndex())});
        } else {
            HandleOrbGeneratedPatch(MakeAgain(patch, port), Routing::ORB_PORT);
        }
    } else if (mDevices->IsOwnDevice(source)) {
        const RouterPatchAudio command = MakeAgain(patch, port);
        AUDIT_STREAM(RouterAudioRoute, "Remake " << command << '\n');
        SendToOrb(command);
    } else {
        SendToSourceNode(MakeAgain(patch, UNKNOWN_GIGE_PORT), source, port);
        mPatchStore.UpdatePatch(patch.GetDest(), port, Korvo::PatchSent, {});
    }
}
