#include "FSI/Core/UioInterruptController.h"

#include "Audit/Audit.h"
#include "MiscSource/FatalAssert.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace fsi {

namespace {
constexpr int PollTimeoutMs = 1000;
constexpr std::chrono::milliseconds RetryDelay{100};
} // namespace

UioInterruptController::UioInterruptController(boost::asio::io_service& service,
                                               const std::vector<std::shared_ptr<Interruptable>>& devices)
    : mIoService(service), mDevices(devices), mWake(::eventfd(0, EFD_CLOEXEC))
{
    FATAL_ASSERT(!mDevices.empty(), "!mDevices.empty()");
    if (mWake == -1) throw std::system_error(errno, std::generic_category(), "UioInterruptController eventfd");
    mThread = std::thread([this] { Run(); });
}

UioInterruptController::~UioInterruptController()
{
    mRunning = false;
    const std::uint64_t one = 1;
    // Should the write fail, the thread still looks at the flag once a second.
    [[maybe_unused]] const ssize_t written = ::write(mWake, &one, sizeof one);
    mThread.join();
    ::close(mWake);
}

void UioInterruptController::Run()
{
    std::vector<pollfd> polled;
    for (const std::shared_ptr<Interruptable>& device : mDevices)
        polled.push_back({device->GetFileDescriptor(), POLLIN, 0});
    polled.push_back({mWake, POLLIN, 0});

    int lastError{};
    while (mRunning) {
        const int ready = ::poll(polled.data(), polled.size(), PollTimeoutMs);
        const int error = ready < 0 && errno != EINTR ? errno : 0;
        if (error != 0) {
            if (error != lastError) AUDIT_LOG(Fault, "UioInterruptController poll failed: %s\n", std::strerror(error));
            std::this_thread::sleep_for(RetryDelay);
        }
        lastError = error;
        if (ready < 1 || !mRunning) continue;
        for (std::size_t i = 0; i < mDevices.size(); ++i) {
            const short events = polled[i].revents;
            const bool good = (events & POLLIN) != 0 ? Take(mDevices[i], polled[i].fd) : events == 0;
            if (!good) {
                AUDIT_LOG(Fault, "UioInterruptController lost the interrupts of block '%s'\n",
                          mDevices[i]->GetName().c_str());
                // Poll skips a negative descriptor; with one in error it would never wait again.
                polled[i].fd = -1;
            }
        }
    }
}

bool UioInterruptController::Take(const std::shared_ptr<Interruptable>& device, int descriptor)
{
    std::uint32_t count{};
    const ssize_t length = ::read(descriptor, &count, sizeof count);
    if (length < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    if (length != static_cast<ssize_t>(sizeof count)) return false;
    mIoService.post([weak = std::weak_ptr<Interruptable>(device)] {
        if (const std::shared_ptr<Interruptable> target = weak.lock()) target->DispatchInterrupts();
    });
    return true;
}

} // namespace fsi
