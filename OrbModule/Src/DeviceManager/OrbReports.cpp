#include "OrbModule/Inc/DeviceManager/OrbReports.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "OrbModule/Inc/DeviceManager/CableChecks.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/DeviceManager/DeviceSignals.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

void OrbReports::DeviceStateChange(Hid hid, Routing::PortsEnum port, bool online, StreamType type)
{
    const Side side = ToSide(port);
    AUDIT_STREAM(IODiscovery, "DeviceStateChange " << hid << " GigE " << PortText(port)
                                                   << (online ? " Online\r\n" : " Offline\r\n"));
    mSignals.PostDeviceChange(hid, port, online, type);
    mComms.SendToOrb(RemoteCableStateCmd(hid, IsPrimary(side), online));
    if (!mDevices.LinkOnline(hid, OtherSide(side))) {
        if (online) {
            mCableChecks.Start(hid, OtherSide(side));
        } else {
            mComms.SendToOrb(RemoteCableStateCmd(hid, !IsPrimary(side), false));
        }
    }
    if (DeviceRecord* record = mDevices.GetDeviceRecord(hid)) {
        record->SetOnline(side, online);
        record->Link(side).DescriptionPending = false;
    }
}

void OrbReports::ReportRemoteGone(K2Heartbeat::LinkType type, Hid hid)
{
    if (K2Heartbeat::IsRoutingDevice(type)) {
        mComms.SendToOrb(RemoteRouterUpdate(ToRemoteDeviceType(type), hid, 0, 0));
    } else if (K2Heartbeat::IsIoDevice(type)) {
        mComms.SendToOrb(RemoteIoUpdate(ToRemoteDeviceType(type), hid, 0, mDevices.mHid));
    }
}
