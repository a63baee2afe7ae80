#include "FSI/Core/RegisterBlock.h"
#include "Simulation/Fpga/ProcessBoard.h"

namespace fsi {

std::unique_ptr<RegisterBlock> OpenRegisterBlock(const std::string& name, int instance)
{
    return simulation::GetProcessBoard().Open(name, instance);
}

} // namespace fsi
