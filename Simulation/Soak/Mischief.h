#pragma once

#include "Simulation/Soak/Unit.h"
#include "Simulation/Stage/ByteStream.h"

#include <chrono>
#include <functional>
#include <list>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace soak {

/// Injects the faults in a random order that follows from the seed; each begins, overlaps with others, and ends.
class Mischief
{
public:
    Mischief(Findings& findings, Surroundings& surroundings, HeartbeatWatch& watch, Unit& unit, unsigned int seed);

    /// Each fault once, in random order.
    void PlayAll();
    void PlayFor(std::chrono::seconds time);

private:
    using Clock = std::chrono::steady_clock;
    /// Undoes a fault.
    using End = std::function<void()>;
    struct Trouble
    {
        const char* name;
        std::function<End()> begin;
        std::chrono::milliseconds longest;
    };
    struct Running
    {
        const Trouble* trouble;
        End end;
        Clock::time_point until;
    };

    void Begin(const Trouble& trouble);
    void EndThoseBefore(Clock::time_point time);
    void Pause(int from, int to);
    bool IsRunning(const Trouble& trouble) const;
    int Random(int from, int to);
    std::string RandomHex(int bytes);
    unsigned int RandomLink() { return static_cast<unsigned int>(Random(0, 1)); }

    void AddPeers();
    void AddLies();
    void AddSurroundings();
    void AddLoad();
    void Add(const char* name, int longest, std::function<End()> begin);
    void BreakTool(const std::string& tool, const std::string& fault);
    /// Tells a neighbour, if there is one.
    bool TellPeer(unsigned int link, const std::string& line);
    std::string RandomPatch();
    /// As much as the module takes in that time.
    void Pour(const stage::ByteStream& stream, const std::string& bytes, stage::Milliseconds patience);

    Findings& mFindings;
    Surroundings& mSurroundings;
    HeartbeatWatch& mWatch;
    Unit& mUnit;
    std::mt19937 mRandom;
    std::vector<Trouble> mTroubles;
    std::list<Running> mRunning;
    std::set<std::string> mBrokenTools;
};

} // namespace soak
