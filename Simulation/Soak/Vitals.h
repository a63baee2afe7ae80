#pragma once

#include <cstddef>
#include <string>

#include <sys/types.h>

/// What a process holds.
struct Vitals
{
    std::size_t residentKiB = 0;
    /// What of it is no program text.
    std::size_t anonymousKiB = 0;
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    /// Only if it holds more than it should.
    std::string sockets{};

    static Vitals Of(pid_t process);
    /// As soon as it holds no more than that, or after 20 s.
    static Vitals Settled(pid_t process, const Vitals& wanted);
    /// Memory may vary by 5 %.
    bool HasMemoryOf(const Vitals& other) const { return residentKiB * 100 <= other.residentKiB * 105; }
    bool HasHandlesOf(const Vitals& other) const
    {
        return threads == other.threads && descriptors == other.descriptors;
    }
    std::string Text() const;

private:
    static std::string ListSockets(pid_t process);
};
