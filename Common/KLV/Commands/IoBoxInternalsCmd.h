#pragma once

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>

/// Word of the internal state of a box; the HID also stands as a decimal text.
class IoBoxInternalsCmd : public ForwardableCommand<IoBoxInternalsCmd, 844>
{
    KLV_COMMAND_FIELDS(IoBoxInternalsCmd, (std::uint32_t, Bitmap), (Hid, Hid), (std::string, HidText))
};
