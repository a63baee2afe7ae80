#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"

#include "Audit/Audit.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <string>
#include <sys/time.h>

namespace {

constexpr std::uint32_t AllowedDifference = 5;
/// Anybody can send times that change without end. Each change that is logged takes three lines.
constexpr std::uint32_t LoggedChangesInSecond = 3;

// Network times run to 2106. On the 32-bit target the C library supports them only on request.
static_assert(sizeof(std::time_t) == 8, "build with _TIME_BITS=64");

/// With a line feed at the end.
std::string TimeText(std::time_t time)
{
    std::tm local{};
    char text[64];
    if (!localtime_r(&time, &local) || !asctime_r(&local, text)) return "\n";
    return text;
}

} // namespace

std::optional<std::int32_t> HardwareManager::ComputeOffset(std::uint32_t system, std::int32_t offset,
                                                           std::uint32_t network)
{
    const std::uint32_t now = system + static_cast<std::uint32_t>(offset);
    const std::uint32_t difference = now > network ? now - network : network - now;
    if (difference <= AllowedDifference) return std::nullopt;
    // The two words differ by up to 136 years, an offset holds 68.
    const double seconds = std::difftime(network, system);
    return static_cast<std::int32_t>(std::clamp<double>(seconds, std::numeric_limits<std::int32_t>::min(),
                                                        std::numeric_limits<std::int32_t>::max()));
}

/// Of further changes in the same second there is only their number, with the first change after it.
bool HardwareManager::CountChange(TimePoint now)
{
    if (now - mSecondStart >= std::chrono::seconds(1)) {
        if (mChangesInSecond > LoggedChangesInSecond) {
            AUDIT_LOG(Information, "HardwareManager NetworkTimeMessage - %u changes not logged\r\n",
                      mChangesInSecond - LoggedChangesInSecond);
        }
        mSecondStart = now;
        mChangesInSecond = 0;
    }
    return ++mChangesInSecond <= LoggedChangesInSecond;
}

void HardwareManager::OnNetworkTimeMessage(std::shared_ptr<const NetworkTimeMessage> message)
{
    timeval system{};
    if (gettimeofday(&system, nullptr) != 0) return;
    Audit* const audit = Audit::Instance();
    const std::int32_t oldOffset = audit->GetTimeOffset();
    const std::uint32_t network = message->GetTime();
    const auto offset = ComputeOffset(static_cast<std::uint32_t>(system.tv_sec), oldOffset, network);
    if (!offset) return;
    if (!CountChange(mClock())) {
        audit->SetTimeOffset(*offset);
        return;
    }

    AUDIT_LOG(Information, "HardwareManager NetworkTimeMessage - Old time was %s\r",
              TimeText(std::time(nullptr) + oldOffset).c_str());
    AUDIT_LOG(Information, "HardwareManager NetworkTimeMessage - New time  is %s\r", TimeText(network).c_str());
    audit->SetTimeOffset(*offset);
    AUDIT_LOG(Information, "HardwareManager NetworkTimeMessage - Offset %d Added to Audit\r\n", *offset);
}
