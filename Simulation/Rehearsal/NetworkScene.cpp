#include "Simulation/Rehearsal/NetworkScene.h"

#include "Simulation/Peers/CommandIds.h"
#include "Simulation/Stage/UnitSetup.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

using namespace stage;

namespace rehearsal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned int BoxRack = 0x20;
constexpr unsigned int HubRack = 0x30;
constexpr unsigned int RouterRack = 0x08;
constexpr char HubHid[] = "0x00308000";
constexpr char RouterHid[] = "0x00088000";

std::string Rack(unsigned int rack)
{
    return std::to_string(rack);
}

std::string Took(Clock::time_point since)
{
    return std::to_string(std::chrono::duration_cast<Milliseconds>(Clock::now() - since).count()) + " ms";
}

/// Whether one of the module's interfaces has that address. The scenes run in the module's namespace.
bool HasAddress(const std::string& address)
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    bool found = false;
    for (const ifaddrs* entry = list; entry; entry = entry->ifa_next) {
        if (!entry->ifa_addr || entry->ifa_addr->sa_family != AF_INET) continue;
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr, text, sizeof text);
        found = found || address == text;
    }
    freeifaddrs(list);
    return found;
}

void ExpectAddress(const std::string& address)
{
    if (!HasAddress(address)) throw NotSeen("no interface has the address " + address);
}

} // namespace

std::vector<Step> NetworkScene::Steps()
{
    return {
        {"the update service checks the module", [this] { return PassCheck(); }},
        {"the Orb router tells the module its identity", [this] { return LearnIdentity(); }},
        {"the link ports come up", [this] { return BringLinksUp(); }},
        {"a fixed format box is plugged in", [this] { return MeetFixedBox(); }},
        {"a modular box takes its place",
         [this] { return MeetBoxInItsPlace("modular", "card 0 Mic in=0-7 out=0-7", "a modular box"); }},
        {"an AoIP box takes its place", [this] { return MeetBoxInItsPlace("aoip", "card 0 QV1790", "an AoIP box"); }},
        {"a module device takes its place",
         [this] { return MeetBoxInItsPlace("module", "ports 64 64", "a module device"); }},
        {"a hub with a box behind it takes its place", [this] { return MeetHub(); }},
        {"a master router takes its place", [this] { return MeetRouter(); }}};
}

void NetworkScene::TellDriver(const std::string& line)
{
    mRouting.GetModule().OpenLinkDriver().Ask(line, mPatience);
}

std::string NetworkScene::PassCheck()
{
    // The Orb router is there before, as in a unit, and keeps its name to itself until it is its turn.
    mOrb = StartOrbRouter({"--do", "answer 829 never"}, mPatience);
    mUpdate = StartUpdateService({}, mPatience);
    mUpdate->WaitFor(peers::DEVICES_TO_CHECK, 1, mPatience);
    mLog.WaitForLine("Connect to the ORB Router", mPatience);
    return "The update service appears at 1.63.1.0. The module connects, asks for its check, is up to date, and "
           "connects "
           "to the Orb router.";
}

std::string NetworkScene::LearnIdentity()
{
    mOrb->WaitFor(peers::ROUTER_INFO_REQ, 1, mPatience);
    // A master router may take its time to appear.
    mOrb->Tell("command " + std::to_string(peers::ROUTER_TIME_ALLOWANCE) + " u32:600000", mPatience);
    mOrb->Tell("name", mPatience);
    mOrb->Tell("io-report", mPatience);
    mOrb->WaitFor(peers::IO_INFO_REQ, 1, mPatience);
    mLog.WaitForLine("LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000", mPatience);
    // The next event sets the aliases.
    mLog.WaitForLine("LinkManager::OnDeviceChange Device Online", mPatience);
    ExpectAddress("0.18.5.0");
    ExpectAddress("0.18.6.0");
    return "The module asks and the Orb router answers: rack 0.18. eth0 now has the addresses 0.18.5.0 and 0.18.6.0.";
}

std::string NetworkScene::BringLinksUp()
{
    mLog.WaitForLine("Start Router Ignore Timer", mPatience);
    for (const std::string link : {"k2link0", "k2link1"}) {
        std::ifstream file("/sys/class/net/" + link + "/k2hid");
        std::string text;
        std::getline(file, text);
        if (text != Rack(2 * ModuleRack)) throw NotSeen("the driver of " + link + " got '" + text + "'");
    }
    return "Both link drivers know the module as " + Rack(2 * ModuleRack) +
           " (twice its rack), the interfaces are up, and a master router is accepted from now on.";
}

