#pragma once

#include "MiscSource/Side.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/error_code.hpp>

#include <chrono>
#include <cstddef>
#include <list>

class DeviceDirectory;
class iOrbKLVComms;

/// Looks for the other cable of a device that has come up on one: the Orb router learns that it is down if it has not
/// come up in time. Main thread.
class CableChecks
{
public:
    /// @param limit the most that may be pending; further ones are left out.
    CableChecks(boost::asio::io_service& service, const DeviceDirectory& devices, iOrbKLVComms& comms,
                std::chrono::milliseconds delay, std::size_t limit)
        : mIoService(service), mDevices(devices), mComms(comms), mDelay(delay), mLimit(limit)
    {}

    /// @param other the side to look at.
    void Start(Hid hid, Side other);

private:
    struct CableCheck
    {
        Hid hid;
        Side other;
        boost::asio::steady_timer timer;
    };
    using Pending = std::list<CableCheck>;
    void DelayedCableCheck(const boost::system::error_code& error, Pending::iterator check);

    boost::asio::io_service& mIoService;
    const DeviceDirectory& mDevices;
    iOrbKLVComms& mComms;
    std::chrono::milliseconds mDelay;
    std::size_t mLimit;
    Pending mCableChecks;
    bool mLimitReported = false;
};
