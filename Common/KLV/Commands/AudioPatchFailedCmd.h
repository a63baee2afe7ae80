#pragma once

#include "Common/KLV/Command.h"

/// A patch could not be delivered.
class AudioPatchFailedCmd : public Command<AudioPatchFailedCmd, 834>
{
    KLV_COMMAND_FIELDS(AudioPatchFailedCmd, (IoPort, Source), (IoPort, Dest))
};
