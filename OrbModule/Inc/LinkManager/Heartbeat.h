#pragma once

#include "MiscSource/Hid.h"

#include <atomic>
#include <boost/asio.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>

/// The module heartbeat: once a second, 5 bytes to the master control, which say that the module lives and which master
/// router it follows. It has its own thread and service, since it must leave on time while the main thread is busy. A
/// failed send ends it.
class Heartbeat
{
public:
    /// The message: its number in the first byte, then the HID of the master, little-endian.
    static constexpr std::uint8_t MESSAGE_TYPE = 150;
    static constexpr std::size_t MESSAGE_SIZE = 5;

    using Endpoint = boost::asio::ip::udp::endpoint;

    /// @throws std::runtime_error that names the local endpoint and what to do if it cannot be bound.
    explicit Heartbeat(const Endpoint& local = UnitEndpoint(UNIT_MODULE),
                       const Endpoint& destination = UnitEndpoint(UNIT_MASTER_CONTROL),
                       std::chrono::milliseconds period = std::chrono::seconds(1));
    ~Heartbeat();

    /// The next heartbeat carries this. Any thread.
    void SetMasterHid(Hid hid) { mMasterHid.store(hid); }

    /// Heartbeat endpoint of a node of the unit's internal network.
    static Endpoint UnitEndpoint(Hid node);

private:
    void StartTimer();
    void OnTimer(const boost::system::error_code& error);
    bool Send();

    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
    boost::asio::ip::udp::socket mSocket;
    boost::asio::steady_timer mTimer;
    const Endpoint mDestination;
    const std::chrono::milliseconds mPeriod;
    std::atomic<std::uint32_t> mMasterHid{INVALID_HID};
    std::thread mThread;
};
