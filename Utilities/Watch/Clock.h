#pragma once

#include "Utilities/Watch/LogStore.h"

#include <boost/asio/basic_waitable_timer.hpp>

#include <chrono>

namespace watch {

/// The time by which everything here waits, except for the connections of browsers. The functions are defined where a
/// program is put together: SystemClock.cpp takes the machine's time, and a test has its own.
struct Clock
{
    using duration = std::chrono::steady_clock::duration;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<Clock>;
    static constexpr bool is_steady = true;

    static time_point now();
};

using Timer = boost::asio::basic_waitable_timer<Clock>;

Milliseconds NowMs();

} // namespace watch
