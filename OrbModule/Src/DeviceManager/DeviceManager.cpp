#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include "Audit/Audit.h"
#include "MiscSource/NetworkPorts.h"
#include "MiscSource/SystemUtilities.h"
#include "OrbModule/Inc/DeviceManager/DeviceListings.h"

#include <utility>

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms)
    : DeviceManager(service, comms, SystemWithStderr, Delays(), Limits())
{}

DeviceManager::DeviceManager(boost::asio::io_service& service, iOrbKLVComms& comms, RunCommand run, Delays delays,
                             Limits limits)
    : mIoService(service),
      mActiveTimer(service),
      mComms(&comms),
      mDevices(limits.remoteDevices, limits.descriptions),
      mCableChecks(service, mDevices, comms, delays.cableCheck, limits.cableChecks),
      mRoutes(std::move(run), mDevices.mHid),
      mRelay(mDevices, comms),
      mDelays(delays)
{
    AUDIT_LOG(Information, "Starting DeviceManager\n");
    mComms->Connect(UNIT_MASTER_CONTROL, Routing::ORB_PORT, NetworkPorts::UPDATE_SERVICE);
}

std::vector<std::uint32_t> DeviceManager::GetInputLinkSlot(Hid hid, AudioPortNumber port) const
{
    return mDevices.GetInputLinkSlot(hid, port);
}

std::vector<std::uint32_t> DeviceManager::GetOutputLinkSlot(Hid hid, AudioPortNumber port) const
{
    return mDevices.GetOutputLinkSlot(hid, port);
}

DevicePorts DeviceManager::GetDevicePorts(Hid hid, UINT8GIGEPORT port) const
{
    return mDevices.GetDevicePorts(hid, port);
}

std::uint32_t DeviceManager::GetSlaveAddress(Hid hid, UINT8GIGEPORT port) const
{
    return mDevices.GetSlaveAddress(hid, port);
}

std::optional<std::chrono::milliseconds> DeviceManager::GetIoTimeout(Hid hid) const
{
    if (hid != mDevices.mLocal.Hid) return std::nullopt;
    return mDevices.mLocal.IoTimeout;
}

void DeviceManager::ShowDevices(bool io) const
{
    DeviceListings::ShowDevices(mDevices, io);
}

void DeviceManager::ShowPortMap(Hid hid) const
{
    DeviceListings::ShowPortMap(mDevices.mLocal, hid);
}

void DeviceManager::SendPing()
{
    mRelay.SendPing();
}

void DeviceManager::ForwardCmd(const DeskCommand& command, UINT8GIGEPORT port, Hid hid)
{
    mRelay.ForwardCmd(command, port, hid);
}

void DeviceManager::ForwardToLocal(const DeskCommand& command, UINT8GIGEPORT port)
{
    mRelay.ForwardToLocal(command, port);
}

void DeviceManager::ForwardUp(const DeskCommand& command, UINT8GIGEPORT port)
{
    mRelay.ForwardUp(command, port);
}

void DeviceManager::ReceivedPingCmd(std::shared_ptr<const OstrelPingCmd> command, UINT8GIGEPORT, StreamType)
{
    mRelay.ReceivedPingCmd(*command);
}

void DeviceManager::ReceivedMcsRequestCmd(std::shared_ptr<const RequestActiveMcsCmd>, UINT8GIGEPORT port, StreamType)
{
    mRelay.ReceivedMcsRequestCmd(port);
}
