#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <cstdint>

/// Description of a routing device.
class RouterInfo : public Command<RouterInfo, 825, 1>
{
    KLV_COMMAND_FIELDS(RouterInfo, (Hid, Hid), (RemoteDeviceType, Type), (std::int32_t, Inputs),
                       (std::int32_t, Outputs), (std::uint32_t, Reserved))
};
