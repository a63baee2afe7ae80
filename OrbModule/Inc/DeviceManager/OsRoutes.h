#pragma once

#include "MiscSource/Side.h"

#include <functional>
#include <string>
#include <utility>

/// The kernel's routes to devices on the links. They are not tracked: adding an existing one fails, which is logged and
/// harmless. The routes of the unit's internal network and of the module's own rack are left alone, since without them
/// the module would lose its unit. Main thread.
class OsRoutes
{
public:
    /// Runs a shell command with a file for its standard error; gives the value of system(3).
    using RunCommand = std::function<int(const std::string& command, const std::string& errFile)>;

    /// @param self the module's own identity, which may still change.
    OsRoutes(RunCommand run, const Hid& self) : mRun(std::move(run)), mSelf(self) {}

    void AddSlaveLinkDataRoute(Hid hid, Side side);
    void AddIoRoute(std::uint32_t address, Routing::PortsEnum port);
    void DeleteSlaveRoute(Hid hid);

private:
    bool MayRoute(std::uint32_t address) const;

    RunCommand mRun;
    const Hid& mSelf;
};
