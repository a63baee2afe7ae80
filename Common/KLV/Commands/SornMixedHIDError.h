#pragma once

#include "Common/KLV/Command.h"

/// The two link ports see different devices (true), or no longer do.
class SornMixedHIDError : public Command<SornMixedHIDError, 7021>
{
    KLV_COMMAND_FIELDS(SornMixedHIDError, (bool, Active))
};
