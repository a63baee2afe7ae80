#pragma once

#include "Simulation/Peers/CommandIds.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UnitSetup.h"
#include "Tests/Support/Await.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include <unistd.h>

using stage::Neighbour;

inline const Neighbour Box{"fixed", "0x00200001", 0x20, {"card 0 QV1410"}};
inline const Neighbour OtherBox{"fixed", "0x00210001", 0x21, {"card 0 QV1410"}};
inline const Neighbour HubWithBox{
    "hub", "0x00308000", 0x30, {"device 0x00300002 fixed 0.48.9.1", "of 0x00300002 card 0 QV1410"}};
/// The box of the hub.
constexpr char HubBoxHid[] = "0x00300002";
constexpr char PatchFromBox[] = "patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5";

/// Nothing reports the change: looks again and again.
template <class Condition>
bool Await(Condition condition)
{
    return Await(condition, [] { std::this_thread::sleep_for(stage::Milliseconds(5)); });
}

/// The module in its unit, with an empty log and some features of it switched on, and whoever is in its network.
struct Unit
{
    explicit Unit(const std::string& features = {})
    {
        unlink(stage::LogPath);
        std::filesystem::create_directories("/home/root/OrbModule");
        std::ofstream("/home/root/OrbModule/debug.conf") << "on " << features << "\n";
    }

    std::size_t CountInLog(const std::string& part) const
    {
        const std::string text = log.Text();
        std::size_t count = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
            ++count;
        return count;
    }
    void StartUpdateService(const std::string& line = "result 0") { update = stage::StartUpdateService(line); }
    void StartOrbRouter() { orb = stage::StartOrbRouter(); }
    /// Until the module knows who it is and its links are up.
    /// @param routerTime how long a master router may take to appear, ms; the module adds 5 s.
    void Start(unsigned int routerTime = 600000)
    {
        StartOrbRouter();
        StartUpdateService();
        module.emplace();
        orb->WaitFor(peers::IO_INFO_REQ);
        orb->Tell("command " + std::to_string(peers::ROUTER_TIME_ALLOWANCE) + " u32:" + std::to_string(routerTime));
        log.WaitForLine("Start Router Ignore Timer");
    }
    void Plug(unsigned int link, const Neighbour& neighbour)
    {
        neighbours[link] = stage::StartNeighbour(link, neighbour);
        TellDriver(stage::PlugLine(link, neighbour.rack));
        neighbours[link]->Tell("appear");
    }
    /// Until the Orb router knows of the neighbour, and of a hub's box.
    void Connect(unsigned int link, const Neighbour& neighbour)
    {
        Plug(link, neighbour);
        WaitForDevice(neighbour.hid);
        if (neighbour.kind == "hub") WaitForDevice(HubBoxHid);
    }
    void Unplug(unsigned int link)
    {
        TellDriver("unplug " + std::to_string(link));
        neighbours[link].reset();
    }
    void TellDriver(const std::string& line) { module->OpenLinkDriver().Ask(line); }

    void WaitForDevice(const std::string& hid, bool present = true)
    {
        const bool isRouting = hid.find("8000") != std::string::npos;
        orb->WaitForUpdate(isRouting ? peers::REMOTE_ROUTER_UPDATE : peers::REMOTE_IO_UPDATE, hid, present);
    }
    /// The values of all commands of an id that a peer has received, in hex.
    static std::vector<std::string> Values(stage::Peer& peer, unsigned int id)
    {
        std::vector<std::string> values = peer.GetReceived(id);
        for (std::string& value : values)
            value.erase(0, HeaderLength);
        return values;
    }
    /// Waits until a command has come whose value has this part.
    static void WaitForValue(stage::Peer& peer, unsigned int id, const std::string& part)
    {
        peer.WaitForOneLike(
            id, [&](const std::string& bytes) { return bytes.find(part, HeaderLength) != std::string::npos; });
    }
    /// Waits until the Orb router has got this state of the box's cable: primary or not, online or not.
    void WaitForCable(const std::string& state)
    {
        WaitForValue(*orb, peers::REMOTE_CABLE_STATE, "01 00 20 00 " + state);
    }

    static constexpr std::size_t HeaderLength = 8 * 3;
    std::optional<stage::Module> module;
    stage::LogFile log;
    std::unique_ptr<stage::Peer> update;
    std::unique_ptr<stage::Peer> orb;
    std::unique_ptr<stage::Peer> neighbours[2];
};
