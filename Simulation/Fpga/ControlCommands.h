#pragma once

#include "Simulation/Fpga/SimulatedFpga.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace simulation {

/// A wait that the command asked for: the answer is due when the count of activations has reached n, or after the
/// time.
struct SyncWait
{
    std::uint64_t n;
    std::chrono::milliseconds timeout;
};

/// What a control command gives: lines that each end in a line feed, possibly none, without the closing "."; or a wait.
struct ControlAnswer
{
    std::string text;
    std::optional<SyncWait> wait;
};

/// Carries out one line of the control channel on the board. What it cannot make out answers "error: ...".
ControlAnswer RunControlCommand(SimulatedFpga& board, const std::string& line);

} // namespace simulation
