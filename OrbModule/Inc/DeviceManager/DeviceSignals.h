#pragma once

#include "MiscSource/GlobalConstants.h"

#include <boost/asio/io_service.hpp>
#include <boost/signals2/signal.hpp>

/// What the rest of the module learns of devices. The signals are fired by post, so that no subscriber runs before the
/// tables are changed. Main thread.
class DeviceSignals
{
public:
    explicit DeviceSignals(boost::asio::io_service& service) : mIoService(service) {}

    boost::signals2::signal<void(Hid hid, UINT8GIGEPORT port, bool online, StreamType type)> DeviceChange;
    boost::signals2::signal<void(Hid hid)> LocalHidChanged;
    boost::signals2::signal<void(bool connected)> NetworkConnectionChanged;

    void PostDeviceChange(Hid hid, Routing::PortsEnum port, bool online, StreamType type)
    {
        const Hid reported = IsIoHid(hid) ? hid : MakeNodeHid(hid);
        mIoService.post([this, reported, port, online, type] { DeviceChange(reported, port, online, type); });
    }
    void PostLocalHid(Hid hid)
    {
        mIoService.post([this, hid] { LocalHidChanged(hid); });
    }
    void PostNetworkConnection(bool connected)
    {
        mIoService.post([this, connected] { NetworkConnectionChanged(connected); });
    }

private:
    boost::asio::io_service& mIoService;
};
