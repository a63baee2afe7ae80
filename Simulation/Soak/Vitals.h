#pragma once

#include "Simulation/Soak/Findings.h"

#include <cstddef>
#include <string>

#include <sys/types.h>

/// What a process holds.
struct Vitals
{
    std::size_t residentKiB = 0;
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    /// Only if it holds more than it should.
    std::string sockets{};

    static Vitals Of(pid_t process);
    /// As soon as it holds no more than that, or after 20 s.
    static Vitals Settled(pid_t process, const Vitals& wanted);
    /// Memory may vary by 5 %.
    bool IsNoMoreThan(const Vitals& other) const;
    std::string Text() const;

private:
    static std::string ListSockets(pid_t process);
};

/// Tells of what is held now and was not before.
void CompareVitals(Findings& findings, const Vitals& before, const Vitals& after);
