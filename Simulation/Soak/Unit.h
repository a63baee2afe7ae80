#pragma once

#include "Simulation/Soak/HeartbeatWatch.h"
#include "Simulation/Soak/Surroundings.h"
#include "Simulation/Soak/Vitals.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/UnitSetup.h"

#include <array>
#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace soak {

/// A neighbour, and the device that sources and destinations of patches belong to.
struct Neighbour : stage::Neighbour
{
    const char* device;
};

/// The module with all that it is connected to, and what must be true once everything is in order again.
class Unit
{
public:
    static constexpr unsigned int LinkCount = 2;
    static const std::vector<Neighbour> Neighbours;

    /// @param logPath where all that the module prints is kept; empty to keep nothing.
    Unit(Findings& findings, Surroundings& surroundings, HeartbeatWatch& watch, const std::string& logPath);

    /// Replaces the neighbour there.
    void Plug(unsigned int link, const Neighbour& neighbour);
    void Unplug(unsigned int link);
    /// The driver's report alone.
    void PullCable(unsigned int link);
    void PlugCable(unsigned int link);
    bool IsPlugged(unsigned int link) const { return mNeighbours[link] != nullptr; }
    stage::Peer& GetPeer(unsigned int link) { return *mNeighbours[link]; }
    const Neighbour& GetNeighbour(unsigned int link) const { return *mFacts[link]; }
    stage::Peer& GetOrb() { return *mOrb; }
    stage::Peer& GetUpdate() { return *mUpdate; }
    void TellDriver(const std::string& line) { mModule.OpenLinkDriver().Ask(line); }
    stage::ShellClient& GetShell() { return mShell; }
    /// @param line of a patch without its making; it is remembered until everything is in order again.
    void Patch(const std::string& line, bool make);

    /// Reads what the module has printed, and looks whether it still runs. False if it does not.
    bool Look();
    /// The module sets up its links again, or may do so: nothing is due on them until that is surely done.
    void UpsetLinks();
    /// While tools fail or hang a link that is set up may take any time.
    void SetToolsBroken(bool broken);
    /// Call it when all faults are cleared. All initial peers reconnect, all patches are broken and a few are made;
    /// each deviation from the expected state is a violation.
    void Settle();
    Vitals GetVitals() { return Vitals::Of(mModule.Process().Id(), mControl); }
    /// As soon as the module holds no more than that, or after 20 s.
    Vitals AwaitVitals(const Vitals& wanted) { return Vitals::Settled(mModule.Process().Id(), mControl, wanted); }
    void Stop();
    /// Who is there, and with which streams.
    std::string Describe();

private:
    void Upset(unsigned int link);
    void CalmLinks();
    void StartOver();
    static void ExpectStream(stage::Peer& peer, const std::string& name, const std::string& stream);
    void ExpectDevice(const char* hid);
    void AwaitMainThread();
    void ExpectRoutes(const std::vector<std::pair<stage::Sample, stage::Sample>>& routes);
    bool HasRoutes(const std::vector<std::pair<stage::Sample, stage::Sample>>& routes);
    void CompareTables();
    void CheckDumps();

    Findings& mFindings;
    HeartbeatWatch& mWatch;
    std::unique_ptr<stage::Peer> mOrb;
    std::unique_ptr<stage::Peer> mUpdate;
    stage::Module mModule;
    stage::ControlChannel mControl;
    stage::ShellClient mShell;
    std::array<std::unique_ptr<stage::Peer>, LinkCount> mNeighbours;
    std::array<const Neighbour*, LinkCount> mFacts{};
    std::array<bool, LinkCount> mCable{};
    /// Links on which beats are due again as soon as the module has done all that was asked of it.
    std::array<bool, LinkCount> mUpset{};
    bool mToolsBroken = false;
    std::chrono::steady_clock::time_point mLastUpset;
    /// Asks the main thread for a sign without waiting for it.
    stage::ShellClient mProbe;
    bool mIsProbing = false;
    std::set<std::string> mPatches;
    std::ofstream mLog;
    std::string mLineRest;
    bool mHasEnded = false;
};

} // namespace soak
