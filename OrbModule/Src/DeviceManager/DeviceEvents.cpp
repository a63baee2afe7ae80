#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"
#include "MiscSource/NetworkPorts.h"

#include <algorithm>
#include <string>
#include <utility>

// What the link layer and the streams report of the neighbour on a link, and its software check.

namespace {

/// Kinds of device in the request for a software check.
enum CheckKind : std::uint8_t { IoBoxKind = 0, FixedFormatKind = 1, HubKind = 7, SecondClassIoKind = 8, AoIPKind = 11 };
/// How a device is checked: as an I/O box, or as a router, a hub or the module itself.
enum CheckMethod : std::uint8_t { IoMethod = 0, RoutingMethod = 1 };
constexpr std::uint8_t CheckEnabled = 1;

CheckKind GetIoCheckKind(K2Heartbeat::LinkType type, Hid hid)
{
    if (type == K2Heartbeat::K2_FIXED_FORMAT_TYPE) return FixedFormatKind;
    if (IsSecondClassIoHid(hid)) return SecondClassIoKind;
    if (type == K2Heartbeat::K2_AOIP_TYPE) return AoIPKind;
    return IoBoxKind;
}

/// Boxes with one of these bits in their identity describe themselves on the extended request.
bool IsExtendedIoHid(Hid hid)
{
    return (hid & 0x300) != 0;
}

void PostDeviceChange(boost::asio::io_service& service, DeviceManager& devices, Hid hid, UINT8GIGEPORT port,
                      bool online, StreamType type)
{
    const Hid reported = IsIoHid(hid) ? hid : MakeNodeHid(hid);
    service.post([&devices, reported, port, online, type] { devices.DeviceChange(reported, port, online, type); });
}

} // namespace

void DeviceManager::SendToOrb(const DeskCommand& command)
{
    mComms->SendLocal(command, Routing::ORB_PORT);
}

void DeviceManager::PostNetworkConnection(bool connected)
{
    mIoService.post([this, connected] { NetworkConnectionChanged(connected); });
}

void DeviceManager::OnDeviceChanged(UINT8GIGEPORT portIndex, std::uint32_t localIp, UINT8GIGEPORT remoteGigE,
                                    std::uint32_t remoteIp, Hid hid, K2Heartbeat::LinkType type)
{
    const UINT8GIGEPORT port = ToPort(portIndex);
    AUDIT_STREAM(Information, "DeviceManager::OnDeviceChanged Hid "
                                  << hid << " Port " << PortText(port) << " Local IP " << AddressText(localIp)
                                  << " Rem IP " << AddressText(remoteIp) << " Link Type " << type << "\n");
    if (!IsLinkPort(port)) return;
    if (localIp != 0) {
        mDevices.mLinks[port] = {localIp, remoteGigE, remoteIp, hid, type};
        LinkUp(port);
    } else {
        mDevices.mLinks[port] = {};
        LinkDown(port, type);
    }
}

NeighbourRules::Local DeviceManager::GetLocal() const
{
    return {mDevices.mLocal.Hid, mDevices.mLocal.Type, mDevices.mLocal.Pri.IsOnline()};
}

void DeviceManager::LinkUp(UINT8GIGEPORT port)
{
    switch (NeighbourRules::OfLink(port, mDevices.mLinks[port], GetLocal())) {
    case Neighbour::Refused:
        AUDIT_STREAM(Fault, "Secondary port HID " << mDevices.mLinks[port].hid << "does not match primary port HID "
                                                  << mDevices.mLocal.Hid << "\n");
        mDevices.mLocal.MixedHid = true;
        SendToOrb(SornMixedHIDError(true));
        break;
    case Neighbour::Next:
        ReplaceLocal();
        UseLink(port);
        UseOtherLink(port);
        break;
    default:
        UseLink(port);
        break;
    }
}

/// The link is online once its stream is.
void DeviceManager::UseLink(UINT8GIGEPORT port)
{
    TakeFromLink(port);
    if (mDevices.mLocal.Type != K2Heartbeat::K2_ROUTER_TYPE) {
        // A router whose stream never came up leaves no end of one.
        if (mDevices.mRouterConnected) PostNetworkConnection(false);
        mDevices.mRouterConnected = false;
        mComms->Connect(mDevices.mLinks[port].remoteIp, port, NetworkPorts::LOCAL_STREAM);
        return;
    }
    PostNetworkConnection(true);
    mDevices.mRouterConnected = true;
    // A router opens the stream itself, and may do so before its first heartbeat.
    if (mLocalStreams[port] == LocalStream::Unused) OnLocalLinkUp(port);
}

