#include "OrbModule/Inc/Patching/PatchController.h"

#include "Audit/Audit.h"

#include <algorithm>
#include <utility>

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

std::uint64_t RetryKey(Hid hid, Routing::PortsEnum port)
{
    return std::uint64_t{hid} << 8 | port;
}

/// True for a link that can be routed. Slots that come from the network are refused here, with a line in the log.
bool CheckLink(const GigeAndSlots& link)
{
    if (link.slots.size() > Routing::SLOTS_PER_PORT) {
        AUDIT_STREAM(Fault, "PatchController too many slots " << link.slots.size() << '\n');
        return false;
    }
    const auto wild = std::find_if_not(link.slots.begin(), link.slots.end(), Routing::IsSlot);
    if (wild != link.slots.end()) {
        AUDIT_STREAM(Fault, "PatchController slot out of range " << *wild << '\n');
        return false;
    }
    return link.IsValid();
}

/// Each slot of the source feeds one of the destination, so what one list has more than the other is of no use.
void CutToShorter(GigeAndSlots& source, GigeAndSlots& dest)
{
    const std::size_t length = std::min(source.slots.size(), dest.slots.size());
    source.slots.resize(length);
    dest.slots.resize(length);
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

PatchController::PatchController(iDevices& devices, iOrbKLVComms& comms, iPatcher& patcher)
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
        if (UpdatePatchStore(*command)) HandleOrbGeneratedPatch(*command, ToPortsEnum(port));
        return;
    }
    const bool bothOwn = mDevices->IsOwnDevice(command->GetSource().GetPort().GetHid()) &&
                         mDevices->IsOwnDevice(command->GetDest().GetHid());
    if (port != Routing::ORB_PORT && !bothOwn && !UpdatePatchStore(*command)) return;
    HandleRouterGeneratedPatch(*command, ToPortsEnum(port));
}

/// @return false if the store is full; then no route is made either.
bool PatchController::UpdatePatchStore(const RouterPatchAudio& command)
{
    AUDIT_STREAM(RouterAudioRoute, "UpdatePatchStore Dst" << command.GetDest() << " Src " << command.GetOrig()
                                                          << " Patch " << FlagText(command.GetMake()) << '\n');
    if (command.GetMake()) return mPatchStore.StorePatch(command.GetOrig(), command.GetDest());
    mPatchStore.RemovePatch(command.GetDest());
    return true;
}

void PatchController::HandleRouterGeneratedPatch(const RouterPatchAudio& command, Routing::PortsEnum port)
{
    const Hid source = NormaliseHid(command.GetSource().GetPort().GetHid());
    const Hid dest = NormaliseHid(command.GetDest().GetHid());
    if (port == Routing::ORB_PORT) {
        const Routing::PortsEnum link = ToPortsEnum(command.GetSource().GetLink());
        const std::vector<Routing::PortsEnum> both{Routing::PRIMARY_PORT, Routing::SECONDARY_PORT};
        for (const Routing::PortsEnum candidate : command.GetMake() ? std::vector<Routing::PortsEnum>{link} : both) {
            const DevicePorts ports = mDevices->GetDevicePorts(dest, candidate);
            AUDIT_STREAM(RouterAudioRoute, "ORB SRC DSPort " << ports << '\n');
            RemoteDestinationPatch(command, ports);
        }
        return;
    }
    const bool isSourceOwn = mDevices->IsOwnDevice(source);
    const bool isDestOwn = mDevices->IsOwnDevice(dest);
    if (isSourceOwn && isDestOwn) {
        mComms->SendToOrb(command);
        ReportPatchSuccessful(command.GetDest(), port);
    } else if (isDestOwn) {
        LocalOrbPatch(command, mDevices->GetDevicePorts(source, port));
    } else if (isSourceOwn && mDevices->IsDeviceOnline(dest, port)) {
        RouterPatchAudio copy = command;
        copy.SetSourceLink(port);
        mComms->SendToOrb(copy);
    } else if (isSourceOwn) {
        ReportPatchFailed(command, port);
    }
}

