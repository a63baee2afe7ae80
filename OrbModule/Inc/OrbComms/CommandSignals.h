#pragma once

// To connect a slot to a command compiles that command's whole signal. CommandSignals.cpp does it once for all
// commands, and who includes this header relies on it.

#include "Common/KLV/Commands/Commands.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"

#define ORB_SIGNAL_Sent(LINKAGE, Class)
#define ORB_SIGNAL_Received(LINKAGE, Class)                                                                            \
    LINKAGE template boost::signals2::connection OrbCommandProcessor::Connect<Class>(                                  \
        const OrbCommandProcessor::Signal<Class>::slot_type&);
#define ORB_SIGNAL_Both(LINKAGE, Class) ORB_SIGNAL_Received(LINKAGE, Class)

#define ORB_DECLARE_SIGNAL(Class, Way) ORB_SIGNAL_##Way(extern, Class)
KLV_COMMANDS(ORB_DECLARE_SIGNAL)
#undef ORB_DECLARE_SIGNAL
