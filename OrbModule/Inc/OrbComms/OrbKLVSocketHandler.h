#pragma once

#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "Sockets/SocketHandler.h"

class OrbCommandProcessor;

/// The socket handler of the KLV streams: how a stream finds its way to the comms and to the command processor.
class OrbKLVSocketHandler : public SocketHandler
{
public:
    OrbKLVSocketHandler(HandlerMutex& mutex, iOrbKLVComms& comms, OrbCommandProcessor& processor)
        : SocketHandler(mutex), mComms(&comms), mProcessor(&processor)
    {}

    iOrbKLVComms& GetComms() const { return *mComms; }
    OrbCommandProcessor& GetProcessor() const { return *mProcessor; }

private:
    iOrbKLVComms* const mComms;
    OrbCommandProcessor* const mProcessor;
};
