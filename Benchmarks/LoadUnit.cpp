#include "Benchmarks/LoadUnit.h"

#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UnitSetup.h"

#include <algorithm>
#include <cstdio>

using namespace stage;

namespace {

constexpr unsigned int BoxRack = 0x20;
constexpr unsigned int HubRack = 0x30;

std::string Hex(std::uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

} // namespace

LoadUnit::LoadUnit()
    : mControl(mModule.OpenControl()),
      mDriver(mModule.OpenLinkDriver()),
      mShell(mModule.OpenShell()),
      mOrb(StartOrbRouter({"--local-port", std::to_string(OrbTap::PeerPort)})),
      mUpdate(StartUpdateService())
{
    mShell.StopTailing();
    mOrb->WaitFor(peers::ROUTER_INFO_REQ);
    // A master router may take its time to appear.
    mOrb->Tell("command 885 u32:600000");
    mOrb->WaitFor(peers::IO_INFO_REQ);
    mLog.WaitForLine("LinkManager::OnDeviceChange Device Online");
}

peers::Bytes LoadUnit::HubPatch(unsigned int link, std::uint32_t source, std::uint32_t index,
                                const std::vector<std::uint32_t>& slots, bool make)
{
    constexpr std::uint32_t Input = 1;
    constexpr std::uint32_t Output = 2;
    peers::messages::Patch patch;
    patch.source = {OrbIo, Input, source};
    patch.original = patch.source;
    patch.link = link + 1;
    patch.slots = slots;
    patch.destination = {HubBox, Output, index};
    patch.make = make;
    return peers::ToItem(peers::messages::PatchAudio(patch));
}

void LoadUnit::PlugHub(unsigned int link)
{
    mOrb->Tell("clear");
    const std::string device = Hex(HubBox);
    mNeighbours.at(link) = StartNeighbour(link, {"hub",
                                                 Hex(HubRack << 16 | 0x8000),
                                                 HubRack,
                                                 {"device " + device + " fixed 0." + std::to_string(HubRack) + ".9.1",
                                                  "of " + device + " card 0 QV1410"}});
    TellDriver(PlugLine(link, HubRack));
    mNeighbours.at(link)->Tell("appear");
    AwaitDevice(HubBox);
}

void LoadUnit::PlugBox(unsigned int link)
{
    mNeighbours.at(link) = StartNeighbour(link, {"fixed", Hex(Box), BoxRack, {"card 0 QV1410"}});
    PlugAgain(link);
}

void LoadUnit::PullCable(unsigned int link)
{
    TellDriver("unplug " + std::to_string(link));
}

void LoadUnit::PlugAgain(unsigned int link)
{
    mOrb->Tell("clear");
    TellDriver(PlugLine(link, BoxRack));
    mNeighbours.at(link)->Tell("appear");
    AwaitDevice(Box);
}

void LoadUnit::Unplug(unsigned int link)
{
    PullCable(link);
    mNeighbours.at(link).reset();
}

void LoadUnit::Stop()
{
    const Ending ending = mModule.Stop();
    if (ending.signal || ending.exitCode) throw NotSeen("SIGTERM ended the module with " + ending.Text());
}

void LoadUnit::AwaitDevice(std::uint32_t hid)
{
    // After the 8 bytes of the header come the type, the HID and the address, which is 0 for a device that has gone.
    constexpr std::size_t HidPlace = 9 * 3;
    constexpr std::size_t WordLength = 4 * 3 - 1;
    constexpr std::size_t AddressPlace = HidPlace + WordLength + 1;
    peers::Bytes word;
    for (int shift = 0; shift < 32; shift += 8)
        word.push_back(static_cast<std::uint8_t>(hid >> shift));
    const std::string wanted = peers::ToHex(word);
    const auto isWanted = [&](const std::string& bytes) {
        return bytes.substr(HidPlace, WordLength) == wanted && bytes.substr(AddressPlace, WordLength) != "00 00 00 00";
    };
    for (;;) {
        const auto updates = mOrb->GetReceived(peers::REMOTE_IO_UPDATE);
        if (std::any_of(updates.begin(), updates.end(), isWanted)) break;
        mOrb->WaitFor(peers::REMOTE_IO_UPDATE, static_cast<unsigned int>(updates.size() + 1));
    }
    AwaitMainThread();
}

void LoadUnit::AwaitStandBy(unsigned int link)
{
    const std::string wanted = link == 0 ? "Pri Patch Reserved" : "Sec Patch Reserved";
    const Deadline deadline(Patience);
    do {
        mShell.Ask("ps");
        const std::string log = mLog.Text();
        const std::size_t newest = log.rfind("PI ");
        if (newest != std::string::npos && log.find(wanted, newest) != std::string::npos) return;
    } while (!deadline.HasPassed());
    throw NotSeen("the patch does not stand by: no '" + wanted + "'");
}

void LoadUnit::AwaitMainThread()
{
    mShell.Ask("version");
    mShell.Ask("version");
}
