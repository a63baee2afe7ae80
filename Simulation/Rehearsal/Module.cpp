#include "Simulation/Rehearsal/Module.h"

#include <cstdlib>

namespace stage {

std::string Module::ControlPath()
{
    const char* path = std::getenv(ControlVariable);
    return path && *path ? path : "/tmp/OrbModuleSim.control";
}

Command Module::MakeCommand(const ModuleSetup& setup)
{
    Command command{{setup.program}, {{ControlVariable, ControlPath()}}};
    command.arguments.insert(command.arguments.end(), setup.arguments.begin(), setup.arguments.end());
    return command;
}

Module::Module(const ModuleSetup& setup, Milliseconds patience) : mProcess(MakeCommand(setup))
{
    mProcess.WaitForOutput("Run...........", 0, patience);
}

} // namespace stage