void NetworkScene::Plug(unsigned int link, const Neighbour& neighbour)
{
    mOrb->Tell("clear", mPatience);
    mNeighbours[link] = StartNeighbour(link, neighbour, mPatience);
    TellDriver(PlugLine(link, neighbour.rack));
    mNeighbours[link]->Tell("appear", mPatience);
}

void NetworkScene::Unplug(unsigned int link)
{
    TellDriver("unplug " + std::to_string(link));
    mNeighbours[link].reset();
}

void NetworkScene::ExpectUpdate(unsigned int id, const std::string& hid, bool present)
{
    mOrb->WaitForUpdate(id, hid, present, mPatience);
}

void NetworkScene::ExpectHeartbeat(const std::string& bytes)
{
    const Deadline deadline(mPatience);
    std::string heard;
    do {
        heard = mOrb->Tell("module-heartbeat", mPatience).front();
        if (heard.substr(heard.find(' ') + 1) == bytes) return;
    } while (!deadline.HasPassed());
    throw NotSeen("the last module heartbeat was " + heard);
}

std::string NetworkScene::PlugBox(unsigned int link)
{
    const auto start = Clock::now();
    Plug(link, {"fixed", Box, BoxRack, {"card 0 QV1410"}});
    ExpectUpdate(peers::REMOTE_IO_UPDATE, Box, true);
    return Took(start);
}

std::string NetworkScene::MeetFixedBox()
{
    const std::string took = PlugBox(0);
    ExpectAddress("0.8.0.1");
    const std::string map = "showlinkmap " + std::to_string(std::stoul(Box, nullptr, 16));
    mRouting.GetShell().Ask(map, mPatience);
    mLog.WaitForLine("A7  -> 7", mPatience);
    return "The driver reports a neighbour, k2link0 gets 0.8.0.1, heartbeats flow, the box passes its check and "
           "describes "
           "its 8 inputs and outputs. The Orb router learns of it " +
           took + " after the plug.";
}

std::string NetworkScene::MeetBoxInItsPlace(const std::string& kind, const std::string& card, const std::string& type)
{
    mOrb->Tell("clear", mPatience);
    Unplug(0);
    ExpectUpdate(peers::REMOTE_IO_UPDATE, Box, false);
    const auto start = Clock::now();
    Plug(0, {kind, Box, BoxRack, {card}});
    ExpectUpdate(peers::REMOTE_IO_UPDATE, Box, true);
    return "The Orb router learns that the last one has gone and " + type + " has come, " + Took(start) +
           " after the plug.";
}

void NetworkScene::PlugHub()
{
    const std::string box = HubBox;
    Plug(0, {"hub", HubHid, HubRack, {"device " + box + " fixed 0.48.9.1", "of " + box + " card 0 QV1410"}});
}

void NetworkScene::AwaitHubBox()
{
    ExpectUpdate(peers::REMOTE_IO_UPDATE, HubBox, true);
}

std::string NetworkScene::MeetHub()
{
    mOrb->Tell("clear", mPatience);
    Unplug(0);
    ExpectUpdate(peers::REMOTE_IO_UPDATE, Box, false);
    PlugHub();
    ExpectUpdate(peers::REMOTE_ROUTER_UPDATE, HubHid, true);
    mNeighbours[0]->WaitFor(peers::ROUTER_INFO, 1, mPatience);
    mNeighbours[0]->WaitFor(peers::IO_INFO_DEV_REQ, 1, mPatience);
    AwaitHubBox();
    return "The hub passes its check and names itself. The module opens a data link to it, requests the description of "
           "the "
           "box behind it, and reports both to the Orb router.";
}

void NetworkScene::PlugRouter()
{
    Plug(0, {"router", RouterHid, RouterRack, {}});
}

std::string NetworkScene::MeetRouter()
{
    mOrb->Tell("clear", mPatience);
    Unplug(0);
    ExpectUpdate(peers::REMOTE_ROUTER_UPDATE, HubHid, false);
    PlugRouter();
    ExpectUpdate(peers::REMOTE_ROUTER_UPDATE, RouterHid, true);
    mLog.WaitForLine("Router detected on downstream ports ACCEPTING", mPatience);
    const std::string heartbeat = "96 00 80 08 00";
    ExpectHeartbeat(heartbeat);
    return "Its heartbeat names itself as the master, and the module follows: master control now sees " + heartbeat +
           ".";
}

} // namespace rehearsal
