#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/NeighbourRules.h"

#include <array>

class DeviceSignals;
class OrbReports;
class SoftwareChecks;
class iOrbKLVComms;

/// Who is on which cable: makes the neighbour that NeighbourRules chooses the local device, opens its stream, and ends
/// it, with all that it reported, when its last stream ends or another takes its place. Main thread.
class LinkedDevices
{
public:
    LinkedDevices(DeviceDirectory& devices, iOrbKLVComms& comms, OrbReports& reports, DeviceSignals& signals,
                  SoftwareChecks& checks)
        : mDevices(devices),
          mLocal(devices.mLocal),
          mComms(comms),
          mReports(reports),
          mSignals(signals),
          mChecks(checks)
    {}

    /// @param report a lost link has local address 0.
    void OnLinkChanged(UINT8GIGEPORT port, const LinkReport& report);
    void OnLocalLinkChanged(UINT8GIGEPORT port, StreamType type, bool valid);

private:
    using Neighbour = NeighbourRules::Neighbour;
    /// The local stream of a link: used by the local device, or up without one.
    enum class LocalStream { Down, Unused, Used };

    void LinkUp(UINT8GIGEPORT port);
    void LinkDown(UINT8GIGEPORT port, K2Heartbeat::LinkType type);
    /// The link is online once its stream is.
    void UseLink(UINT8GIGEPORT port);
    /// A device that takes the primary link may have been refused on the secondary, or been replaced there.
    void UseOtherLink(UINT8GIGEPORT port);
    void TakeFromLink(UINT8GIGEPORT port);
    void CloseStreams(UINT8GIGEPORT port);
    void EndMixedHid();
    /// Ends the local device before another takes its place.
    void ReplaceLocal();
    /// As if the last link of the local device ended.
    void EndLocal();
    /// Whether the end of the local device has to be reported. A box whose only stream is on the secondary link has not
    /// been reported before its description.
    bool IsLocalInUse() const;
    NeighbourRules::Local GetLocal() const { return {mLocal.Hid, mLocal.Type, mLocal.Pri.IsOnline()}; }
    bool IsUsed(Side side) const { return mLocalStreams[ToPort(side)] == LocalStream::Used; }
    bool HasLiveStream(UINT8GIGEPORT port);
    void OnLocalLinkUp(UINT8GIGEPORT port);
    void OnLocalLinkGone(UINT8GIGEPORT port, StreamType type);
    void LocalRouterGone(UINT8GIGEPORT port, StreamType type);
    void LocalIoGone();

    DeviceDirectory& mDevices;
    LocalDevice& mLocal;
    iOrbKLVComms& mComms;
    OrbReports& mReports;
    DeviceSignals& mSignals;
    SoftwareChecks& mChecks;
    std::array<LocalStream, Routing::PORT_COUNT> mLocalStreams{};
};