/// A device that takes the primary link may have been refused on the secondary, or been replaced there.
void DeviceManager::UseOtherLink(UINT8GIGEPORT port)
{
    const LinkReport& secondary = mDevices.mLinks[Routing::SECONDARY_PORT];
    if (!IsPrimaryPort(port) || !secondary.IsUp() || secondary.hid != mDevices.mLocal.Hid) return;
    UseLink(Routing::SECONDARY_PORT);
}

void DeviceManager::TakeFromLink(UINT8GIGEPORT port)
{
    const LinkReport& report = mDevices.mLinks[port];
    // What it said while it was not the local device has built no port maps.
    if (report.hid != mDevices.mLocal.Hid && mDevices.mDeviceInfo.GetDevice(report.hid))
        mDevices.mDeviceInfo.EraseDeviceInfo(report.hid);
    mDevices.mLocal.Type = report.type;
    mDevices.mLocal.Hid = report.hid;
    LinkInfo& link = mDevices.mLocal.Link(ToSide(port));
    link.LocalIp = report.localIp;
    link.RemoteIp = report.remoteIp;
    link.Port = port;
    link.RemoteGigE = report.remoteGigE;
    if (!IsPrimaryPort(port)) EndMixedHid();
}

void DeviceManager::EndMixedHid()
{
    if (!mDevices.mLocal.MixedHid) return;
    mDevices.mLocal.MixedHid = false;
    SendToOrb(SornMixedHIDError(false));
}

/// Ends the local device before another takes its place.
void DeviceManager::ReplaceLocal()
{
    if (IsLocalInUse()) {
        AUDIT_STREAM(Information, "Local device " << mDevices.mLocal.Hid << "is replaced\n");
        EndLocal();
    } else if (mDevices.mLocal.Sec.IsOnline()) {
        // The Orb router does not know it, but by the port maps of an earlier box it may have been patched.
        PostDeviceChange(mIoService, *this, mDevices.mLocal.Hid, Routing::SECONDARY_PORT, false,
                         StreamType::LOCAL_LINK);
    }
    // The check, the addresses and a stream that are left belong to the old device.
    for (const UINT8GIGEPORT link : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        mDevices.mLocal.SetOnline(ToSide(link), false);
        if (mLocalStreams[link] == LocalStream::Used) mLocalStreams[link] = LocalStream::Unused;
    }
    mDevices.mLocal.Checks = {};
}

/// Whether the end of the local device has to be reported. A box whose only stream is on the secondary link has not
/// been reported before its description.
bool DeviceManager::IsLocalInUse() const
{
    if (mDevices.mDeviceInfo.GetDevice(mDevices.mLocal.Hid)) return true;
    if (mLocalStreams[Routing::PRIMARY_PORT] == LocalStream::Used) return true;
    return mDevices.mLocal.IsRoutingDevice() && mLocalStreams[Routing::SECONDARY_PORT] == LocalStream::Used;
}

/// As if the last link of the local device ended.
void DeviceManager::EndLocal()
{
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        const bool hadStream = mLocalStreams[port] == LocalStream::Used;
        if (!hadStream && !mDevices.mLocal.IsOnline(ToSide(port))) continue;
        mLocalStreams[port] = LocalStream::Down;
        if (hadStream && port == Routing::SECONDARY_PORT) CloseStreams(port);
        OnLocalLinkGone(port, StreamType::LOCAL_LINK);
    }
}

void DeviceManager::LinkDown(UINT8GIGEPORT port, K2Heartbeat::LinkType type)
{
    if (mLocalStreams[port] == LocalStream::Unused) mLocalStreams[port] = LocalStream::Down;
    if (port == Routing::SECONDARY_PORT && mDevices.mLocal.MixedHid) {
        EndMixedHid();
        return;
    }
    // A neighbour that only stopped beating keeps its type here, and with it its software check.
    if (type == K2Heartbeat::K2_NO_TYPE) mDevices.mLocal.ResetAUInfo(ToLinkIndex(port));
    CloseStreams(port);
}

void DeviceManager::CloseStreams(UINT8GIGEPORT port)
{
    mComms->Disconnect(port);
    if (!mDevices.mRouterConnected && mDevices.mLocal.Type == K2Heartbeat::K2_HUB_TYPE) {
        AUDIT_LOG(Information, "Shut down slave link to local hub\r\n");
        mComms->Disconnect(GetPortAddress(mDevices.mLocal.Hid, port), StreamType::SLAVE_LINK);
    }
}

