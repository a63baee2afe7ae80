#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <ostream>
#include <sstream>

std::string RatesText(const RateList& rates)
{
    std::ostringstream text;
    for (const SampleRates::SystemSampleRate rate : rates)
        text << rate << ' ';
    return text.str();
}

std::ostream& operator<<(std::ostream& out, const DeviceRecord& record)
{
    return out << "Hid " << record.Hid << record.Type << "Pri Link " << FlagText(record.Pri.IsOnline()) << " Sec Link "
               << FlagText(record.Sec.IsOnline());
}
