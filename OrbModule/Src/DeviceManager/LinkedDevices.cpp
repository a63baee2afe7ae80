#include "OrbModule/Inc/DeviceManager/LinkedDevices.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/DeviceManager/DeviceSignals.h"
#include "OrbModule/Inc/DeviceManager/OrbReports.h"
#include "OrbModule/Inc/DeviceManager/SoftwareChecks.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

void LinkedDevices::OnLinkChanged(Routing::PortsEnum port, const LinkReport& report)
{
    if (!IsLinkPort(port)) return;
    if (report.IsUp()) {
        mDevices.mLinks[port] = report;
        LinkUp(port);
    } else {
        mDevices.mLinks[port] = {};
        LinkDown(port, report.type);
    }
}

void LinkedDevices::LinkUp(Routing::PortsEnum port)
{
    switch (NeighbourRules::OfLink(port, mDevices.mLinks[port], GetLocal())) {
    case Neighbour::Refused:
        AUDIT_STREAM(Fault, "Secondary port HID " << mDevices.mLinks[port].hid << "does not match primary port HID "
                                                  << mLocal.Hid << "\n");
        mLocal.MixedHid = true;
        mComms.SendToOrb(SornMixedHIDError(true));
        break;
    case Neighbour::Next:
        ReplaceLocal();
        UseLink(port);
        UseOtherLink(port);
        break;
    default:
        const bool isFirst = mLocal.Hid == INVALID_HID;
        UseLink(port);
        // While a hub or router was there, the device on the other link was not used.
        if (isFirst && !IsUsed(Side::Secondary)) UseOtherLink(port);
        break;
    }
}

void LinkedDevices::UseLink(Routing::PortsEnum port)
{
    TakeFromLink(port);
    if (mLocal.Type != K2Heartbeat::K2_ROUTER_TYPE) {
        // The end of a router's stream is not reported if the stream never came up.
        if (mDevices.mRouterConnected) mSignals.PostNetworkConnection(false);
        mDevices.mRouterConnected = false;
        mComms.Connect(mDevices.mLinks[port].remoteIp, port, NetworkPorts::LOCAL_STREAM);
        return;
    }
    mSignals.PostNetworkConnection(true);
    mDevices.mRouterConnected = true;
    // A router opens the stream itself, and may do so before its first heartbeat.
    if (mLocalStreams[port] == LocalStream::Unused) OnLocalLinkUp(port);
}

void LinkedDevices::UseOtherLink(Routing::PortsEnum port)
{
    const LinkReport& secondary = mDevices.mLinks[Routing::SECONDARY_PORT];
    if (!IsPrimaryPort(port) || !secondary.IsUp() || secondary.hid != mLocal.Hid) return;
    UseLink(Routing::SECONDARY_PORT);
}

void LinkedDevices::TakeFromLink(Routing::PortsEnum port)
{
    const LinkReport& report = mDevices.mLinks[port];
    // What it said while it was not the local device has built no port maps.
    if (report.hid != mLocal.Hid && mDevices.mDeviceInfo.GetDevice(report.hid))
        mDevices.mDeviceInfo.EraseDeviceInfo(report.hid);
    mLocal.Type = report.type;
    mLocal.Hid = report.hid;
    LinkInfo& link = mLocal.Link(ToSide(port));
    link.LocalIp = report.localIp;
    link.RemoteIp = report.remoteIp;
    link.Port = port;
    link.RemoteGigE = report.remoteGigE;
    if (!IsPrimaryPort(port)) EndMixedHid();
}

void LinkedDevices::EndMixedHid()
{
    if (!mLocal.MixedHid) return;
    mLocal.MixedHid = false;
    mComms.SendToOrb(SornMixedHIDError(false));
}

void LinkedDevices::ReplaceLocal()
{
    if (IsLocalInUse()) {
        AUDIT_STREAM(Information, "Local device " << mLocal.Hid << "is replaced\n");
        EndLocal();
    } else if (mLocal.Sec.IsOnline()) {
        // The Orb router does not know it, but by the port maps of an earlier box it may have been patched.
        mSignals.PostDeviceChange(mLocal.Hid, Routing::SECONDARY_PORT, false, StreamType::LOCAL_LINK);
    }
    // The check, the addresses and a stream that are left belong to the old device.
    for (const Side side : BothSides) {
        mLocal.SetOnline(side, false);
        if (IsUsed(side)) mLocalStreams[ToPort(side)] = LocalStream::Unused;
    }
    mLocal.Checks = {};
}

bool LinkedDevices::IsLocalInUse() const
{
    if (mDevices.mDeviceInfo.GetDevice(mLocal.Hid)) return true;
    return IsUsed(Side::Primary) || (mLocal.IsRoutingDevice() && IsUsed(Side::Secondary));
}

void LinkedDevices::EndLocal()
{
    for (const Side side : BothSides) {
        const Routing::PortsEnum port = ToPort(side);
        const bool hadStream = IsUsed(side);
        if (!hadStream && !mLocal.IsOnline(side)) continue;
        mLocalStreams[port] = LocalStream::Down;
        if (hadStream && side == Side::Secondary) CloseStreams(port);
        OnLocalLinkGone(port, StreamType::LOCAL_LINK);
    }
}

void LinkedDevices::LinkDown(Routing::PortsEnum port, K2Heartbeat::LinkType type)
{
    if (mLocalStreams[port] == LocalStream::Unused) mLocalStreams[port] = LocalStream::Down;
    if (port == Routing::SECONDARY_PORT && mLocal.MixedHid) {
        EndMixedHid();
        return;
    }
    // A neighbour that only stopped beating keeps its type here, and with it its software check.
    if (type == K2Heartbeat::K2_NO_TYPE) mLocal.ResetAUInfo(ToNumber(ToLinkIndex(port)));
    CloseStreams(port);
}

