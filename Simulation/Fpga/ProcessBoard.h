#pragma once

#include "Simulation/Fpga/SimulatedFpga.h"

namespace simulation {

/// The one board of this process, made at the first call. If the environment variable ORB_SIM_CONTROL is set, a control
/// channel at that path exists as long as the board, which is until the end of the process.
/// @throws std::system_error if the control channel cannot be made
SimulatedFpga& GetProcessBoard();

} // namespace simulation
