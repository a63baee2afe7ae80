#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <cstdint>

/// A routing device has appeared, or has gone if the address of its data link (host order) is 0.
class RemoteRouterUpdate : public Command<RemoteRouterUpdate, 827, 1>
{
    KLV_COMMAND_FIELDS(RemoteRouterUpdate, (RemoteDeviceType, Type), (Hid, Hid), (std::uint32_t, Address), (Hid, Owner))
};
