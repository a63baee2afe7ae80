#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <ostream>

std::ostream& operator<<(std::ostream& out, const DeviceRecord& record)
{
    return out << "Hid " << record.Hid << record.Type << "Pri Link " << FlagText(record.Pri.IsOnline()) << " Sec Link "
               << FlagText(record.Sec.IsOnline());
}
