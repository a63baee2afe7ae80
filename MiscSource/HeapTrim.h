#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>

/// Returns free heap memory to the system every ten seconds. The allocator itself would keep all memory below a block
/// that is still in use. Runs on the main service, which must have stopped when this object is destroyed.
class HeapTrim
{
public:
    explicit HeapTrim(boost::asio::io_service& service) : mTimer(service) { Start(); }

private:
    void Start();

    boost::asio::steady_timer mTimer;
};
