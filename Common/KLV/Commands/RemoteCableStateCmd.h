#pragma once

#include "Common/KLV/Command.h"

/// One link of a device has changed state.
class RemoteCableStateCmd : public Command<RemoteCableStateCmd, 893>
{
    KLV_COMMAND_FIELDS(RemoteCableStateCmd, (Hid, Hid), (bool, Primary), (bool, Online))
};
