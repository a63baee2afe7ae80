#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>
#include <vector>

/// Where a device is heard: this module's port, and the number of the gigabit port at the remote end, 0xFF if unknown.
struct DevicePorts
{
    Routing::PortsEnum local = Routing::UNKNOWN_PORT;
    UINT8GIGEPORT remote = UNKNOWN_GIGE_PORT;

    bool IsValid() const { return local != Routing::UNKNOWN_PORT; }
};

/// The device directory as the patch side sees it. Main thread only.
class iDevices
{
public:
    virtual ~iDevices() = default;

    /// Whether the device is known and online on the link of this port.
    virtual bool IsDeviceOnline(Hid hid, Routing::PortsEnum port) const = 0;
    /// Whether this is the I/O box that is plugged straight into a link.
    virtual bool IsLocalIo(Hid hid) const = 0;
    /// Whether this is the Orb router's internal I/O or anything else of the module's own rack.
    virtual bool IsOwnDevice(Hid hid) const = 0;
    /// TDM slots at which the local box delivers (inputs) or takes (outputs) an audio port; empty if unknown.
    virtual std::vector<std::uint32_t> GetInputLinkSlot(Hid hid, AudioPortNumber port) const = 0;
    virtual std::vector<std::uint32_t> GetOutputLinkSlot(Hid hid, AudioPortNumber port) const = 0;
    /// Where a device is heard on the link of this port; not valid if it is not.
    virtual DevicePorts GetDevicePorts(Hid hid, Routing::PortsEnum port) const = 0;
    /// Address of the data link to the router that reported this device, host order.
    virtual std::uint32_t GetSlaveAddress(Hid hid, Routing::PortsEnum port) const = 0;
};
