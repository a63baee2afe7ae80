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
        mLinks[port] = {localIp, remoteGigE, remoteIp, hid, type};
        LinkUp(port);
    } else {
        mLinks[port] = {};
        LinkDown(port, type);
    }
}

NeighbourRules::Local DeviceManager::GetLocal() const
{
    return {mLocal.Hid, mLocal.Type, mLocal.Pri.IsOnline()};
}

void DeviceManager::LinkUp(UINT8GIGEPORT port)
{
    switch (NeighbourRules::OfLink(port, mLinks[port], GetLocal())) {
    case Neighbour::Refused:
        AUDIT_STREAM(Fault, "Secondary port HID " << mLinks[port].hid << "does not match primary port HID "
                                                  << mLocal.Hid << "\n");
        mLocal.MixedHid = true;
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
    if (mLocal.Type != K2Heartbeat::K2_ROUTER_TYPE) {
        // A router whose stream never came up leaves no end of one.
        if (mRouterConnected) PostNetworkConnection(false);
        mRouterConnected = false;
        mComms->Connect(mLinks[port].remoteIp, port, NetworkPorts::LOCAL_STREAM);
        return;
    }
    PostNetworkConnection(true);
    mRouterConnected = true;
    // A router opens the stream itself, and may do so before its first heartbeat.
    if (mLocalStreams[port] == LocalStream::Unused) OnLocalLinkUp(port);
}

/// A device that takes the primary link may have been refused on the secondary, or been replaced there.
void DeviceManager::UseOtherLink(UINT8GIGEPORT port)
{
    const LinkReport& secondary = mLinks[Routing::SECONDARY_PORT];
    if (!IsPrimaryPort(port) || !secondary.IsUp() || secondary.hid != mLocal.Hid) return;
    UseLink(Routing::SECONDARY_PORT);
}

void DeviceManager::TakeFromLink(UINT8GIGEPORT port)
{
    const LinkReport& report = mLinks[port];
    // What it said while it was not the local device has built no port maps.
    if (report.hid != mLocal.Hid && mDeviceInfo.GetDevice(report.hid)) mDeviceInfo.EraseDeviceInfo(report.hid);
    mLocal.Type = report.type;
    mLocal.Hid = report.hid;
    LinkInfo& link = mLocal.Link(IsPrimaryPort(port));
    link.LocalIp = report.localIp;
    link.RemoteIp = report.remoteIp;
    link.Port = port;
    link.RemoteGigE = report.remoteGigE;
    if (!IsPrimaryPort(port)) EndMixedHid();
}

void DeviceManager::EndMixedHid()
{
    if (!mLocal.MixedHid) return;
    mLocal.MixedHid = false;
    SendToOrb(SornMixedHIDError(false));
}

/// Ends the local device before another takes its place.
void DeviceManager::ReplaceLocal()
{
    if (IsLocalInUse()) {
        AUDIT_STREAM(Information, "Local device " << mLocal.Hid << "is replaced\n");
        EndLocal();
    } else if (mLocal.Sec.IsOnline()) {
        // The Orb router does not know it, but by the port maps of an earlier box it may have been patched.
        PostDeviceChange(mIoService, *this, mLocal.Hid, Routing::SECONDARY_PORT, false, StreamType::LOCAL_LINK);
    }
    // The check, the addresses and a stream that are left belong to the old device.
    for (const UINT8GIGEPORT link : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        mLocal.SetOnline(IsPrimaryPort(link), false);
        if (mLocalStreams[link] == LocalStream::Used) mLocalStreams[link] = LocalStream::Unused;
    }
    mLocal.AUUnderway = {};
    mLocal.AUDone = {};
}

/// Whether the end of the local device has to be reported. A box whose only stream is on the secondary link has not
/// been reported before its description.
bool DeviceManager::IsLocalInUse() const
{
    if (mDeviceInfo.GetDevice(mLocal.Hid)) return true;
    if (mLocalStreams[Routing::PRIMARY_PORT] == LocalStream::Used) return true;
    return mLocal.IsRoutingDevice() && mLocalStreams[Routing::SECONDARY_PORT] == LocalStream::Used;
}

/// As if the last link of the local device ended.
void DeviceManager::EndLocal()
{
    for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
        const bool hadStream = mLocalStreams[port] == LocalStream::Used;
        if (!hadStream && !mLocal.IsOnline(IsPrimaryPort(port))) continue;
        mLocalStreams[port] = LocalStream::Down;
        if (hadStream && port == Routing::SECONDARY_PORT) CloseStreams(port);
        OnLocalLinkGone(port, StreamType::LOCAL_LINK);
    }
}