void PatchController::HandleOrbGeneratedPatch(const RouterPatchAudio& command, Routing::PortsEnum port)
{
    const Hid source = NormaliseHid(command.GetSource().GetPort().GetHid());
    const Hid dest = NormaliseHid(command.GetDest().GetHid());
    const Routing::PortsEnum link = ToPortsEnum(command.GetSource().GetLink());
    AUDIT_STREAM(RouterAudioRoute,
                 "HandleOrbGeneratedPatch Link Port " << unsigned{port} << " Src Link " << unsigned{link} << '\n');
    if (port != Routing::ORB_PORT) {
        AUDIT_LOG(RouterAudioRoute, "RECEIVED PATCH COMMAND FROM DOWNSTREAM PORT....\r\n");
        LocalOrbPatch(command, mDevices->GetDevicePorts(source, port));
        return;
    }
    // The first port that reaches the local box is the one on which it listens, unless the command names a link.
    bool bitmapDone = link != Routing::ORB_PORT;
    for (const Routing::PortsEnum candidate : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        if (link != Routing::ORB_PORT && link != candidate) continue;
        const DevicePorts destPorts = mDevices->GetDevicePorts(dest, candidate);
        const DevicePorts sourcePorts = mDevices->GetDevicePorts(source, candidate);
        AUDIT_STREAM(RouterAudioRoute, "Src Ports " << sourcePorts << " Dest Ports " << destPorts << '\n');
        if (mDevices->IsLocalIo(source) && mDevices->IsOwnDevice(dest)) {
            AUDIT_STREAM(RouterAudioRoute, "Destination HID " << command.GetDest().GetHid() << '\n');
            if (sourcePorts.IsValid()) LocalOrbPatch(command, sourcePorts);
        } else if (mDevices->IsLocalIo(dest)) {
            if (!sourcePorts.IsValid() || !destPorts.IsValid()) continue;
            const bool isDone = LocalDestinationPatch(command, sourcePorts.local, destPorts.local);
            if (!isDone || bitmapDone) continue;
            bitmapDone = true;
            const IoPort& listener = command.GetDest();
            const bool isSecondary = !IsPrimaryPort(destPorts.local);
            mComms->SendLocal(MakeBitmapCommand(listener.GetHid(), listener.GetIndex(), isSecondary), destPorts.local);
        } else if (mDevices->IsOwnDevice(source)) {
            AUDIT_LOG(RouterAudioRoute, "ORB SRC\r\n");
            RemoteDestinationPatch(command, destPorts);
        } else if (sourcePorts.IsValid()) {
            AUDIT_LOG(RouterAudioRoute, "Remote SRC send patch onwards\r\n");
            SendToSourceNode(command, source, candidate);
            mPatchStore.UpdatePatch(command.GetDest(), destPorts.local, Korvo::PatchSent, {});
        } else {
            AUDIT_LOG(RouterAudioRoute, "Remote SRC link not valid\r\n");
        }
    }
}

/// @return whether a route was made or broken.
bool PatchController::LocalDestinationPatch(const RouterPatchAudio& command, Routing::PortsEnum sourcePort,
                                            Routing::PortsEnum destPort)
{
    const IoPort& dest = command.GetDest();
    GigeAndSlots destLink{destPort, mDevices->GetOutputLinkSlot(dest.GetHid(), dest.GetIndex())};
    GigeAndSlots sourceLink = GetSourceLink(command, sourcePort);
    AUDIT_STREAM(RouterAudioRoute, "LocalDestinationPatch Src Link " << sourceLink << " Dst Link " << destLink << '\n');
    if (!CheckLink(sourceLink) || !CheckLink(destLink)) {
        AUDIT_LOG(Fault, "LocalDestinationPatch INVALID TDM SLOTS\r\n");
        return false;
    }
    const HidPort orig = ToHidPort(command.GetOrig());
    if (command.GetMake()) CutToShorter(sourceLink, destLink);
    const Allocation slots = command.GetMake() ? mLinkAllocation.Allocate(orig, sourceLink, ToHidPort(dest), destLink)
                                               : mLinkAllocation.Free(orig, sourceLink, destLink);
    if (slots.result == AllocationFailed) {
        AUDIT_LOG(Fault, "Unknown Patch\r\n");
        return false;
    }
    mPatcher->ProcessPatchUnpatch(slots.patch, command.GetMake());
    mPatchStore.UpdatePatch(dest, destPort, Korvo::PatchSuccess, std::move(sourceLink));
    return true;
}

