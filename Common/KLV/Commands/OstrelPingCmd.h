#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// A ping, or its reply with the address of the replying side and its counts of patches and destinations.
class OstrelPingCmd : public Command<OstrelPingCmd, 839>
{
    KLV_COMMAND_FIELDS(OstrelPingCmd, (std::string, Name), (std::uint32_t, PatchCount), (std::uint32_t, TotalDests))
};
