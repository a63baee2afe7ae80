#include "OrbModule/Inc/SignalWatch.h"

#include <csignal>

SignalWatch::SignalWatch(boost::asio::io_service& mainService) : mSignals(mService, SIGINT, SIGTERM)
{
    mSignals.async_wait([&mainService](const boost::system::error_code& error, int) {
        if (!error) mainService.stop();
    });
    mThread = std::thread([this] { mService.run(); });
}

SignalWatch::~SignalWatch()
{
    mService.stop();
    mThread.join();
}
