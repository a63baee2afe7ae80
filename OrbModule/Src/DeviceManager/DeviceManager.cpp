#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "MiscSource/NetworkPorts.h"
#include "MiscSource/SystemUtilities.h"

#include <string>

namespace {

/// False, with a Fault line, for a command of a stream that matches no port.
bool IsFromPort(UINT8GIGEPORT port)
{
    if (port < Routing::PORT_COUNT) return true;
    AUDIT_LOG(Fault, "A report on a stream that matches no port is ignored\n");
    return false;
}

} // namespace

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms)
    : DeviceManager(service, comms, SystemWithStderr, Delays(), Limits())
{}

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms, RunCommand run, Delays delays,
                             Limits limits)
    : DeviceSignals(service),
      mComms(comms),
      mDevices(limits.remoteDevices, limits.descriptions),
      mCableChecks(service, mDevices, comms, delays.cableCheck, limits.cableChecks),
      mReports(mDevices, comms, *this, mCableChecks),
      mSoftwareChecks(mDevices, comms),
      mLinkedDevices(mDevices, comms, mReports, *this, mSoftwareChecks),
      mRoutes(std::move(run), mDevices.mHid),
      mActiveRouter(service, comms, delays.secondaryActiveRouter),
      mLocalDiscovery(mDevices, comms, mReports, *this, mRoutes, mActiveRouter),
      mRemoteDiscovery(mDevices, comms, mReports, mRoutes),
      mRelay(mDevices, comms)
{
    AUDIT_LOG(Information, "Starting DeviceManager\n");
    comms.Connect(UNIT_MASTER_CONTROL, Routing::ORB_PORT, NetworkPorts::UPDATE_SERVICE);
}

std::optional<std::chrono::milliseconds> DeviceManager::GetIoTimeout(Hid hid) const
{
    if (hid != mDevices.mLocal.Hid) return std::nullopt;
    return mDevices.mLocal.IoTimeout;
}

void DeviceManager::OnDeviceChanged(UINT8GIGEPORT portIndex, std::uint32_t localIp, UINT8GIGEPORT remoteGigE,
                                    std::uint32_t remoteIp, Hid hid, K2Heartbeat::LinkType type)
{
    const Routing::PortsEnum port = ToPort(LinkIndex{portIndex});
    AUDIT_STREAM(Information, "DeviceManager::OnDeviceChanged Hid "
                                  << hid << " Port " << PortText(port) << " Local IP " << AddressText(localIp)
                                  << " Rem IP " << AddressText(remoteIp) << " Link Type " << type << "\n");
    mLinkedDevices.OnLinkChanged(port, {localIp, remoteGigE, remoteIp, hid, type});
}

void DeviceManager::OnKLVStreamChanged(UINT8GIGEPORT number, StreamType type, std::uint32_t address, bool valid)
{
    const Routing::PortsEnum port = ToPortsEnum(number);
    AUDIT_STREAM(Information, "OnKLVStreamChanged Port " << PortText(port) << " Stream " << type << " Valid "
                                                         << FlagText(valid) << "\n");
    if (port == Routing::UNKNOWN_PORT) {
        AUDIT_LOG(Fault, "DeviceManager::OnKLVStreamChanged FAULT\r\n");
        return;
    }
    switch (type) {
    case StreamType::LOCAL_LINK:
        if (port == Routing::ORB_PORT) {
            // Its end does not affect the links: the devices are still in use, and there is no Orb router to report to.
            if (valid) mComms.SendToOrb(RouterInfoReq());
        } else if (IsLinkPort(port)) {
            mLinkedDevices.OnLocalLinkChanged(port, type, valid);
        }
        break;
    case StreamType::MASTER_LINK:
        AUDIT_STREAM(Information, "MasterLinkk Valid " << FlagText(valid) << "\n");
        break;
    case StreamType::SLAVE_LINK:
        mRemoteDiscovery.OnSlaveLinkChanged(port, address, valid);
        break;
    case StreamType::UPDATE_LINK:
        mSoftwareChecks.OnUpdateLinkChanged(valid);
        break;
    default:
        break;
    }
}

void DeviceManager::OnIoInternalsChanged(Hid hid, std::uint32_t bitmap)
{
    AUDIT_STREAM(HardwareDebug, "OnIoInternalsChanged " << hid << " BM " << std::hex << bitmap << "\n");
    if (IsIoHid(hid)) mComms.SendToOrb(IoBoxInternalsCmd(bitmap, hid, std::to_string(hid)));
}

void DeviceManager::OnMasterHidChanged(Hid hid)
{
    const Hid current = mMasterHid.load();
    AUDIT_STREAM(RouterAudioRoute, "DeviceManager::OnMasterHidChanged Current " << current << " New " << hid << "\n");
    if (current != hid) mMasterHid.store(hid);
}

void DeviceManager::ProcessIOCmd(std::shared_ptr<const RouterInfo> command, UINT8GIGEPORT port, StreamType type)
{
    if (IsFromPort(port)) mLocalDiscovery.ProcessIOCmd(*command, ToPortsEnum(port), type);
}

void DeviceManager::OnRemoteIoUpdate(std::shared_ptr<const RemoteIoUpdate> command, UINT8GIGEPORT port, StreamType type)
{
    if (IsFromPort(port)) mRemoteDiscovery.OnRemoteIoUpdate(*command, ToPortsEnum(port), type);
}

void DeviceManager::OnRemoteRouterUpdate(std::shared_ptr<const RemoteRouterUpdate> command, UINT8GIGEPORT port,
                                         StreamType type)
{
    if (IsFromPort(port)) mRemoteDiscovery.OnRemoteRouterUpdate(*command, ToPortsEnum(port), type);
}

void DeviceManager::OnChainLength(std::shared_ptr<const ChainLengthCmd> command, UINT8GIGEPORT port, StreamType)
{
    if (IsLinkPort(ToPortsEnum(port))) mRoutes.AddIoRoute(command->GetAddress(), ToPortsEnum(port));
    mComms.SendToOrb(*command);
}
