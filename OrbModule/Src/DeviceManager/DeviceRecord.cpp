#include "OrbModule/Inc/DeviceManager/DeviceRecord.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <sstream>

std::string RatesText(const RateList& rates)
{
    std::ostringstream text;
    for (const SampleRates::SystemSampleRate rate : rates)
        text << rate << ' ';
    return text.str();
}

RateList FirstRates(const RateList& rates)
{
    constexpr std::size_t Most = 16;
    return RateList(rates.begin(), rates.begin() + static_cast<std::ptrdiff_t>(std::min(rates.size(), Most)));
}

std::ostream& operator<<(std::ostream& out, const DeviceRecord& record)
{
    return out << "Hid " << record.Hid << record.Type << "Pri Link " << FlagText(record.Pri.IsOnline()) << " Sec Link "
               << FlagText(record.Sec.IsOnline());
}
