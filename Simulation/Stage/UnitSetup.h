#pragma once

#include "Simulation/Stage/Peer.h"

#include <memory>
#include <string>
#include <vector>

namespace stage {

/// The rack of the unit, unless a test gives it another.
constexpr unsigned int ModuleRack = 0x12;
/// The Orb router's own inputs and outputs.
constexpr char OrbIo[] = "0x00120001";

/// A device at the far end of a link.
struct Neighbour
{
    std::string kind;
    std::string hid;
    unsigned int rack;
    /// Commands to it before it appears, such as its cards.
    std::vector<std::string> lines;
};

/// The network namespace at the far end of a link.
/// @param link 0 or 1.
const char* LinkNamespace(unsigned int link);

/// The command that reports a neighbour at the simulated driver. The module owns no network then.
std::string PlugLine(unsigned int link, unsigned int rack);

/// The Orb router of the unit with its inputs and outputs, where it appears at once.
/// @param options further ones of the program Peer.
std::unique_ptr<Peer> StartOrbRouter(const std::vector<std::string>& options = {}, Milliseconds patience = Patience,
                                     unsigned int rack = ModuleRack);
/// @param line a command to it before it appears, if not empty.
std::unique_ptr<Peer> StartUpdateService(const std::string& line = {}, Milliseconds patience = Patience);
/// A neighbour that has not appeared yet.
std::unique_ptr<Peer> StartNeighbour(unsigned int link, const Neighbour& neighbour, Milliseconds patience = Patience,
                                     unsigned int moduleRack = ModuleRack);

} // namespace stage
