#include "Simulation/Stage/Module.h"

#include <cstdlib>

namespace stage {

std::string Module::ControlPath()
{
    const char* path = std::getenv(ControlVariable);
    return path && *path ? path : "/tmp/OrbModuleSim.control";
}

Command Module::MakeCommand(const ModuleSetup& setup)
{
    Command command{{setup.program}, setup.environment};
    command.environment[ControlVariable] = ControlPath();
    command.arguments.insert(command.arguments.end(), setup.arguments.begin(), setup.arguments.end());
    return command;
}

Command Module::MakeLinkDriverCommand()
{
    return {{ProgramPath("LinkDriverSim"), LinkDriverPath}};
}

Module::Module(const ModuleSetup& setup, Milliseconds patience)
    : mLinkDriver(MakeLinkDriverCommand()),
      mProcess((mLinkDriver.WaitForOutput("LinkDriverSim ready", 0, patience), MakeCommand(setup)))
{
    mProcess.WaitForOutput("Run...........", 0, patience);
}

} // namespace stage
