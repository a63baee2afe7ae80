#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"
#include "OrbModule/Inc/DeviceManager/LinkReport.h"
#include "OrbModule/Inc/DeviceManager/LocalDevice.h"
#include "OrbModule/Inc/DeviceManager/RemoteDevices.h"
#include "OrbModule/Inc/DeviceManager/iDevices.h"

#include <array>
#include <cstddef>
#include <vector>

/// What is known of the audio network, with its queries. The parts of DeviceManager share one. Main thread.
class DeviceDirectory final : public iDevices
{
public:
    DeviceDirectory(std::size_t remoteDevices, DeviceInfoStorage::Limits descriptions)
        : mRemote(remoteDevices), mDeviceInfo(descriptions)
    {}

    bool IsDeviceOnline(Hid hid, Routing::PortsEnum port) const override;
    bool IsLocalIo(Hid hid) const override { return hid == mLocal.Hid && IsIoHid(hid); }
    bool IsOwnDevice(Hid hid) const override { return hid == mOrbIoHid || GetRackId(hid) == GetRackId(mHid); }
    std::vector<std::uint32_t> GetInputLinkSlot(Hid hid, AudioPortNumber port) const override;
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid hid, AudioPortNumber port) const override;
    DevicePorts GetDevicePorts(Hid hid, Routing::PortsEnum port) const override;
    std::uint32_t GetSlaveAddress(Hid hid, Routing::PortsEnum port) const override
    {
        return GetPortAddress(GetOwner(hid), port);
    }

    DeviceRecord* GetDeviceRecord(Hid hid) { return hid == mLocal.Hid ? &mLocal : mRemote.Find(hid); }
    const DeviceRecord* GetDeviceRecord(Hid hid) const { return hid == mLocal.Hid ? &mLocal : mRemote.Find(hid); }
    bool LinkOnline(Hid hid, Side side) const;
    /// The router that reported a remote device; INVALID_HID if it is unknown or local.
    Hid GetOwner(Hid hid) const;
    /// Whether another device than the local one is at the end of a cable.
    bool IsOtherOn(Side side) const;

    /// The module's own identity and its internal I/O, once the Orb router has named them.
    Hid mHid = INVALID_HID;
    Hid mOrbIoHid = INVALID_HID;
    LocalDevice mLocal;
    RemoteDevices mRemote;
    DeviceInfoStorage mDeviceInfo;
    /// A router, not a hub, is the local device.
    bool mRouterConnected = false;
    /// By port.
    std::array<LinkReport, Routing::PORT_COUNT> mLinks{};
};
