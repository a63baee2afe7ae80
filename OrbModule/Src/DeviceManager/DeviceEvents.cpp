#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DeviceCheckResultsCmd.h"
#include "Common/KLV/Commands/DevicesToCheckAndUpdateCmd.h"
#include "Common/KLV/Commands/IoBoxInternalsCmd.h"
#include "Common/KLV/Commands/IoInfoReq.h"
#include "Common/KLV/Commands/IoInfoReqEx.h"
#include "Common/KLV/Commands/RemoteCableStateCmd.h"
#include "Common/KLV/Commands/RemoteIoUpdate.h"
#include "Common/KLV/Commands/RemoteRouterUpdate.h"
#include "Common/KLV/Commands/RouterInfoReq.h"
#include "Common/KLV/Commands/SornMixedHIDError.h"
#include "MiscSource/NetworkPorts.h"

#include <algorithm>
#include <string>
#include <utility>

// What the link layer and the streams report of the neighbour on a link, and its software check.

namespace {

/// Kinds of device in the request for a software check.
enum CheckKind : std::uint8_t { IoBoxKind = 0, FixedFormatKind = 1, HubKind = 7, SecondClassIoKind = 8, AoIPKind = 11 };

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
    if (port >= mLinkHid.size()) return;
    if (localIp != 0) {
        LinkUp(port, localIp, remoteGigE, remoteIp, hid, type);
    } else {
        LinkDown(port, type);
    }
}

void DeviceManager::LinkUp(UINT8GIGEPORT port, std::uint32_t localIp, UINT8GIGEPORT remoteGigE, std::uint32_t remoteIp,
                           Hid hid, K2Heartbeat::LinkType type)
{
    mLinkHid[port] = hid;
    if (port == Routing::SECONDARY_PORT && mLocal.Pri.IsOnline() && mLocal.Hid != hid) {
        AUDIT_STREAM(Fault, "Secondary port HID " << hid << "does not match primary port HID " << mLocal.Hid << "\n");
        mLocal.MixedHid = true;
        SendToOrb(SornMixedHIDError(true));
        return;
    }
    if (mReplaced || mLocal.Hid != hid) ExchangeLocal(port, hid);
    mLocal.Type = type;
    mLocal.Hid = hid;
    // The link is online once its stream is.
    LinkInfo& link = mLocal.Link(IsPrimaryPort(port));
    link.LocalIp = localIp;
    link.RemoteIp = remoteIp;
    link.Port = port;
    link.RemoteGigE = remoteGigE;
    if (type == K2Heartbeat::K2_ROUTER_TYPE) {
        PostNetworkConnection(true);
        mRouterConnected = true;
    } else {
        // A router whose stream never came leaves no end of one behind, and a hub must not be taken for its like.
        if (mRouterConnected) PostNetworkConnection(false);
        mRouterConnected = false;
        mComms->Connect(remoteIp, port, NetworkPorts::LOCAL_STREAM);
    }
}

/// A device whose secondary cable still stands when another takes its place on the primary link keeps that cable, with
/// the routes over it, until the cable goes as well.
void DeviceManager::ExchangeLocal(UINT8GIGEPORT port, Hid hid)
{
    constexpr UINT8GIGEPORT secondary = Routing::SECONDARY_PORT;
    if (mReplaced && mReplaced->Hid == hid) {
        mReplaced->MixedHid = mLocal.MixedHid;
        mLocal = std::move(*mReplaced);
        mReplaced.reset();
    } else if (port == secondary) {
        if (!mReplaced) return;
        // Another is at the end of its cable already, and only the end of its stream has not been told.
        mLocalStreamUp[port] = HasLiveStream(port);
        OnLocalLinkGone(port, StreamType::LOCAL_LINK);
    } else {
        if (!mReplaced && mLocalStreamUp[secondary] && IsLocalInUse()) {
            AUDIT_STREAM(Information, "Local device " << mLocal.Hid << " is replaced on its primary link\n");
            mReplaced = mLocal;
            mReplaced->SetOnline(true, false);
        } else if (mReplaced || mLinkHid[secondary] == INVALID_HID) {
            return;
        }
        mLocal.SetOnline(false, false);
        mLocal.ResetAUInfo(LocalDevice::AUIndex(secondary));
    }
}

/// Whether patches may have routes to it.
bool DeviceManager::IsLocalInUse()
{
    return mLocal.Sec.IsOnline() || mDeviceInfo.GetDevice(mLocal.Hid);
}

LocalDevice& DeviceManager::GetLocal(UINT8GIGEPORT port)
{
    return mReplaced && port == Routing::SECONDARY_PORT ? *mReplaced : mLocal;
}

LocalDevice& DeviceManager::GetReachableLocal()
{
    return mReplaced && mLocal.IsOffline() ? *mReplaced : mLocal;
}

