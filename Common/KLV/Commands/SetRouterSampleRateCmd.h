#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <cstdint>

/// Sets the sample rate of the system.
class SetRouterSampleRateCmd : public Command<SetRouterSampleRateCmd, 674>
{
    KLV_COMMAND_FIELDS(SetRouterSampleRateCmd, (SampleRates::SystemSampleRate, SampleRate), (std::uint32_t, Param))
};
