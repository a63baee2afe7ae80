#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// Result of the software check of one device, which is named by its dotted address.
class DeviceCheckResultsCmd : public Command<DeviceCheckResultsCmd, 6001>
{
public:
    static constexpr std::uint8_t UP_TO_DATE = 0;

    /// "UPTODATE" and its like, "Unknown" for a result that is none.
    const char* GetResultText() const;

    KLV_COMMAND_FIELDS(DeviceCheckResultsCmd, (std::string, Address), (std::uint8_t, Result))
};
