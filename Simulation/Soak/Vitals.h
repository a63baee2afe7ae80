#pragma once

#include "Simulation/Stage/ControlChannel.h"

#include <cstddef>
#include <string>

#include <sys/types.h>

namespace soak {

/// What a process holds.
struct Vitals
{
    /// Its most resident memory once the faults are over, program text included.
    static constexpr std::size_t ResidentLimitKiB = 16 * 1024;

    /// What it has allocated and not freed. This shows leaks; the resident size also grows by pages of buffers used
    /// for the first time, and by pages that small blocks keep from being returned.
    std::size_t allocatedKiB = 0;
    std::size_t residentKiB = 0;
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    /// Only if it holds more than it should.
    std::string sockets{};

    static Vitals Of(pid_t process, stage::ControlChannel& control);
    /// As soon as it holds no more than that, or after 20 s.
    static Vitals Settled(pid_t process, stage::ControlChannel& control, const Vitals& wanted);
    /// What is allocated may vary by 5 %.
    bool HasMemoryOf(const Vitals& other) const
    {
        return allocatedKiB * 100 <= other.allocatedKiB * 105 && residentKiB <= ResidentLimitKiB;
    }
    bool HasHandlesOf(const Vitals& other) const
    {
        return threads == other.threads && descriptors == other.descriptors;
    }
    std::string Text() const;

private:
    static std::string ListSockets(pid_t process);
};

} // namespace soak
