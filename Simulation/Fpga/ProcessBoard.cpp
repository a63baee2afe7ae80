#include "Simulation/Fpga/ProcessBoard.h"

#include "Simulation/Fpga/ControlChannel.h"

#include <cstdlib>
#include <memory>

namespace simulation {

namespace {

struct BoardWithChannel
{
    BoardWithChannel()
    {
        const char* const path = std::getenv("ORB_SIM_CONTROL");
        if (path && *path) channel = std::make_unique<ControlChannel>(board, path);
    }

    SimulatedFpga board;
    std::unique_ptr<ControlChannel> channel;
};

} // namespace

SimulatedFpga& GetProcessBoard()
{
    static BoardWithChannel process;
    return process.board;
}

} // namespace simulation
