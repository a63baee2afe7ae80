#pragma once

#include "MiscSource/SystemUtilities.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <chrono>
#include <functional>
#include <string>

/// How the link layer reaches the machine that it runs on, and how long it waits. A test gives its own.
struct LinkEnvironment
{
    /// Runs a shell command with a file for its standard error; gives the value of system(3).
    std::function<int(const std::string& command, const std::string& errFile)> run = SystemWithStderr;
    /// Where the kernel shows the network interfaces.
    std::string interfaceDirectory = "/sys/class/net/";
    std::chrono::milliseconds externalPortsDelay{2000};
    std::chrono::milliseconds reportWait{1000};
    std::chrono::milliseconds heartbeatPeriod = LinkRules::HeartbeatPeriod;
    /// For an answer of the link driver, or for a place in its queue.
    std::chrono::milliseconds driverWait{300};
};
