#pragma once

#include "Simulation/Peers/Wire.h"
#include "Simulation/Stage/FileDescriptor.h"

#include <cstdint>
#include <mutex>
#include <thread>

/// Stands between the module and the Orb router's peer and passes commands on, so that discovery is the peer's
/// business. A load goes from here straight into the module's socket, and the patch commands with which the module
/// answers it end here: neither costs the peer anything.
class OrbTap
{
public:
    /// Where the peer is to listen, in place of the Orb router's own port.
    static constexpr std::uint16_t PeerPort = 55001;

    /// Listens at the Orb router's place in the unit.
    OrbTap();
    ~OrbTap();
    OrbTap(const OrbTap&) = delete;
    OrbTap& operator=(const OrbTap&) = delete;

    /// Sends to the module, from any thread, blocking as long as the module does not read.
    void Send(const peers::Bytes& bytes);
    /// Patch commands that have come from the module.

private:
    void Run();
    /// Takes a connection of the module and passes on until one side ends it.
    void Serve();
    void PassFromModule(peers::Bytes& pending);

    stage::FileDescriptor mListener;
    stage::FileDescriptor mStop;
    stage::FileDescriptor mPeer;
    /// Guards the module's socket against being replaced, and its output against mixing.
    std::mutex mMutex;
    stage::FileDescriptor mModule;
    std::thread mThread;
};
