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
    void OnLinkChanged(Routing::PortsEnum port, const LinkReport& report);
    void OnLocalLinkChanged(Routing::PortsEnum port, StreamType type, bool valid);

private:
    using Neighbour = NeighbourRules::Neighbour;
    /// The local stream of a link: used by the local device, or up without one.
    enum class LocalStream { Down, Unused, Used };

    void LinkUp(Routing::PortsEnum port);
    void LinkDown(Routing::PortsEnum port, K2Heartbeat::LinkType type);
    /// The link is online once its stream is.
    void UseLink(Routing::PortsEnum port);
    /// A device that takes the primary link may have been refused on the secondary, or been replaced there.
    void UseOtherLink(Routing::PortsEnum port);
    void TakeFromLink(Routing::PortsEnum port);
    void CloseStreams(Routing::PortsEnum port);
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
    bool HasLiveStream(Routing::PortsEnum port) const;
    void OnLocalLinkUp(Routing::PortsEnum port);
    void OnLocalLinkGone(Routing::PortsEnum port, StreamType type);
    void LocalRouterGone(Routing::PortsEnum port, StreamType type);
    void LocalIoGone();

    DeviceDirectory& mDevices;
    LocalDevice& mLocal;
    iOrbKLVComms& mComms;
    OrbReports& mReports;
    DeviceSignals& mSignals;
    SoftwareChecks& mChecks;
    std::array<LocalStream, Routing::PORT_COUNT> mLocalStreams{};
};