void DeviceManager::OnKLVStreamChanged(UINT8GIGEPORT port, StreamType type, std::uint32_t address, bool valid)
{
    AUDIT_STREAM(Information, "OnKLVStreamChanged Port " << PortText(port) << " Stream " << type << " Valid "
                                                         << FlagText(valid) << "\n");
    if (port == UNKNOWN_GIGE_PORT) {
        AUDIT_LOG(Fault, "DeviceManager::OnKLVStreamChanged FAULT\r\n");
        return;
    }
    switch (type) {
    case StreamType::LOCAL_LINK:
        OnLocalLinkChanged(port, type, valid);
        break;
    case StreamType::MASTER_LINK:
        AUDIT_STREAM(Information, "MasterLinkk Valid " << FlagText(valid) << "\n");
        break;
    case StreamType::SLAVE_LINK:
        OnSlaveLinkChanged(port, address, valid);
        break;
    case StreamType::UPDATE_LINK:
        OnUpdateLinkChanged(valid);
        break;
    default:
        break;
    }
}

bool DeviceManager::HasLiveStream(UINT8GIGEPORT port)
{
    bool exists = false;
    const bool closing = mComms->DisconnectPending(port, StreamType::LOCAL_LINK, exists);
    return exists && !closing;
}

void DeviceManager::OnLocalLinkChanged(UINT8GIGEPORT port, StreamType type, bool valid)
{
    if (port == Routing::ORB_PORT) {
        // Its end says nothing of the links: nobody is there to be told, and the devices are still in use.
        if (valid) SendToOrb(RouterInfoReq());
        return;
    }
    if (!IsLinkPort(port)) return;
    if (valid) {
        OnLocalLinkUp(port);
        return;
    }
    // An end is reported twice, and may be reported after the next stream has come up.
    if (HasLiveStream(port)) return;
    const bool wasUsed = mLocalStreams[port] == LocalStream::Used;
    mLocalStreams[port] = LocalStream::Down;
    if (wasUsed) OnLocalLinkGone(port, type);
}

void DeviceManager::OnLocalLinkUp(UINT8GIGEPORT port)
{
    const Neighbour neighbour = NeighbourRules::OfStream(port, mDevices.mLinks[port], GetLocal());
    mLocalStreams[port] = LocalStream::Unused;
    if (neighbour == Neighbour::Unknown) {
        AUDIT_LOG(Fault, "Valid incoming stream with no local device\r\n");
        return;
    }
    if (neighbour == Neighbour::Refused) {
        AUDIT_STREAM(Information, "The stream of " << mDevices.mLinks[port].hid << "is not used, the local device is "
                                                   << mDevices.mLocal.Hid << "\n");
        return;
    }
    if (neighbour == Neighbour::Next) ReplaceLocal();
    mLocalStreams[port] = LocalStream::Used;
    // The end of an earlier stream may have cleared what the link layer reported, which it does not repeat.
    TakeFromLink(port);
    const bool isRouter = mDevices.mLocal.Type == K2Heartbeat::K2_ROUTER_TYPE;
    if (isRouter != mDevices.mRouterConnected) PostNetworkConnection(isRouter);
    mDevices.mRouterConnected = isRouter;
    RequestInfo(port);
    if (neighbour == Neighbour::Next) UseOtherLink(port);
}

void DeviceManager::RequestInfo(UINT8GIGEPORT port)
{
    const Side side = ToSide(port);
    if (mDevices.mLocal.IsRoutingDevice()) {
        AUDIT_LOG(RouterDiscovery, "Incoming local router KLV stream, requesting info\r\n");
        if (mDevices.mLocal.Type != K2Heartbeat::K2_HUB_TYPE ||
            mDevices.mLocal.Check(side) == SoftwareCheck::UnderWay) {
            mComms->SendLocal(RouterInfoReq(), port);
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(side, HubKind, RoutingMethod, MakeHubHid(mDevices.mLocal.Hid, IsPrimary(side)));
        }
    } else if (mDevices.mLocal.IsIoDevice()) {
        AUDIT_LOG(RouterConnectionDebug,
                  "DeviceManager::OnLocalLinkChanged Local IO box KLV stream online: HID = %lu\r\n",
                  static_cast<unsigned long>(mDevices.mLocal.Hid));
        if (mDevices.mLocal.IsAUDone()) {
            AUDIT_LOG(IODiscovery, "%s",
                      IsExtendedIoHid(mDevices.mLocal.Hid) ? "Querying IoInfoReqEx\n" : "Querying IoInfoReq\n");
            SendIoInfoReq(port);
        } else if (mDevices.mLocal.IsAUUnderway()) {
            AUDIT_LOG(Information, "Software check underway\r\n");
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(side, GetIoCheckKind(mDevices.mLocal.Type, mDevices.mLocal.Hid), IoMethod,
                         mDevices.mLocal.Hid);
        }
        mDevices.mLocal.SetOnline(side, true);
    }
}