void PatchController::LocalOrbPatch(const RouterPatchAudio& command, const DevicePorts& ports)
{
    const bool isLocal = mDevices->IsLocalIo(command.GetSource().GetPort().GetHid());
    AUDIT_LOG(RouterAudioRoute, "LocalOrbPatch %s Source\r\n", isLocal ? "Local" : "Remote");
    GigeAndSlots sourceLink = GetSourceLink(command, ports.local);
    AUDIT_STREAM(RouterAudioRoute, "RDP SrcLink " << sourceLink << '\n');
    if (!CheckLink(sourceLink)) {
        AUDIT_LOG(Fault, "RemoteDestinationPatch Source Link TDM slot INVALID\r\n");
        return;
    }
    const IoPort& dest = command.GetDest();
    const Allocation slots = AssignSlots(command, sourceLink, Routing::ORB_PORT);
    if (slots.result == AllocationFailed) return;
    const GigeAndSlots& target = slots.patch.destination;
    if (mRouterConnected) ReportPatchSuccessful(dest, ports.local);
    if (slots.result == AlreadyCarrying && StandsByForOtherLink(dest, ports.local, target)) {
        const bool isReserve = mPatchStore.GetPatchState(dest, OtherLinkPort(ports.local)) == Korvo::PatchSuccess;
        mPatchStore.UpdatePatch(dest, ports.local, isReserve ? Korvo::PatchReserved : Korvo::PatchSuccess,
                                std::move(sourceLink));
        return;
    }

    mPatchStore.UpdatePatch(dest, ports.local, Korvo::PatchSuccess, std::move(sourceLink), target);
    mComms->SendToOrb(RouterPatchAudio(PatchSource(MakeLinkHid(mHid), Routing::ORB_PORT, target.slots), dest,
                                       command.GetOrig(), command.GetMake(), true));
    if (slots.ChangesRoutes()) mPatcher->ProcessPatchUnpatch(slots.patch, command.GetMake());
}

/// Whether the source reaches this destination through the other link already. The swap target is what the Orb router
/// last got for this destination: if the slots differ, it gets a report, whatever the other state is.
bool PatchController::StandsByForOtherLink(const IoPort& dest, Routing::PortsEnum port, const GigeAndSlots& slots) const
{
    const OrbPatchInfo* const patch = mPatchStore.Find(dest);
    return patch && patch->GetState(OtherLinkPort(port)) != Korvo::PatchNotSent && patch->GetSwapTarget() == slots;
}

void PatchController::RemoteDestinationPatch(const RouterPatchAudio& command, const DevicePorts& ports)
{
    GigeAndSlots sourceLink{Routing::ORB_PORT, command.GetSource().GetSlots()};
    AUDIT_STREAM(RouterAudioRoute,
                 "RemoteDestinationPatch Dest Ports " << ports << "RDP SrcLink " << sourceLink << '\n');
    if (!CheckLink(sourceLink)) {
        AUDIT_LOG(Fault, "RemoteDestinationPatch Source Link TDM slot INVALID\r\n");
        return;
    }
    const IoPort& dest = command.GetDest();
    const Allocation slots = AssignSlots(command, sourceLink, ports.local);
    if (slots.result == AllocationFailed) return;
    mPatchStore.UpdatePatch(dest, ports.local, mRouterConnected ? Korvo::PatchSuccess : Korvo::PatchSent,
                            std::move(sourceLink));
    if (slots.ChangesRoutes()) mPatcher->ProcessPatchUnpatch(slots.patch, command.GetMake());
    // The next node learns on which of its ports, and in which slots, the audio arrives.
    const RouterPatchAudio onward(PatchSource(MakeLinkHid(mHid), ports.remote, slots.patch.destination.slots), dest,
                                  command.GetOrig(), command.GetMake(), command.GetUseMe());
    mComms->SendLocal(onward, ports.local);
}

/// Takes or returns the slots in which a port carries the source to the destination, as the command says.
Allocation PatchController::AssignSlots(const RouterPatchAudio& command, const GigeAndSlots& sourceLink,
                                        Routing::PortsEnum port)
{
    const HidPort orig = ToHidPort(command.GetOrig());
    const HidPort dest = ToHidPort(command.GetDest());
    if (!command.GetMake()) return mLinkAllocation.Free(orig, port, dest);
    Allocation taken = mLinkAllocation.Allocate(orig, sourceLink, port, dest);
    // Slots of an incomplete allocation would pass for a route when the same patch comes over the other link.
    const bool isTooLittle = taken.result == AllocationFailed && !taken.patch.destination.slots.empty();
    if (isTooLittle) mLinkAllocation.Free(orig, port, dest);
    return taken;
}

