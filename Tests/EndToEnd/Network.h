#pragma once

#include "Simulation/Peers/CommandIds.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UnitSetup.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

using stage::Neighbour;

inline const Neighbour Box{"fixed", "0x00200001", 0x20, {"card 0 QV1410"}};
inline const Neighbour OtherBox{"fixed", "0x00210001", 0x21, {"card 0 QV1410"}};
inline const Neighbour HubWithBox{
    "hub", "0x00308000", 0x30, {"device 0x00300002 fixed 0.48.9.1", "of 0x00300002 card 0 QV1410"}};
/// The box of the hub.
constexpr char HubBoxHid[] = "0x00300002";
/// The box as sent.
constexpr char BoxOnWire[] = "01 00 20 00";

/// The module in its unit, with an empty log and some features of it switched on, and whoever is in its network.
class Network
{
public:
    explicit Network(const std::string& features = {}, unsigned int rack = 0x12) : mRack(rack)
    {
        unlink(stage::LogPath);
        std::filesystem::create_directories("/home/root/OrbModule");
        std::ofstream("/home/root/OrbModule/debug.conf") << "on " << features << "\n";
    }

    void StartModule() { mModule.emplace(); }
    stage::Module& GetModule() { return *mModule; }
    stage::LogFile& GetLog() { return mLog; }
    std::size_t CountInLog(const std::string& part) const
    {
        const std::string log = mLog.Text();
        std::size_t count = 0;
        for (std::size_t at = log.find(part); at != std::string::npos; at = log.find(part, at + part.size()))
            ++count;
        return count;
    }
    stage::Peer& GetUpdate() { return *mUpdate; }
    stage::Peer& GetOrb() { return *mOrb; }
    stage::Peer& GetNeighbour(unsigned int link) { return *mNeighbours[link]; }

    void StartUpdateService(const std::string& line = "result 0") { mUpdate = stage::StartUpdateService(line); }
    void StartOrbRouter() { mOrb = stage::StartOrbRouter({}, stage::Patience, mRack); }
    /// Until the module knows who it is and its links are up.
    /// @param routerTime how long a master router may take to appear, ms; the module adds 5 s.
    void Start(unsigned int routerTime = 600000)
    {
        StartOrbRouter();
        StartUpdateService();
        StartModule();
        mOrb->WaitFor(peers::IO_INFO_REQ);
        mOrb->Tell("command " + std::to_string(peers::ROUTER_TIME_ALLOWANCE) + " u32:" + std::to_string(routerTime));
        mLog.WaitForLine("Start Router Ignore Timer");
    }
    void Plug(unsigned int link, const Neighbour& neighbour)
    {
        mNeighbours[link] = stage::StartNeighbour(link, neighbour, stage::Patience, mRack);
        TellDriver(stage::PlugLine(link, neighbour.rack));
        mNeighbours[link]->Tell("appear");
    }
    void Unplug(unsigned int link)
    {
        TellDriver("unplug " + std::to_string(link));
        mNeighbours[link].reset();
    }
    void TellDriver(const std::string& line) { mModule->OpenLinkDriver().Ask(line); }

    /// The values of all commands of an id that a peer has received, in hex.
    static std::vector<std::string> Values(stage::Peer& peer, unsigned int id)
    {
        std::vector<std::string> values = peer.GetReceived(id);
        for (std::string& value : values)
            value = ValueOf(value);
        return values;
    }
    /// Waits until a value has come that is accepted.
    template <class Accept>
    static void WaitForValue(stage::Peer& peer, unsigned int id, Accept accept)
    {
        peer.WaitForOneLike(id, [&](const std::string& bytes) { return accept(ValueOf(bytes)); });
    }
    /// Waits until the Orb router has got this state of a device's cable: primary or not, online or not.
    void WaitForCable(const std::string& device, const std::string& state)
    {
        WaitForValue(*mOrb, peers::REMOTE_CABLE_STATE,
                     [&](const std::string& value) { return value == device + " " + state; });
    }

private:
    static std::string ValueOf(const std::string& bytes)
    {
        constexpr std::size_t Header = 8 * 3;
        return bytes.size() < Header ? std::string() : bytes.substr(Header);
    }

    unsigned int mRack;
    std::optional<stage::Module> mModule;
    stage::LogFile mLog;
    std::unique_ptr<stage::Peer> mUpdate;
    std::unique_ptr<stage::Peer> mOrb;
    std::unique_ptr<stage::Peer> mNeighbours[2];
};
