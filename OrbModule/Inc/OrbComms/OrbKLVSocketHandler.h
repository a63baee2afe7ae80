#pragma once

#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "Sockets/SocketHandler.h"

/// The socket handler of the KLV streams: how a stream finds its way to the comms and to the command processor. It
/// reads no faster than the main thread can follow.
class OrbKLVSocketHandler : public SocketHandler
{
public:
    OrbKLVSocketHandler(HandlerMutex& mutex, iOrbKLVComms& comms, OrbCommandProcessor& processor)
        : SocketHandler(mutex), mComms(&comms), mProcessor(&processor)
    {}

    iOrbKLVComms& GetComms() const { return *mComms; }
    OrbCommandProcessor& GetProcessor() const { return *mProcessor; }

protected:
    bool IsReadingHeld() override { return mProcessor->GetPostedWork().IsFull(); }

private:
    iOrbKLVComms* const mComms;
    OrbCommandProcessor* const mProcessor;
};
