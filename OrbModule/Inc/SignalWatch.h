#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/signal_set.hpp>

#include <thread>

/// Stops the main service on SIGINT or SIGTERM. It waits on its own thread, so that a full queue of the main
/// service, such as a flood of reports, does not delay the end.
class SignalWatch
{
public:
    explicit SignalWatch(boost::asio::io_service& mainService);
    ~SignalWatch();

private:
    boost::asio::io_service mService;
    boost::asio::signal_set mSignals;
    std::thread mThread;
};