void DeviceManager::LinkDown(UINT8GIGEPORT port, K2Heartbeat::LinkType type)
{
    if (mLocalStreams[port] == LocalStream::Unused) mLocalStreams[port] = LocalStream::Down;
    if (port == Routing::SECONDARY_PORT && mLocal.MixedHid) {
        EndMixedHid();
        return;
    }
    // A neighbour that only stopped beating keeps its type here, and with it its software check.
    if (type == K2Heartbeat::K2_NO_TYPE) mLocal.ResetAUInfo(LocalDevice::AUIndex(port));
    CloseStreams(port);
}

void DeviceManager::CloseStreams(UINT8GIGEPORT port)
{
    mComms->Disconnect(port);
    if (!mRouterConnected && mLocal.Type == K2Heartbeat::K2_HUB_TYPE) {
        AUDIT_LOG(Information, "Shut down slave link to local hub\r\n");
        mComms->Disconnect(GetPortAddress(mLocal.Hid, port), StreamType::SLAVE_LINK);
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
    const Neighbour neighbour = NeighbourRules::OfStream(port, mLinks[port], GetLocal());
    mLocalStreams[port] = LocalStream::Unused;
    if (neighbour == Neighbour::Unknown) {
        AUDIT_LOG(Fault, "Valid incoming stream with no local device\r\n");
        return;
    }
    if (neighbour == Neighbour::Refused) {
        AUDIT_STREAM(Information,
                     "The stream of " << mLinks[port].hid << "is not used, the local device is " << mLocal.Hid << "\n");
        return;
    }
    if (neighbour == Neighbour::Next) ReplaceLocal();
    mLocalStreams[port] = LocalStream::Used;
    // The end of an earlier stream may have cleared what the link layer reported, which it does not repeat.
    TakeFromLink(port);
    const bool isRouter = mLocal.Type == K2Heartbeat::K2_ROUTER_TYPE;
    if (isRouter != mRouterConnected) PostNetworkConnection(isRouter);
    mRouterConnected = isRouter;
    RequestInfo(port);
    if (neighbour == Neighbour::Next) UseOtherLink(port);
}

void DeviceManager::RequestInfo(UINT8GIGEPORT port)
{
    const bool isPri = IsPrimaryPort(port);
    if (mLocal.IsRoutingDevice()) {
        AUDIT_LOG(RouterDiscovery, "Incoming local router KLV stream, requesting info\r\n");
        if (mLocal.Type != K2Heartbeat::K2_HUB_TYPE || mLocal.AUUnderway[isPri]) {
            mComms->SendLocal(RouterInfoReq(), port);
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(isPri, HubKind, RoutingMethod, MakeHubHid(mLocal.Hid, isPri));
        }
    } else if (mLocal.IsIoDevice()) {
        AUDIT_LOG(RouterConnectionDebug,
                  "DeviceManager::OnLocalLinkChanged Local IO box KLV stream online: HID = %lu\r\n",
                  static_cast<unsigned long>(mLocal.Hid));
        if (mLocal.IsAUDone()) {
            AUDIT_LOG(IODiscovery, "%s",
                      IsExtendedIoHid(mLocal.Hid) ? "Querying IoInfoReqEx\n" : "Querying IoInfoReq\n");
            SendIoInfoReq(port);
        } else if (mLocal.IsAUUnderway()) {
            AUDIT_LOG(Information, "Software check underway\r\n");
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(isPri, GetIoCheckKind(mLocal.Type, mLocal.Hid), IoMethod, mLocal.Hid);
        }
        mLocal.SetOnline(isPri, true);
    }
}

void DeviceManager::RequestCheck(bool isPri, std::uint8_t kind, std::uint8_t method, Hid hid)
{
    DevicesToCheckAndUpdateCmd request(AddressText(UNIT_MODULE));
    request.AddDevice(AddressText(mLocal.Link(isPri).RemoteIp), kind, method, hid, CheckEnabled);
    mComms->SendUpdate(request);
    mLocal.AUUnderway[isPri] = true;
}

void DeviceManager::SendIoInfoReq(UINT8GIGEPORT port)
{
    if (IsExtendedIoHid(mLocal.Hid)) {
        mComms->SendLocal(IoInfoReqEx(1), port);
    } else {
        mComms->SendLocal(IoInfoReq(), port);
    }
}

void DeviceManager::OnLocalLinkGone(UINT8GIGEPORT port, StreamType type)
{
    const Hid hid = mLocal.Hid;
    mLocal.SetOnline(IsPrimaryPort(port), false);
    AUDIT_STREAM(Information, "DeviceManager::OnLocalLinkChanged Local Device Link Offline " << mLocal << "\n");
    // The first of two ends has forgotten a routing device that had not been described on its other link.
    if (hid == INVALID_HID) return;
    if (mLocal.IsRoutingDevice()) {
        LocalRouterGone(port, type);
    } else if (mLocal.IsOffline() && mLocal.Type != K2Heartbeat::K2_NO_TYPE) {
        LocalIoGone();
    }
    DeviceStateChange(hid, port, false, type);
}

void DeviceManager::LocalRouterGone(UINT8GIGEPORT port, StreamType type)
{
    mLocal.AUDone[IsPrimaryPort(port)] = false;
    for (const Hid remote : mRemote.GetHids()) {
        const DeviceRecord& record = *mRemote.Find(remote);
        AUDIT_STREAM(Information, "Remote Device Link Offline " << record << "\n");
        if (!mRouterConnected && mLocal.Type == K2Heartbeat::K2_HUB_TYPE) {
            AUDIT_LOG(Information, "Shut down slave link for \r\n");
            mComms->Disconnect(GetPortAddress(remote, port), StreamType::SLAVE_LINK);
        }
        if (IsOwnDevice(remote)) continue;
        DeviceStateChange(remote, port, false, type);
        if (!record.IsOffline()) continue;
        ReportRemoteGone(record.Type, remote);
        AUDIT_LOG(RouterDiscovery, "Erasing Remote Device\r\n");
        mDeviceInfo.EraseDeviceInfo(remote);
        mRemote.Erase(remote);
    }
    if (!mLocal.IsOffline()) return;
    const Hid hid = mLocal.Hid;
    mLocal.Hid = INVALID_HID;
    AUDIT_LOG(RouterConnectionDebug, "LOCAL ROUTER OFFLINE UPDATE ORB\r\n");
    SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(mLocal.Type), hid, 0, 0));
    PostNetworkConnection(false);
    mRouterConnected = false;
}