/// The slots at which the source arrives on a link port: those of the local box, else those of the command.
GigeAndSlots PatchController::GetSourceLink(const RouterPatchAudio& command, Routing::PortsEnum port) const
{
    const IoPort& source = command.GetSource().GetPort();
    if (!mDevices->IsLocalIo(source.GetHid())) return {port, command.GetSource().GetSlots()};
    return {port, mDevices->GetInputLinkSlot(source.GetHid(), source.GetIndex())};
}

void PatchController::ReportPatchFailed(const RouterPatchAudio& command, Routing::PortsEnum port)
{
    if (mPendingRetries.size() < MaxPendingRetries) {
        mPendingRetries.insert(RetryKey(command.GetDest().GetHid(), port));
    } else {
        AUDIT_STREAM(Fault, "PatchController has too many pending retries, none for " << command.GetDest() << '\n');
    }
    mComms->SendMaster(port, AudioPatchFailedCmd(command.GetSource().GetPort(), command.GetDest()));
}

void PatchController::ReportPatchSuccessful(const IoPort& dest, Routing::PortsEnum port)
{
    mComms->SendMaster(port, PatchSucessfulCmd(dest));
}

void PatchController::SendToSourceNode(const RouterPatchAudio& command, Hid source, Routing::PortsEnum port)
{
    mComms->SendSlave(command, mDevices->GetSlaveAddress(source, port));
}

void PatchController::ReceivedPatchSucessfulCmd(const std::shared_ptr<const PatchSucessfulCmd>& command,
                                                UINT8GIGEPORT port, StreamType)
{
    if (!command) return;
    AUDIT_STREAM(RouterAudioRoute, "ReceivedPatchSucessfulCmd " << PortText(port) << '\n');
    mPatchStore.UpdatePatch(command->GetDest(), ToPortsEnum(port), Korvo::PatchSuccess);
}

void PatchController::ReceivedAudioPatchRetryForHid(const std::shared_ptr<const AudioPatchRetryForHidCmd>& command,
                                                    UINT8GIGEPORT number, StreamType)
{
    if (!command) return;
    const Routing::PortsEnum port = ToPortsEnum(number);
    AUDIT_STREAM(RouterAudioRoute, "ReceivedAudioPatchRetryForHid " << command->GetHid() << '\n');
    for (const OrbPatchInfo* const patch : mPatchStore.GetPatches(command->GetHid(), port, Korvo::PatchSent)) {
        SendToSourceNode(MakeAgain(*patch, UNKNOWN_GIGE_PORT), patch->GetSource().GetHid(), port);
        mPatchStore.UpdatePatch(patch->GetDest(), port, Korvo::PatchSent, {});
    }
}

void PatchController::ReceivedPingCmd(const std::shared_ptr<const OstrelPingCmd>& command, UINT8GIGEPORT port,
                                      StreamType)
{
    if (!command || !mRouterConnected) return;
    const std::string address = AddressText((mHid & 0xFFFF0000) + (port == Routing::PRIMARY_PORT ? 0x500 : 0x600));
    const LinkAllocation::Counts counts = mLinkAllocation.GetCounts();
    AUDIT_STREAM(RouterAudioRoute, "Hid " << mHid << " ReceivedPingCmd From " << command->GetName()
                                          << " Replaying with Address " << address << " Patch Count "
                                          << counts.slotsInUse << " Total Dests " << counts.destinations << '\n');
    mComms->SendMaster(port, OstrelPingCmd(address, counts.slotsInUse, counts.destinations));
}

void PatchController::SendPortBitmap(Hid hid, AudioPortNumber index, bool secondary)
{
    DevicePorts ports = mDevices->GetDevicePorts(hid, secondary ? Routing::SECONDARY_PORT : Routing::PRIMARY_PORT);
    if (!ports.IsValid()) {
        ports = mDevices->GetDevicePorts(hid, secondary ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT);
    }
    mComms->SendLocal(MakeBitmapCommand(hid, index, secondary), ports.local);
}

