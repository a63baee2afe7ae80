#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>

/// Gives the system back, every ten seconds, what a burst has left free in the heap. The allocator itself would
/// keep all memory below a block that is still in use. Lives on the main service, which must not run any more
/// when it dies.
class HeapTrim
{
public:
    explicit HeapTrim(boost::asio::io_service& service) : mTimer(service) { Start(); }

private:
    void Start();

    boost::asio::steady_timer mTimer;
};
