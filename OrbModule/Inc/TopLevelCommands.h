#pragma once

#include <string>

namespace cmd {
class CommandLine;
}
class DeviceManager;
class PatchController;
class Patcher;
class iOrbKLVComms;

/// Registers the service engineer's twelve commands at the top of the shell. The objects live longer than the shell
/// runs; the actions run on the main thread.
void AddTopLevelCommands(cmd::CommandLine& shell, const std::string& programName, DeviceManager& devices,
                         PatchController& patches, Patcher& patcher, iOrbKLVComms& comms);
