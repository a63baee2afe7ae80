#pragma once

#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/ControlChannel.h"
#include "Simulation/Stage/ShellClient.h"

#include <map>
#include <string>
#include <vector>

namespace stage {

/// Socket of the simulated link driver, in the rig's own /tmp.
constexpr char LinkDriverPath[] = "/tmp/LinkDriverSim.control";

struct ModuleSetup
{
    std::string program = ProgramPath("OrbModuleSim");
    std::vector<std::string> arguments{};
    /// Additional environment variables.
    std::map<std::string, std::string> environment{};
};

/// OrbModuleSim and the simulated link driver, which starts first, as a kernel driver does. Both are processes in the
/// module's namespace of the rig.
class Module
{
public:
    /// Starts the module and does not wait for anything: for scenes in which it is not to come up.
    static Command MakeCommand(const ModuleSetup& setup);
    static Command MakeLinkDriverCommand();
    /// Where the simulated FPGA listens: what the environment says, else a path in the rig's own /tmp.
    static std::string ControlPath();

    /// Starts both and waits until the module has built all of itself and begins to serve.
    explicit Module(const ModuleSetup& setup = {}, Milliseconds patience = Patience);

    ChildProcess& Process() { return mProcess; }
    ShellClient OpenShell(Milliseconds patience = Patience) const
    {
        return ShellClient(ShellPort, "127.0.0.1", patience);
    }
    ControlChannel OpenControl() const { return ControlChannel(ControlPath()); }
    /// To the simulated link driver, whose answers have the same form.
    ControlChannel OpenLinkDriver() const { return ControlChannel(LinkDriverPath); }
    /// SIGTERM, and waits for the end.
    Ending Stop(Milliseconds patience = Patience) { return mProcess.Stop(patience); }

private:
    ChildProcess mLinkDriver;
    ChildProcess mProcess;
};

/// ADMA endpoints of the simulated unit, and the engine's block.
constexpr unsigned int FirstLinkEndpoint = 1;
constexpr unsigned int SecondLinkEndpoint = 2;
constexpr unsigned int BulkEndpoint = 3;
constexpr char AudioDmaBlock[] = "0003";
constexpr unsigned int ControlRegister = 0x38;
constexpr std::uint32_t MuteBit = 1u << 4;

/// The module heartbeat before any master router is known, and where it goes.
constexpr char ModuleAddress[] = "1.63.5.0";
constexpr char MasterControlAddress[] = "1.63.1.0";
constexpr std::uint16_t HeartbeatPort = 49157;

} // namespace stage
