#include "OrbModule/Inc/OrbComms/CommandSignals.h"

#define ORB_DEFINE_SIGNAL(Class, Way) ORB_SIGNAL_##Way(, Class)
KLV_COMMANDS(ORB_DEFINE_SIGNAL)
