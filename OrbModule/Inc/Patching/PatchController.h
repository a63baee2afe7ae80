#pragma once

#include "MiscSource/GlobalConstants.h"
#include "OrbModule/Inc/DeviceManager/iDevices.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "OrbModule/Inc/Patching/LinkAllocation.h"
#include "OrbModule/Inc/Patching/PatchStore.h"
#include "OrbModule/Inc/Patching/iPatcher.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_set>
#include <vector>

/// Turns patch commands into slots and routes, and keeps them right while devices come and go. The work for a patch
/// depends on where its two ends are. If the same destination is heard on both links, one link has the working route
/// and the other a reserved one. With a real router on a link that router drives the patches; without one the Orb
/// router of the unit does. Main thread only.
class PatchController
{
public:
    /// Most devices for which a retry is owed.
    static constexpr std::size_t MaxPendingRetries = 65536;

    PatchController(iDevices& devices, iOrbKLVComms& comms, iPatcher& patcher);

    void OnLocalHidChanged(Hid hid);
    /// @param connected whether a real router is on a link.
    void OnNetworkConnectionChanged(bool connected);
    void OnDeviceChange(Hid hid, UINT8GIGEPORT number, bool online, StreamType type);

    /// @param port the one that the command came in on. A null command leaves a line in the log.
    void ReceivedRouterPatchAudioCmd(const std::shared_ptr<const RouterPatchAudio>& command, UINT8GIGEPORT port,
                                     StreamType type);
    void ReceivedPatchSucessfulCmd(const std::shared_ptr<const PatchSucessfulCmd>& command, UINT8GIGEPORT port,
                                   StreamType type);
    void ReceivedAudioPatchRetryForHid(const std::shared_ptr<const AudioPatchRetryForHidCmd>& command,
                                       UINT8GIGEPORT number, StreamType type);
    void ReceivedPingCmd(const std::shared_ptr<const OstrelPingCmd>& command, UINT8GIGEPORT port, StreamType type);

    /// Tells a device to listen for one of its ports on the primary or the secondary link.
    void SendPortBitmap(Hid hid, AudioPortNumber index, bool secondary);

    const LinkAllocation& GetLinkAllocation() const { return mLinkAllocation; }
    const PatchStore& GetPatchStore() const { return mPatchStore; }

private:
    bool UpdatePatchStore(const RouterPatchAudio& command);
    void HandleRouterGeneratedPatch(const RouterPatchAudio& command, Routing::PortsEnum port);
    void HandleOrbGeneratedPatch(const RouterPatchAudio& command, Routing::PortsEnum port);
    bool LocalDestinationPatch(const RouterPatchAudio& command, Routing::PortsEnum sourcePort,
                               Routing::PortsEnum destPort);
    void LocalOrbPatch(const RouterPatchAudio& command, const DevicePorts& ports);
    void RemoteDestinationPatch(const RouterPatchAudio& command, const DevicePorts& ports);
    bool StandsByForOtherLink(const IoPort& dest, Routing::PortsEnum port, const Routing::GigeAndSlots& slots) const;
    Allocation AssignSlots(const RouterPatchAudio& command, const Routing::GigeAndSlots& sourceLink,
                           Routing::PortsEnum port);
    Routing::GigeAndSlots GetSourceLink(const RouterPatchAudio& command, Routing::PortsEnum port) const;

    void ReportPatchFailed(const RouterPatchAudio& command, Routing::PortsEnum port);
    void ReportPatchSuccessful(const IoPort& dest, Routing::PortsEnum port);
    void SendToSourceNode(const RouterPatchAudio& command, Hid source, Routing::PortsEnum port);

    void DeviceLeft(Hid hid, Routing::PortsEnum port);
    void SwingOver(Hid hid, Routing::PortsEnum port, const std::vector<LinkPatch>& unpatches);
    bool RouteToSwapTarget(const OrbPatchInfo& patch, Routing::PortsEnum port);
    bool IsHeldByAnother(const Routing::GigeAndSlots& link, HidPort source) const;
    void FlipPorts(Hid hid, Routing::PortsEnum port);
    void RemakePatches(Hid hid, Routing::PortsEnum port);
    void RemakePatch(const OrbPatchInfo& patch, Routing::PortsEnum port);

    iDevices* mDevices;
    iOrbKLVComms* mComms;
    iPatcher* mPatcher;
    Hid mHid = INVALID_HID;
    bool mRouterConnected = false;
    LinkAllocation mLinkAllocation;
    PatchStore mPatchStore;
    /// HID and port of the destinations for which a failure was reported, to be asked for when they come online.
    std::unordered_set<std::uint64_t> mPendingRetries;
};
