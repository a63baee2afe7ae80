#pragma once

#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/iStreamRegistry.h"
#include "Sockets/SocketHandler.h"

/// The socket handler of the KLV streams: how a stream finds its way to its registry and to the command processor. It
/// reads no faster than the main thread can follow.
class OrbKLVSocketHandler : public SocketHandler
{
public:
    OrbKLVSocketHandler(HandlerMutex& mutex, iStreamRegistry& comms, OrbCommandProcessor& processor)
        : SocketHandler(mutex), mComms(&comms), mProcessor(&processor)
    {}

    iStreamRegistry& GetComms() const { return *mComms; }
    OrbCommandProcessor& GetProcessor() const { return *mProcessor; }

protected:
    bool IsReadingHeld() override { return mProcessor->GetPostedWork().IsFull(); }

private:
    iStreamRegistry* const mComms;
    OrbCommandProcessor* const mProcessor;
};