void PatchController::OnDeviceChange(Hid hid, UINT8GIGEPORT number, bool online, StreamType)
{
    const Routing::PortsEnum port = ToPortsEnum(number);
    AUDIT_STREAM(RouterAudioRoute, "PatchController::OnDeviceChange Hid " << hid << " Port " << PortText(port)
                                                                          << " Online " << FlagText(online) << '\n');
    if (!online) {
        DeviceLeft(hid, port);
    } else if (!mRouterConnected) {
        RemakePatches(hid, port);
    } else if (mPendingRetries.erase(RetryKey(hid, port)) != 0) {
        mComms->SendMaster(port, AudioPatchRetryForHidCmd(hid));
    }
}

void PatchController::DeviceLeft(Hid hid, Routing::PortsEnum port)
{
    mPendingRetries.erase(RetryKey(hid, port));
    const std::vector<LinkPatch> unpatches =
        mLinkAllocation.GetUnpatchesByHidAndPort(IsIoHid(hid) ? hid : MakeLinkHid(hid), port);
    mPatcher->ProcessUnpatches(unpatches);
    if (port != Routing::ORB_PORT) SwingOver(hid, port, unpatches);
    mPatchStore.UpdatePatch(hid, port, Korvo::PatchNotSent);
    mPatchStore.RemoveUnsent();
    if (!mRouterConnected) FlipPorts(hid, OtherLinkPort(port));
}

/// Puts the prepared routes of the other link in the place of those that have just gone.
void PatchController::SwingOver(Hid hid, Routing::PortsEnum port, const std::vector<LinkPatch>& unpatches)
{
    const Routing::PortsEnum other = OtherLinkPort(port);
    const std::vector<const OrbPatchInfo*> prepared = mPatchStore.GetPatches(hid, port, Korvo::PatchSuccess);
    // Destinations of one source share its slots, whichever link feeds them. So a patch that is made on the other link
    // may have had its audio from the one that has gone.
    const std::vector<const OrbPatchInfo*> shared = mPatchStore.GetPatches(hid, other, Korvo::PatchSuccess);
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
bool PatchController::RouteToSwapTarget(const OrbPatchInfo& patch, Routing::PortsEnum port)
{
    const HidPort source = ToHidPort(patch.GetSource());
    GigeAndSlots sourceLink = patch.GetLink(port);
    GigeAndSlots target = patch.GetSwapTarget();
    AUDIT_STREAM(RouterAudioRoute, "Found a swap target Src " << sourceLink << " Target " << target << '\n');
    if (!CheckLink(sourceLink) || !CheckLink(target) || IsHeldByAnother(target, source)) {
        AUDIT_STREAM(Fault, "PatchController no way to swing over " << patch.GetDest() << '\n');
        return false;
    }
    CutToShorter(sourceLink, target);
    const Allocation slots = mLinkAllocation.Allocate(source, sourceLink, ToHidPort(patch.GetDest()), target);
    if (slots.result == AllocationFailed) return false;
    mPatcher->ProcessPatchUnpatch(slots.patch, true);
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
void PatchController::FlipPorts(Hid hid, Routing::PortsEnum port)
{
    for (const auto& [dest, command] : mPatchStore.GetBitmapCommands(hid, port)) {
        AUDIT_STREAM(RouterAudioRoute, "Bitmap Flip Target " << dest << '\n');
        mComms->SendSlave(command, mDevices->GetSlaveAddress(dest, port));
    }
}

void PatchController::RemakePatches(Hid hid, Routing::PortsEnum port)
{
    for (const OrbPatchInfo* const patch : mPatchStore.GetPatches(hid, port, Korvo::PatchNotSent)) {
        AUDIT_STREAM(RouterAudioRoute, "RemakePatches Patch " << *patch << '\n');
        RemakePatch(*patch, port);
    }
}

void PatchController::RemakePatch(const OrbPatchInfo& patch, Routing::PortsEnum port)
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
        mComms->SendToOrb(command);
    } else {
        SendToSourceNode(MakeAgain(patch, UNKNOWN_GIGE_PORT), source, port);
        mPatchStore.UpdatePatch(patch.GetDest(), port, Korvo::PatchSent, {});
    }
}
