#pragma once

#include "MiscSource/Side.h"
#include "OrbModule/Inc/DeviceManager/LinkInfo.h"
#include "OrbModule/Inc/DeviceManager/RateList.h"

#include <cstdint>
#include <iosfwd>

/// What the directory knows of one device. A plain value of the main thread.
class DeviceRecord
{
public:
    DeviceRecord() = default;
    DeviceRecord(::Hid hid, K2Heartbeat::LinkType type, ::Hid owner) : Hid(hid), Type(type), Owner(owner) {}

    ::Hid Hid = INVALID_HID;
    K2Heartbeat::LinkType Type = K2Heartbeat::K2_NO_TYPE;
    LinkInfo Pri;
    LinkInfo Sec;
    SampleRates::SystemSampleRate SampleRate = SampleRates::RATE_48K;
    RateList SampleRates;
    /// The router that reported the device; for a router, its own identity.
    ::Hid Owner = INVALID_HID;

    LinkInfo& Link(Side side) { return IsPrimary(side) ? Pri : Sec; }
    const LinkInfo& Link(Side side) const { return IsPrimary(side) ? Pri : Sec; }
    bool IsOnline(Side side) const { return Link(side).IsOnline(); }
    void SetOnline(Side side, bool online) { Link(side).SetOnline(online); }
    bool IsOffline() const { return !Pri.IsOnline() && !Sec.IsOnline(); }
    /// The primary's remote address if that link is online, else the secondary's; host order.
    std::uint32_t ActiveRemoteIp() const { return Pri.IsOnline() ? Pri.RemoteIp : Sec.RemoteIp; }
    bool IsIoDevice() const { return K2Heartbeat::IsIoDevice(Type); }
    bool IsRoutingDevice() const { return K2Heartbeat::IsRoutingDevice(Type); }
};
/// For the Orb router and its internal I/O, which are heard on no link: both links are online, on port 0.
void MarkInternal(DeviceRecord& record);
/// "Hid 1.2:8000 KorvoHubPri Link true Sec Link false"
std::ostream& operator<<(std::ostream& out, const DeviceRecord& record);
