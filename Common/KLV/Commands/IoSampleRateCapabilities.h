#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <vector>

/// Current and supported sample rates of a device.
class IoSampleRateCapabilities : public Command<IoSampleRateCapabilities, 874>
{
public:
    using RateList = std::vector<SampleRates::SystemSampleRate>;

    KLV_COMMAND_FIELDS(IoSampleRateCapabilities, (Hid, Hid), (SampleRates::SystemSampleRate, SampleRate),
                       (RateList, SampleRates))
};
