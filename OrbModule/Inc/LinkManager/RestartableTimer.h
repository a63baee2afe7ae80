#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <utility>

/// A timer whose handler runs for its last start only, and not at all once it is cancelled, also if its expiry was
/// already queued then. It belongs to the thread of its service.
class RestartableTimer
{
public:
    explicit RestartableTimer(boost::asio::io_service& service) : mTimer(service) {}

    /// @param handler gets the error of the wait, if there is one.
    template <class Handler>
    void Start(std::chrono::milliseconds wait, Handler handler)
    {
        mTimer.expires_from_now(wait);
        mTimer.async_wait(
            [this, start = ++mStart, handler = std::move(handler)](const boost::system::error_code& error) {
                // The timer may be gone.
                if (error == boost::asio::error::operation_aborted) return;
                if (start == mStart) handler(error);
            });
    }
    boost::system::error_code Cancel()
    {
        ++mStart;
        boost::system::error_code error;
        mTimer.cancel(error);
        return error;
    }

private:
    boost::asio::steady_timer mTimer;
    std::uint32_t mStart{};
};
