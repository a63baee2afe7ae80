#pragma once

#include "Benchmarks/OrbTap.h"
#include "Simulation/Peers/Messages.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/Peer.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The module in the rig with the neighbours that a load needs: an Orb router whose stream has a tap, and on both
/// links the same hub with a device, or the same box.
class LoadUnit
{
public:
    static constexpr std::uint32_t OrbIo = 0x00120001;
    static constexpr std::uint32_t Box = 0x00200001;
    static constexpr std::uint32_t HubBox = 0x00300002;

    /// Starts the module and waits until it serves its rack.
    LoadUnit();

    /// Patches between the Orb side and the device at a hub.
    /// @param link 0 or 1; @param index distinguishes patches of one device; @param slots on the Orb side.
    static peers::Bytes HubPatch(unsigned int link, std::uint32_t source, std::uint32_t index,
                                 const std::vector<std::uint32_t>& slots, bool make);

    void PlugHub(unsigned int link);
    /// The cable first, then the program.
    void Unplug(unsigned int link);
    void PlugBox(unsigned int link);
    /// Takes the cable of a box away and leaves the program, which sends nothing until it is plugged again.
    void PullCable(unsigned int link);
    void PlugAgain(unsigned int link);
    /// Waits until the one patch of the store is reserved on a link. The news of the box is no proof of it: sometimes
    /// there are two of them for one plug.
    void AwaitStandBy(unsigned int link);

    stage::ControlChannel& GetControl() { return mControl; }
    OrbTap& GetTap() { return mTap; }
    stage::Peer& GetOrb() { return *mOrb; }
    stage::Peer& GetNeighbour(unsigned int link) { return *mNeighbours.at(link); }
    pid_t GetProcess() { return mModule.Process().Id(); }
    void Stop();

private:
    void TellDriver(const std::string& line) { mDriver.Ask(line); }
    /// Waits until a device is reported to the Orb router, which is the end of its discovery.
    void AwaitDevice(std::uint32_t hid);
    /// Waits until what the module has posted to itself so far is done.
    void AwaitMainThread();

    stage::Module mModule;
    stage::ControlChannel mControl;
    stage::ControlChannel mDriver;
    stage::ShellClient mShell;
    stage::LogFile mLog;
    OrbTap mTap;
    std::unique_ptr<stage::Peer> mOrb;
    std::unique_ptr<stage::Peer> mUpdate;
    std::array<std::unique_ptr<stage::Peer>, 2> mNeighbours;
};
