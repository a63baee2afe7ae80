#include "Common/KLV/Commands/DeviceCheckResultsCmd.h"

#include <array>

const char* DeviceCheckResultsCmd::GetResultText() const
{
    constexpr std::array<const char*, 5> Texts = {"UPTODATE", "FAILEDTOUPDATE", "REQUIRESREBOOT", "FAILEDTOCHECK",
                                                  "REBOOTED"};
    return mResult < Texts.size() ? Texts[mResult] : "Unknown";
}
