#include "OrbModule/Inc/DeviceManager/DeviceSignals.h"

void DeviceSignals::PostDeviceChange(Hid hid, Routing::PortsEnum port, bool online, StreamType type)
{
    const Hid reported = IsIoHid(hid) ? hid : MakeNodeHid(hid);
    mIoService.post([this, reported, port, online, type] { DeviceChange(reported, port, online, type); });
}

void DeviceSignals::PostLocalHid(Hid hid)
{
    mIoService.post([this, hid] { LocalHidChanged(hid); });
}

void DeviceSignals::PostNetworkConnection(bool connected)
{
    mIoService.post([this, connected] { NetworkConnectionChanged(connected); });
}
