#include "OrbModule/Inc/DeviceManager/RateList.h"

#include <algorithm>
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
    return RateList(rates.begin(), rates.begin() + static_cast<std::ptrdiff_t>(std::min(rates.size(), MaxRates)));
}