void DeviceManager::LocalIoGone()
{
    AUDIT_LOG(IODebug, "LOCAL IO OFFLINE UPDATE ORB\r\n");
    SendToOrb(
        RemoteIoUpdate(ToRemoteDeviceType(mLocal.Type), mLocal.Hid, 0, mHid, mLocal.SampleRate, mLocal.SampleRates));
    mDeviceInfo.EraseDeviceInfo(mLocal.Hid);
    mLocal.Type = K2Heartbeat::K2_NO_TYPE;
}

void DeviceManager::OnSlaveLinkChanged(UINT8GIGEPORT port, std::uint32_t address, bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnSlaveLinkChanged" << PortText(port) << " Address " << AddressText(address)
                                                        << FlagText(valid) << "\n");
    if (!valid) return;
    // Whoever is at the far end of a data link has internal I/O of its own.
    mComms->SendSlave(IoInfoReq(), address);
    if (!mRouterConnected) RequestPendingDescriptions(port, address);
}

/// What was reported before the data link of its owner was up could not be asked for its description.
void DeviceManager::RequestPendingDescriptions(UINT8GIGEPORT port, std::uint32_t address)
{
    for (const Hid hid : mRemote.GetHids()) {
        const DeviceRecord& record = *mRemote.Find(hid);
        if (record.Link(IsPrimaryPort(port)).DescriptionPending && GetPortAddress(record.Owner, port) == address)
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
    const std::string primary = AddressText(mLocal.Pri.RemoteIp);
    AUDIT_STREAM(IODiscovery, "Local Device " << primary << ":" << address << "\n");
    const bool isPri = address == primary;
    const UINT8GIGEPORT port = isPri ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT;
    // The result of a device that is refused there, or was replaced, lets nobody else in.
    if (IsOtherOn(port)) return;
    mLocal.AUDone[isPri] = true;
    mLocal.AUUnderway[isPri] = false;
    if (mLocal.IsRoutingDevice()) {
        mComms->SendLocal(RouterInfoReq(), port);
    } else if (mLocal.IsIoDevice()) {
        for (const UINT8GIGEPORT link : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            if (!IsOtherOn(link)) SendIoInfoReq(link);
        mLocal.AUUnderway = {};
    }
}

/// Whether another device than the local one is at the end of a cable.
bool DeviceManager::IsOtherOn(UINT8GIGEPORT port) const
{
    return mLocal.Hid != INVALID_HID && mLinks[port].IsUp() && mLinks[port].hid != mLocal.Hid;
}

void DeviceManager::DeviceStateChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType type)
{
    const bool isPri = IsPrimaryPort(port);
    AUDIT_STREAM(IODiscovery, "DeviceStateChange " << hid << " GigE " << PortText(port)
                                                   << (online ? " Online\r\n" : " Offline\r\n"));
    PostDeviceChange(mIoService, *this, hid, port, online, type);
    SendToOrb(RemoteCableStateCmd(hid, isPri, online));
    if (!LinkOnline(hid, !isPri)) {
        if (online) {
            StartCableCheck(hid, port);
        } else {
            SendToOrb(RemoteCableStateCmd(hid, !isPri, false));
        }
    }
    if (DeviceRecord* record = GetDeviceRecord(hid)) {
        record->SetOnline(isPri, online);
        record->Link(isPri).DescriptionPending = false;
    }
}

void DeviceManager::StartCableCheck(Hid hid, UINT8GIGEPORT port)
{
    if (mCableChecks.size() >= mLimits.cableChecks) {
        if (!mCableCheckLimitReported)
            AUDIT_LOG(Fault, "Too many cable checks are pending (%lu), further ones are left out\n",
                      static_cast<unsigned long>(mCableChecks.size()));
        mCableCheckLimitReported = true;
        return;
    }
    auto timer = std::make_shared<boost::asio::steady_timer>(mIoService);
    timer->expires_after(mDelays.cableCheck);
    // The list alone owns the timer, so that nothing but this object ends it; the handler only finds the entry by it.
    timer->async_wait(
        [this, wanted = timer.get()](const boost::system::error_code& error) { DelayedCableCheck(error, wanted); });
    mCableChecks.push_back({hid, port, std::move(timer)});
}

void DeviceManager::DelayedCableCheck(const boost::system::error_code& error, const boost::asio::steady_timer* timer)
{
    if (error) AUDIT_STREAM(IODiscovery, "DelayedCableCheck: timer error '" << error.message() << "'\n");
    // Timers end in the order in which they were started, so the search ends at the front.
    const auto check = std::find_if(mCableChecks.begin(), mCableChecks.end(),
                                    [timer](const CableCheck& entry) { return entry.timer.get() == timer; });
    if (check == mCableChecks.end()) return;
    const bool otherIsPri = !IsPrimaryPort(check->port);
    AUDIT_STREAM(IODiscovery,
                 "DelayedCableCheck: for Hid: " << check->hid << ", port: " << (otherIsPri ? "Pri" : "Sec") << "\n");
    if (!LinkOnline(check->hid, otherIsPri)) SendToOrb(RemoteCableStateCmd(check->hid, otherIsPri, false));
    mCableChecks.erase(check);
}

void DeviceManager::ReportRemoteGone(K2Heartbeat::LinkType type, Hid hid)
{
    if (K2Heartbeat::IsRoutingDevice(type)) {
        SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(type), hid, 0, 0));
    } else if (K2Heartbeat::IsIoDevice(type)) {
        SendToOrb(RemoteIoUpdate(ToRemoteDeviceType(type), hid, 0, mHid));
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
