#include "OrbModule/Inc/DeviceManager/SoftwareChecks.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/DeviceManager/CheckRules.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <string>

namespace {

/// Kinds of device in the request for a software check.
enum CheckKind : std::uint8_t { IoBoxKind = 0, FixedFormatKind = 1, HubKind = 7, SecondClassIoKind = 8, AoIPKind = 11 };
/// How a device is checked: as an I/O box, or as a router, a hub or the module itself.
enum CheckMethod : std::uint8_t { IoMethod = 0, RoutingMethod = 1 };
constexpr std::uint8_t CheckEnabled = 1;
constexpr bool SelfTest = true;

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

void SoftwareChecks::OnUpdateLinkChanged(bool valid)
{
    AUDIT_STREAM(RouterAudioRoute, "OnUpdateLinkChanged Link Valid " << FlagText(valid) << "\n");
    if (!valid) return;
    DevicesToCheckAndUpdateCmd request{std::string()};
    request.AddDevice(AddressText(UNIT_MODULE), RoutingMethod, CheckEnabled, SelfTest);
    mComms.SendUpdate(request);
}

void SoftwareChecks::RequestInfo(Side side)
{
    LocalDevice& local = mDevices.mLocal;
    if (local.IsRoutingDevice()) {
        AUDIT_LOG(RouterDiscovery, "Incoming local router KLV stream, requesting info\r\n");
    } else if (local.IsIoDevice()) {
        AUDIT_LOG(RouterConnectionDebug,
                  "DeviceManager::OnLocalLinkChanged Local IO box KLV stream online: HID = %lu\r\n",
                  static_cast<unsigned long>(local.Hid));
        local.SetOnline(side, true);
    }
    using CheckRules::Request;
    switch (CheckRules::OfStream(local, side)) {
    case Request::Nothing:
        break;
    case Request::RouterInfo:
        mComms.SendLocal(RouterInfoReq(), ToPort(side));
        break;
    case Request::HubCheck:
        RequestCheck(side, HubKind, RoutingMethod, MakeHubHid(local.Hid, IsPrimary(side)));
        break;
    case Request::IoCheck:
        RequestCheck(side, GetIoCheckKind(local.Type, local.Hid), IoMethod, local.Hid);
        break;
    case Request::AwaitCheck:
        AUDIT_LOG(Information, "Software check underway\r\n");
        break;
    case Request::IoInfo:
        AUDIT_LOG(IODiscovery, "%s", IsExtendedIoHid(local.Hid) ? "Querying IoInfoReqEx\n" : "Querying IoInfoReq\n");
        SendIoInfoReq(side);
        break;
    }
}

void SoftwareChecks::RequestCheck(Side side, std::uint8_t kind, std::uint8_t method, Hid hid)
{
    AUDIT_LOG(Information, "Request Software check\r\n");
    LocalDevice& local = mDevices.mLocal;
    DevicesToCheckAndUpdateCmd request(AddressText(UNIT_MODULE));
    request.AddDevice(AddressText(local.Link(side).RemoteIp), kind, method, hid, CheckEnabled);
    mComms.SendUpdate(request);
    local.Check(side) = SoftwareCheck::UnderWay;
}

void SoftwareChecks::SendIoInfoReq(Side side)
{
    if (IsExtendedIoHid(mDevices.mLocal.Hid)) {
        mComms.SendLocal(IoInfoReqEx(1), ToPort(side));
    } else {
        mComms.SendLocal(IoInfoReq(), ToPort(side));
    }
}

void SoftwareChecks::OnDeviceCheckResults(const DeviceCheckResultsCmd& command)
{
    const std::string& address = command.GetAddress();
    AUDIT_STREAM(IODiscovery,
                 "DeviceManager::DeviceCheckResultsCmd " << address << " Result " << command.GetResultText() << "\n");
    if (command.GetResult() != 0) return;
    if (address == AddressText(UNIT_MODULE)) {
        AUDIT_LOG(Information, "Connect to the ORB Router\r\n");
        mComms.Connect(UNIT_MASTER_CONTROL, Routing::ORB_PORT, NetworkPorts::LOCAL_STREAM);
        return;
    }
    LocalDevice& local = mDevices.mLocal;
    const std::string primary = AddressText(local.Pri.RemoteIp);
    AUDIT_STREAM(IODiscovery, "Local Device " << primary << ":" << address << "\n");
    const Side side = address == primary ? Side::Primary : Side::Secondary;
    // The result of a device that is refused there, or was replaced, admits no other device.
    if (mDevices.IsOtherOn(side)) return;
    local.Check(side) = SoftwareCheck::Passed;
    if (local.IsRoutingDevice()) {
        mComms.SendLocal(RouterInfoReq(), ToPort(side));
    } else if (local.IsIoDevice()) {
        for (const Side link : BothSides)
            if (!mDevices.IsOtherOn(link)) SendIoInfoReq(link);
        for (SoftwareCheck& check : local.Checks)
            if (check == SoftwareCheck::UnderWay) check = SoftwareCheck::None;
    }
}
