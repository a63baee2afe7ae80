#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const DeviceRecord& record)
{
    return out << "Hid " << record.Hid << record.Type << "Pri Link " << FlagText(record.Pri.IsOnline()) << " Sec Link "
               << FlagText(record.Sec.IsOnline());
}

void MarkInternal(DeviceRecord& record)
{
    for (const Side side : BothSides) {
        LinkInfo& link = record.Link(side);
        link.SetOnline(true);
        link.RemoteIp = UNIT_MASTER_CONTROL;
        link.Port = Routing::ORB_PORT;
        link.RemoteGigE = 0;
    }
}
