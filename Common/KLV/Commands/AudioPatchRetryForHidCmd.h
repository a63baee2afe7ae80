#pragma once

#include "Common/KLV/Command.h"

/// Asks for the patches of a device that has come online to be sent again.
class AudioPatchRetryForHidCmd : public Command<AudioPatchRetryForHidCmd, 835>
{
    KLV_COMMAND_FIELDS(AudioPatchRetryForHidCmd, (Hid, Hid))
};
