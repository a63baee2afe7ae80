#pragma once

#include "Simulation/Soak/BareSleeper.h"
#include "Simulation/Soak/Findings.h"
#include "Simulation/Stage/FileDescriptor.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace soak {

/// Listens at the far ends of the module's wires for its heartbeats, on its own thread, and reports each gap by the
/// time stamps of the kernel. A disturbed wire is not judged, nor one on which no heartbeat is due.
class HeartbeatWatch
{
public:
    enum Wire { Primary, Secondary, Internal, WireCount };

    explicit HeartbeatWatch(Findings& findings);
    ~HeartbeatWatch();
    HeartbeatWatch(const HeartbeatWatch&) = delete;
    HeartbeatWatch& operator=(const HeartbeatWatch&) = delete;

    /// From the beginning of a disturbance: until then no beat may have been overdue.
    void Disturb(Wire wire);
    /// The end of one; the next beat is the first of a new row. Calls nest.
    void Calm(Wire wire);
    /// Reports a heartbeat that was late in the last so many seconds: a violation, unless the whole machine was late
    /// then.
    void TellLate(const std::string& text, std::chrono::seconds within);
    /// How many intervals were judged, and the longest of them.
    std::string Summary() const;

private:
    using Nanoseconds = std::chrono::nanoseconds;
    struct State
    {
        stage::FileDescriptor socket{};
        /// Nothing is due before the first calm.
        int disturbances = 1;
        std::optional<Nanoseconds> last{};
        Nanoseconds longest{0};
        unsigned long judged = 0;
    };

    void Run();
    void Receive(Wire wire);
    void Judge(Wire wire, Nanoseconds now);

    Findings& mFindings;
    BareSleeper mSleeper;
    /// Guards the states, but for the sockets.
    mutable std::mutex mMutex;
    std::array<State, WireCount> mWires;
    stage::FileDescriptor mStop[2];
    std::thread mThread;
};

} // namespace soak
