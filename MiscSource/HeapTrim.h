#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>

/// Returns free heap memory to the system every ten seconds. The allocator itself would keep all memory below a block
/// that is still in use. Runs on the main service, which must have stopped when this object is destroyed.
class HeapTrim
{
public:
    explicit HeapTrim(boost::asio::io_service& service, std::chrono::milliseconds period = std::chrono::seconds(10))
        : mTimer(service), mPeriod(period)
    {
        Start();
    }

private:
    void Start();

    boost::asio::steady_timer mTimer;
    const std::chrono::milliseconds mPeriod;
};