bool DeviceManager::IsStrangerOn(UINT8GIGEPORT port)
{
    return mLinkHid[port] != INVALID_HID && mLinkHid[port] != GetLocal(port).Hid;
}

void DeviceManager::LinkDown(UINT8GIGEPORT port, K2Heartbeat::LinkType type)
{
    mLinkHid[port] = INVALID_HID;
    if (port == Routing::SECONDARY_PORT && mLocal.MixedHid) {
        mLocal.MixedHid = false;
        SendToOrb(SornMixedHIDError(false));
        return;
    }
    LocalDevice& device = GetLocal(port);
    // A neighbour that only stopped beating keeps its type here, and with it its software check.
    if (type == K2Heartbeat::K2_NO_TYPE) device.ResetAUInfo(LocalDevice::AUIndex(port));
    mComms->Disconnect(port);
    if (!mRouterConnected && device.Type == K2Heartbeat::K2_HUB_TYPE) {
        AUDIT_LOG(Information, "Shut down slave link to local hub\r\n");
        mComms->Disconnect(GetPortAddress(device.Hid, port), StreamType::SLAVE_LINK);
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

bool DeviceManager::IsRepeatedLoss(UINT8GIGEPORT port)
{
    // Or the late report of a stream whose successor is already in its place.
    return !mLocalStreamUp[port] || HasLiveStream(port);
}

bool DeviceManager::HasLiveStream(UINT8GIGEPORT port)
{
    bool exists = false;
    const bool closing = mComms->DisconnectPending(port, StreamType::LOCAL_LINK, exists);
    return exists && !closing;
}

void DeviceManager::OnLocalLinkChanged(UINT8GIGEPORT port, StreamType type, bool valid)
{
    if (port >= mLocalStreamUp.size()) return;
    if (valid) {
        mLocalStreamUp[port] = true;
        OnLocalLinkUp(port);
    } else if (!IsRepeatedLoss(port)) {
        mLocalStreamUp[port] = false;
        OnLocalLinkGone(port, type);
    }
}

void DeviceManager::OnLocalLinkUp(UINT8GIGEPORT port)
{
    if (port == Routing::ORB_PORT) {
        SendToOrb(RouterInfoReq());
        return;
    }
    const bool isPri = IsPrimaryPort(port);
    LocalDevice& device = GetLocal(port);
    if (device.Hid == INVALID_HID) {
        AUDIT_LOG(Fault, "Valid incoming stream with no local device\r\n");
        return;
    }
    if (IsStrangerOn(port)) {
        AUDIT_STREAM(Information,
                     "The stream of " << mLinkHid[port] << " is not used, the local device is " << mLocal.Hid << "\n");
        return;
    }
    if (device.IsRoutingDevice()) {
        AUDIT_LOG(RouterDiscovery, "Incoming local router KLV stream, requesting info\r\n");
        if (device.Type != K2Heartbeat::K2_HUB_TYPE || device.AUUnderway[isPri]) {
            mComms->SendLocal(RouterInfoReq(), port);
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(device, isPri, HubKind, 1, MakeHubHid(device.Hid, isPri));
        }
    } else if (device.IsIoDevice()) {
        AUDIT_LOG(RouterConnectionDebug,
                  "DeviceManager::OnLocalLinkChanged Local IO box KLV stream online: HID = %lu\r\n",
                  static_cast<unsigned long>(device.Hid));
        if (device.IsAUDone()) {
            AUDIT_LOG(IODiscovery, "%s",
                      IsExtendedIoHid(device.Hid) ? "Querying IoInfoReqEx\n" : "Querying IoInfoReq\n");
            SendIoInfoReq(port);
        } else if (device.IsAUUnderway()) {
            AUDIT_LOG(Information, "Software check underway\r\n");
        } else {
            AUDIT_LOG(Information, "Request Software check\r\n");
            RequestCheck(device, isPri, GetIoCheckKind(device.Type, device.Hid), 0, device.Hid);
        }
        device.SetOnline(isPri, true);
    }
}

void DeviceManager::RequestCheck(LocalDevice& device, bool isPri, std::uint8_t kind, std::uint8_t method, Hid hid)
{
    DevicesToCheckAndUpdateCmd request(AddressText(UNIT_MODULE));
    request.AddDevice(AddressText(device.Link(isPri).RemoteIp), kind, method, hid, 1);
    mComms->SendUpdate(request);
    device.AUUnderway[isPri] = true;
}

void DeviceManager::SendIoInfoReq(UINT8GIGEPORT port)
{
    if (IsExtendedIoHid(GetLocal(port).Hid)) {
        mComms->SendLocal(IoInfoReqEx(1), port);
    } else {
        mComms->SendLocal(IoInfoReq(), port);
    }
}

void DeviceManager::OnLocalLinkGone(UINT8GIGEPORT port, StreamType type)
{
    LocalDevice& device = GetLocal(port);
    const Hid hid = device.Hid;
    device.SetOnline(IsPrimaryPort(port), false);
    AUDIT_STREAM(Information, "DeviceManager::OnLocalLinkChanged Local Device Link Offline " << device << "\n");
    // A stream that came and went without a device behind it leaves nothing to tell.
    if (hid == INVALID_HID) return;
    if (device.IsRoutingDevice()) {
        LocalRouterGone(device, port, type);
    } else if (device.IsOffline() && device.Type != K2Heartbeat::K2_NO_TYPE) {
        LocalIoGone(device);
    }
    // Also of a device that was taken for gone before, as the end of the Orb router's stream does it: this link still
    // has its routes.
    DeviceStateChange(hid, port, false, type);
    if (&device != &mLocal) mReplaced.reset();
}

void DeviceManager::LocalRouterGone(LocalDevice& device, UINT8GIGEPORT port, StreamType type)
{
    device.AUDone[IsPrimaryPort(port)] = false;
    for (const Hid remote : mRemote.GetHids()) {
        const DeviceRecord& record = *mRemote.Find(remote);
        AUDIT_STREAM(Information, "Remote Device Link Offline " << record << "\n");
        if (!mRouterConnected && device.Type == K2Heartbeat::K2_HUB_TYPE) {
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
    if (!device.IsOffline()) return;
    const Hid hid = device.Hid;
    device.Hid = INVALID_HID;
    AUDIT_LOG(RouterConnectionDebug, "LOCAL ROUTER OFFLINE UPDATE ORB\r\n");
    SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(device.Type), hid, 0, 0));
    // Whether there is a network is for the device in its place to say.
    if (&device != &mLocal) return;
    PostNetworkConnection(false);
    mRouterConnected = false;
}

void DeviceManager::LocalIoGone(LocalDevice& device)
{
    AUDIT_LOG(IODebug, "LOCAL IO OFFLINE UPDATE ORB\r\n");
    SendToOrb(
        RemoteIoUpdate(ToRemoteDeviceType(device.Type), device.Hid, 0, mHid, device.SampleRate, device.SampleRates));
    mDeviceInfo.EraseDeviceInfo(device.Hid);
    device.Type = K2Heartbeat::K2_NO_TYPE;
}

void DeviceManager::OnSlaveLinkChanged(UINT8GIGEPORT port, std::uint32_t address, bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnSlaveLinkChanged" << PortText(port) << " Address " << AddressText(address)
                                                        << FlagText(valid) << "\n");
    // Whoever is at the far end of a data link has internal I/O of its own.
    if (valid) mComms->SendSlave(IoInfoReq(), address);
}

void DeviceManager::OnUpdateLinkChanged(bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnUpdateLinkChanged Link Valid " << FlagText(valid) << "\n");
    if (!valid) return;
    DevicesToCheckAndUpdateCmd request{std::string()};
    request.AddDevice(AddressText(UNIT_MODULE), 1, 1, true);
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
    LocalDevice& device = GetLocal(isPri ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT);
    device.AUDone[isPri] = true;
    device.AUUnderway[isPri] = false;
    if (device.IsRoutingDevice()) {
        mComms->SendLocal(RouterInfoReq(), isPri ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT);
    } else if (device.IsIoDevice()) {
        for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            if (&GetLocal(port) == &device && !IsStrangerOn(port)) SendIoInfoReq(port);
        device.AUUnderway = {};
    }
}

void DeviceManager::DeviceStateChange(Hid hid, UINT8GIGEPORT port, bool online, StreamType type)
{
    const bool isPri = IsPrimaryPort(port);
    AUDIT_STREAM(IODiscovery, "DeviceStateChange " << hid << " GigE " << PortText(port)
                                                   << (online ? " Online\r\n" : " Offline\r\n"));
    const Hid reported = IsIoHid(hid) ? hid : MakeNodeHid(hid);
    mIoService.post([this, reported, port, online, type] { DeviceChange(reported, port, online, type); });
    SendToOrb(RemoteCableStateCmd(hid, isPri, online));
    if (!LinkOnline(hid, !isPri)) {
        if (online) {
            StartCableCheck(hid, port);
        } else {
            SendToOrb(RemoteCableStateCmd(hid, !isPri, false));
        }
    }
    if (DeviceRecord* record = GetDeviceRecord(hid)) record->SetOnline(isPri, online);
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
    // The list alone owns the timer, so that nothing but this object ends it; the handler only knows its name.
    timer->async_wait(
        [this, name = timer.get()](const boost::system::error_code& error) { DelayedCableCheck(error, name); });
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