void DeviceManager::RequestCheck(Side side, std::uint8_t kind, std::uint8_t method, Hid hid)
{
    DevicesToCheckAndUpdateCmd request(AddressText(UNIT_MODULE));
    request.AddDevice(AddressText(mDevices.mLocal.Link(side).RemoteIp), kind, method, hid, CheckEnabled);
    mComms->SendUpdate(request);
    mDevices.mLocal.Check(side) = SoftwareCheck::UnderWay;
}

void DeviceManager::SendIoInfoReq(UINT8GIGEPORT port)
{
    if (IsExtendedIoHid(mDevices.mLocal.Hid)) {
        mComms->SendLocal(IoInfoReqEx(1), port);
    } else {
        mComms->SendLocal(IoInfoReq(), port);
    }
}

void DeviceManager::OnLocalLinkGone(UINT8GIGEPORT port, StreamType type)
{
    const Hid hid = mDevices.mLocal.Hid;
    mDevices.mLocal.SetOnline(ToSide(port), false);
    AUDIT_STREAM(Information,
                 "DeviceManager::OnLocalLinkChanged Local Device Link Offline " << mDevices.mLocal << "\n");
    // The first of two ends has forgotten a routing device that had not been described on its other link.
    if (hid == INVALID_HID) return;
    if (mDevices.mLocal.IsRoutingDevice()) {
        LocalRouterGone(port, type);
    } else if (mDevices.mLocal.IsOffline() && mDevices.mLocal.Type != K2Heartbeat::K2_NO_TYPE) {
        LocalIoGone();
    }
    DeviceStateChange(hid, port, false, type);
}

void DeviceManager::LocalRouterGone(UINT8GIGEPORT port, StreamType type)
{
    SoftwareCheck& check = mDevices.mLocal.Check(ToSide(port));
    if (check == SoftwareCheck::Passed) check = SoftwareCheck::None;
    for (const Hid remote : mDevices.mRemote.GetHids()) {
        const DeviceRecord& record = *mDevices.mRemote.Find(remote);
        AUDIT_STREAM(Information, "Remote Device Link Offline " << record << "\n");
        if (!mDevices.mRouterConnected && mDevices.mLocal.Type == K2Heartbeat::K2_HUB_TYPE) {
            AUDIT_LOG(Information, "Shut down slave link for \r\n");
            mComms->Disconnect(GetPortAddress(remote, port), StreamType::SLAVE_LINK);
        }
        if (mDevices.IsOwnDevice(remote)) continue;
        DeviceStateChange(remote, port, false, type);
        if (!record.IsOffline()) continue;
        ReportRemoteGone(record.Type, remote);
        AUDIT_LOG(RouterDiscovery, "Erasing Remote Device\r\n");
        mDevices.mDeviceInfo.EraseDeviceInfo(remote);
        mDevices.mRemote.Erase(remote);
    }
    if (!mDevices.mLocal.IsOffline()) return;
    const Hid hid = mDevices.mLocal.Hid;
    mDevices.mLocal.Hid = INVALID_HID;
    AUDIT_LOG(RouterConnectionDebug, "LOCAL ROUTER OFFLINE UPDATE ORB\r\n");
    SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(mDevices.mLocal.Type), hid, 0, 0));
    PostNetworkConnection(false);
    mDevices.mRouterConnected = false;
}

void DeviceManager::LocalIoGone()
{
    AUDIT_LOG(IODebug, "LOCAL IO OFFLINE UPDATE ORB\r\n");
    SendToOrb(RemoteIoUpdate(ToRemoteDeviceType(mDevices.mLocal.Type), mDevices.mLocal.Hid, 0, mDevices.mHid,
                             mDevices.mLocal.SampleRate, mDevices.mLocal.SampleRates));
    mDevices.mDeviceInfo.EraseDeviceInfo(mDevices.mLocal.Hid);
    mDevices.mLocal.Type = K2Heartbeat::K2_NO_TYPE;
}

void DeviceManager::OnSlaveLinkChanged(UINT8GIGEPORT port, std::uint32_t address, bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnSlaveLinkChanged" << PortText(port) << " Address " << AddressText(address)
                                                        << FlagText(valid) << "\n");
    if (!valid) return;
    // Whoever is at the far end of a data link has internal I/O of its own.
    mComms->SendSlave(IoInfoReq(), address);
    if (!mDevices.mRouterConnected) RequestPendingDescriptions(port, address);
}

