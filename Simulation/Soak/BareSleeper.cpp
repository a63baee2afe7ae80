#include "Simulation/Soak/BareSleeper.h"

#include <algorithm>

namespace soak {

using std::chrono::milliseconds;

BareSleeper::BareSleeper()
{
    mThread = std::thread([this] { Run(); });
}

BareSleeper::~BareSleeper()
{
    mRunning = false;
    mThread.join();
}

milliseconds BareSleeper::GetLateness(std::chrono::seconds within) const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    milliseconds longest{0};
    for (const auto& [at, late] : mLate) {
        if (Clock::now() - at < within) longest = std::max(longest, late);
    }
    return longest;
}

void BareSleeper::Run()
{
    constexpr milliseconds Step(50);
    constexpr std::size_t Remembered = 1000;
    while (mRunning) {
        const auto due = Clock::now() + Step;
        std::this_thread::sleep_until(due);
        const auto late = std::chrono::duration_cast<milliseconds>(Clock::now() - due);
        if (late < LATE) continue;
        const std::lock_guard<std::mutex> lock(mMutex);
        mLate.emplace_back(Clock::now(), late);
        if (mLate.size() > Remembered) mLate.pop_front();
    }
}

} // namespace soak
