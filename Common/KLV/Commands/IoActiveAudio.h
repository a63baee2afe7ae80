#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>

/// A box tells which link its audio follows.
class IoActiveAudio : public Command<IoActiveAudio, 807>
{
    KLV_COMMAND_FIELDS(IoActiveAudio, (Hid, Hid), (std::int16_t, Param1))
};