void LinkedDevices::CloseStreams(Routing::PortsEnum port)
{
    mComms.Disconnect(port);
    if (!mDevices.mRouterConnected && K2Heartbeat::IsHub(mLocal.Type)) {
        AUDIT_LOG(Information, "Shut down slave link to local hub\r\n");
        mComms.Disconnect(GetPortAddress(mLocal.Hid, port), StreamType::SLAVE_LINK);
    }
}

void LinkedDevices::OnLocalLinkChanged(Routing::PortsEnum port, StreamType type, bool valid)
{
    if (valid) {
        OnLocalLinkUp(port);
        return;
    }
    // An end is reported twice, and may be reported after the next stream has come up.
    if (HasLiveStream(port)) return;
    const bool wasUsed = IsUsed(ToSide(port));
    mLocalStreams[port] = LocalStream::Down;
    if (wasUsed) OnLocalLinkGone(port, type);
}

bool LinkedDevices::HasLiveStream(Routing::PortsEnum port) const
{
    return mComms.GetState(StreamName::OnPort(StreamType::LOCAL_LINK, port)) == StreamState::Open;
}

void LinkedDevices::OnLocalLinkUp(Routing::PortsEnum port)
{
    const Neighbour neighbour = NeighbourRules::OfStream(port, mDevices.mLinks[port], GetLocal());
    mLocalStreams[port] = LocalStream::Unused;
    if (neighbour == Neighbour::Unknown) {
        AUDIT_LOG(Fault, "Valid incoming stream with no local device\r\n");
        return;
    }
    if (neighbour == Neighbour::Refused) {
        AUDIT_STREAM(Information, "The stream of " << mDevices.mLinks[port].hid << "is not used, the local device is "
                                                   << mLocal.Hid << "\n");
        return;
    }
    if (neighbour == Neighbour::Next) ReplaceLocal();
    mLocalStreams[port] = LocalStream::Used;
    // The end of an earlier stream may have cleared what the link layer reported, which it does not repeat.
    TakeFromLink(port);
    const bool isRouter = mLocal.Type == K2Heartbeat::K2_ROUTER_TYPE;
    if (isRouter != mDevices.mRouterConnected) mSignals.PostNetworkConnection(isRouter);
    mDevices.mRouterConnected = isRouter;
    mChecks.RequestInfo(ToSide(port));
}

void LinkedDevices::OnLocalLinkGone(Routing::PortsEnum port, StreamType type)
{
    const Hid hid = mLocal.Hid;
    mLocal.SetOnline(ToSide(port), false);
    AUDIT_STREAM(Information, "DeviceManager::OnLocalLinkChanged Local Device Link Offline " << mLocal << "\n");
    // The first of two ends has forgotten a routing device that had not been described on its other link.
    if (hid == INVALID_HID) return;
    if (mLocal.IsRoutingDevice()) {
        LocalRouterGone(port, type);
    } else if (mLocal.IsOffline() && mLocal.Type != K2Heartbeat::K2_NO_TYPE) {
        LocalIoGone();
    }
    mReports.DeviceStateChange(hid, port, false, type);
}

void LinkedDevices::LocalRouterGone(Routing::PortsEnum port, StreamType type)
{
    SoftwareCheck& check = mLocal.Check(ToSide(port));
    if (check == SoftwareCheck::Passed) check = SoftwareCheck::None;
    for (const Hid remote : mDevices.mRemote.GetHids()) {
        const DeviceRecord& record = *mDevices.mRemote.Find(remote);
        AUDIT_STREAM(Information, "Remote Device Link Offline " << record << "\n");
        if (!mDevices.mRouterConnected && K2Heartbeat::IsHub(mLocal.Type)) {
            AUDIT_LOG(Information, "Shut down slave link for \r\n");
            mComms.Disconnect(GetPortAddress(remote, port), StreamType::SLAVE_LINK);
        }
        if (mDevices.IsOwnDevice(remote)) continue;
        mReports.DeviceStateChange(remote, port, false, type);
        if (!record.IsOffline()) continue;
        mReports.ReportRemoteGone(record.Type, remote);
        AUDIT_LOG(RouterDiscovery, "Erasing Remote Device\r\n");
        mDevices.mDeviceInfo.EraseDeviceInfo(remote);
        mDevices.mRemote.Erase(remote);
    }
    if (!mLocal.IsOffline()) return;
    const Hid hid = mLocal.Hid;
    mLocal.Hid = INVALID_HID;
    AUDIT_LOG(RouterConnectionDebug, "LOCAL ROUTER OFFLINE UPDATE ORB\r\n");
    mComms.SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(mLocal.Type), hid, 0, 0));
    mSignals.PostNetworkConnection(false);
    mDevices.mRouterConnected = false;
}

void LinkedDevices::LocalIoGone()
{
    AUDIT_LOG(IODebug, "LOCAL IO OFFLINE UPDATE ORB\r\n");
    mComms.SendToOrb(RemoteIoUpdate(ToRemoteDeviceType(mLocal.Type), mLocal.Hid, 0, mDevices.mHid, mLocal.SampleRate,
                                    mLocal.SampleRates));
    mDevices.mDeviceInfo.EraseDeviceInfo(mLocal.Hid);
    mLocal.Type = K2Heartbeat::K2_NO_TYPE;
}
