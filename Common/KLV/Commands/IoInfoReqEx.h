#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// Extended form of the request for a description.
class IoInfoReqEx : public Command<IoInfoReqEx, 877>
{
    KLV_COMMAND_FIELDS(IoInfoReqEx, (std::uint32_t, Revision))
};
