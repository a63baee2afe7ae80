#pragma once

// OrbCommandProcessor::Connect for every received command, compiled once in CommandSignals.cpp: each takes two seconds,
// which every source that connects slots would take again without this header.

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
