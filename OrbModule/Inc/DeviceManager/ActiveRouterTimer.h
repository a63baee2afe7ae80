#pragma once

#include "MiscSource/Side.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>

class iOrbKLVComms;

/// Tells a box which link carries the active router: the primary at once, the secondary after a while. Main thread.
class ActiveRouterTimer
{
public:
    ActiveRouterTimer(boost::asio::io_service& service, iOrbKLVComms& comms, std::chrono::milliseconds secondaryDelay)
        : mActiveTimer(service), mComms(comms), mSecondaryDelay(secondaryDelay)
    {}

    void DoActiveAudio(Side side);

private:
    boost::asio::steady_timer mActiveTimer;
    iOrbKLVComms& mComms;
    std::chrono::milliseconds mSecondaryDelay;
};
