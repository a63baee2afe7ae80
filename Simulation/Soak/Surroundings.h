#pragma once

#include "Simulation/Soak/Findings.h"

#include <map>
#include <string>

namespace soak {

/// What a unit depends on: tools, the disk of the log, the wires. Each can be disturbed and repaired.
class Surroundings
{
public:
    /// Puts wrappers of the tools, which obey this object, into a directory that must be first on the module's PATH,
    /// and the log on a small disk of its own.
    explicit Surroundings(Findings& findings);

    std::map<std::string, std::string> GetEnvironment() const;

    /// @param tool ifconfig, route or gzip; @param fault "fail", "hang" (up to 10 s, less if it is repaired before), or
    /// empty.
    void BreakTool(const std::string& tool, const std::string& fault);
    /// Until nothing more can be written.
    void FillDisk();
    void FreeDisk();
    /// Loses, delays and reorders what the module sends and receives on that interface.
    void DisturbWire(const std::string& interface);
    void MendWire(const std::string& interface);

private:
    Findings& mFindings;
    bool mHasNetem = false;
};

/// Runs a line in the shell; reports its output if it fails. @return whether it succeeded.
bool RunLine(Findings& findings, const std::string& line);

} // namespace soak