/// What was reported before the data link of its owner was up could not be asked for its description.
void DeviceManager::RequestPendingDescriptions(UINT8GIGEPORT port, std::uint32_t address)
{
    for (const Hid hid : mDevices.mRemote.GetHids()) {
        const DeviceRecord& record = *mDevices.mRemote.Find(hid);
        if (record.Link(ToSide(port)).DescriptionPending && GetPortAddress(record.Owner, port) == address)
            mComms->SendSlave(IoInfoDevReq(hid), address);
    }
}

void DeviceManager::OnUpdateLinkChanged(bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnUpdateLinkChanged Link Valid " << FlagText(valid) << "\n");
    if (!valid) return;
    DevicesToCheckAndUpdateCmd request{std::string()};
    request.AddDevice(AddressText(UNIT_MODULE), RoutingMethod, CheckEnabled, true);
    mComms->SendUpdate(request);
}

void DeviceManager::OnDeviceCheckResults(std::shared_ptr<const DeviceCheckResultsCmd> command, UINT8GIGEPORT,
                                         StreamType)
{
    const std::string& address = command->GetAddress();
    AUDIT_STREAM(IODiscovery,
                 "DeviceManager::DeviceCheckResultsCmd " << address << " Result " << command->GetResultText() << "\n");
    if (command->GetResult() != 0) return;
    if (address == AddressText(UNIT_MODULE)) {
        AUDIT_LOG(Information, "Connect to the ORB Router\r\n");
        mComms->Connect(UNIT_MASTER_CONTROL, Routing::ORB_PORT, NetworkPorts::LOCAL_STREAM);
        return;
    }
    const std::string primary = AddressText(mDevices.mLocal.Pri.RemoteIp);
    AUDIT_STREAM(IODiscovery, "Local Device " << primary << ":" << address << "\n");
    const Side side = address == primary ? Side::Primary : Side::Secondary;
    const UINT8GIGEPORT port = ToPort(side);
    // The result of a device that is refused there, or was replaced, lets nobody else in.
    if (mDevices.IsOtherOn(port)) return;
    mDevices.mLocal.Check(side) = SoftwareCheck::Passed;
    if (mDevices.mLocal.IsRoutingDevice()) {
        mComms->SendLocal(RouterInfoReq(), port);
    } else if (mDevices.mLocal.IsIoDevice()) {
        for (const UINT8GIGEPORT link : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            if (!mDevices.IsOtherOn(link)) SendIoInfoReq(link);
        for (SoftwareCheck& check : mDevices.mLocal.Checks)
            if (check == SoftwareCheck::UnderWay) check = SoftwareCheck::None;
    }
}

void DeviceManager::DeviceStateChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType type)
{
    const Side side = ToSide(port);
    AUDIT_STREAM(IODiscovery, "DeviceStateChange " << hid << " GigE " << PortText(port)
                                                   << (online ? " Online\r\n" : " Offline\r\n"));
    PostDeviceChange(mIoService, *this, hid, port, online, type);
    SendToOrb(RemoteCableStateCmd(hid, IsPrimary(side), online));
    if (!mDevices.LinkOnline(hid, OtherSide(side))) {
        if (online) {
            mCableChecks.Start(hid, OtherSide(side));
        } else {
            SendToOrb(RemoteCableStateCmd(hid, !IsPrimary(side), false));
        }
    }
    if (DeviceRecord* record = mDevices.GetDeviceRecord(hid)) {
        record->SetOnline(side, online);
        record->Link(side).DescriptionPending = false;
    }
}

void DeviceManager::ReportRemoteGone(K2Heartbeat::LinkType type, Hid hid)
{
    if (K2Heartbeat::IsRoutingDevice(type)) {
        SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(type), hid, 0, 0));
    } else if (K2Heartbeat::IsIoDevice(type)) {
        SendToOrb(RemoteIoUpdate(ToRemoteDeviceType(type), hid, 0, mDevices.mHid));
    }
}

void DeviceManager::OnIoInternalsChanged(Hid hid, std::uint32_t bitmap)
{
    AUDIT_STREAM(HardwareDebug, "OnIoInternalsChanged " << hid << " BM " << std::hex << bitmap << "\n");
    if (IsIoHid(hid)) SendToOrb(IoBoxInternalsCmd(bitmap, hid, std::to_string(hid)));
}

void DeviceManager::OnMasterHidChanged(Hid hid)
{
    const Hid current = mMasterHid.load();
    AUDIT_STREAM(RouterAudioRoute, "DeviceManager::OnMasterHidChanged Current " << current << " New " << hid << "\n");
    if (current != hid) mMasterHid.store(hid);
}
