#pragma once

#include "Common/KLV/Command.h"

/// Source of a Dolby E module; the box of the destination is meant.
class SetDolbyEModuleSource : public Command<SetDolbyEModuleSource, 818>
{
    KLV_COMMAND_FIELDS(SetDolbyEModuleSource, (IoPort, Source), (IoPort, Destination))
};
