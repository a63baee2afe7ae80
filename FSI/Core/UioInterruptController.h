#pragma once

#include "FSI/Core/Interruptable.h"

#include <atomic>
#include <boost/asio/io_service.hpp>
#include <memory>
#include <thread>
#include <vector>

namespace fsi {

/// Carries the interrupts of the devices to the main thread: owns the interrupt thread, which polls their
/// descriptors, takes the event counts, and posts the dispatch. A device whose descriptor fails is left out from then
/// on, with a Fault line; a poll that fails is tried again.
class UioInterruptController
{
public:
    /// Starts the thread.
    /// @param devices at least one; held for the controller's life
    UioInterruptController(boost::asio::io_service& service,
                           const std::vector<std::shared_ptr<Interruptable>>& devices);
    /// Wakes and joins the thread. What was posted and has not run yet does nothing once its device is gone.
    ~UioInterruptController();

private:
    void Run();
    /// False if the descriptor is of no more use.
    bool Take(const std::shared_ptr<Interruptable>& device, int descriptor);

    boost::asio::io_service& mIoService;
    const std::vector<std::shared_ptr<Interruptable>> mDevices;
    std::atomic<bool> mRunning{true};
    /// An eventfd that polls readable when the thread shall end.
    const int mWake;
    std::thread mThread;
};

} // namespace fsi
