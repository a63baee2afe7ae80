#include "Simulation/Soak/Unit.h"

#include "Simulation/Peers/CommandIds.h"
#include "Simulation/Stage/NetworkNamespace.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include <sys/socket.h>

using namespace stage;

namespace soak {

namespace {

constexpr char DumpDirectory[] = "/var/lib/ostrel/crashdumps";

/// A tool may hang for 10 s, and a few may do so one after the other.
constexpr Milliseconds SettlePatience{90000};

/// Words of a table by their index, without those that are 0.
std::map<unsigned long, unsigned long> ParseTable(const std::vector<std::string>& lines)
{
    std::map<unsigned long, unsigned long> table;
    for (const std::string& line : lines) {
        const std::size_t word = line.find("0x");
        if (word == std::string::npos) continue;
        const unsigned long value = std::stoul(line.substr(word), nullptr, 16);
        if (value != 0) table[std::stoul(line)] = value;
    }
    return table;
}

std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

} // namespace

const std::vector<Neighbour> Unit::Neighbours = {
    {{"fixed", "0x00200001", 0x20, {"card 0 QV1410"}}, "0x00200001"},
    {{"hub", "0x00308000", 0x30, {"device 0x00300002 fixed 0.48.9.1", "of 0x00300002 card 0 QV1410"}}, "0x00300002"},
    {{"modular", "0x00210001", 0x21, {"card 0 Mic in=0-7 out=0-7"}}, "0x00210001"},
    {{"aoip", "0x00220001", 0x22, {"card 0 QV1790"}}, "0x00220001"},
    {{"module", "0x00230001", 0x23, {"ports 64 64"}}, "0x00230001"},
    {{"fixed", "0x00070001", 0x07, {"card 0 QV1410"}}, "0x00070001"}};

Unit::Unit(Findings& findings, Surroundings& surroundings, HeartbeatWatch& watch, const std::string& logPath)
    : mFindings(findings),
      mWatch(watch),
      mOrb(StartOrbRouter()),
      mUpdate(StartUpdateService()),
      mModule({ProgramPath("OrbModuleSim"), {}, surroundings.GetEnvironment()}),
      mControl(mModule.OpenControl()),
      mShell(mModule.OpenShell()),
      mProbe(mModule.OpenShell())
{
    if (!logPath.empty()) mLog.open(logPath);
    mShell.StopTailing();
    mProbe.StopTailing();
    mOrb->WaitFor(peers::ROUTER_INFO_REQ);
    // A master router may take its time to appear.
    mOrb->Tell("command 885 u32:3600000000");
    mOrb->WaitFor(peers::IO_INFO_REQ);
    mModule.Process().WaitForOutput("Start Router Ignore Timer");
    mWatch.Calm(HeartbeatWatch::Internal);
}

void Unit::Plug(unsigned int link, const Neighbour& neighbour)
{
    Unplug(link);
    mNeighbours[link] = StartNeighbour(link, neighbour);
    mFacts[link] = &neighbour;
    PlugCable(link);
    mNeighbours[link]->Tell("appear");
}

void Unit::Unplug(unsigned int link)
{
    PullCable(link);
    mNeighbours[link].reset();
}

void Unit::PullCable(unsigned int link)
{
    if (!mCable[link]) return;
    mCable[link] = false;
    // A link that is upset is disturbed already.
    if (!mUpset[link]) mWatch.Disturb(static_cast<HeartbeatWatch::Wire>(link));
    mUpset[link] = false;
    TellDriver("unplug " + std::to_string(link));
}

void Unit::PlugCable(unsigned int link)
{
    if (mCable[link]) return;
    mCable[link] = true;
    TellDriver(PlugLine(link, mFacts[link]->rack));
    mUpset[link] = true;
    mLastUpset = std::chrono::steady_clock::now();
    mIsProbing = false;
}

void Unit::UpsetLinks()
{
    for (unsigned int link = 0; link < LinkCount; ++link)
        Upset(link);
}

void Unit::Upset(unsigned int link)
{
    mLastUpset = std::chrono::steady_clock::now();
    mIsProbing = false;
    if (!mCable[link] || mUpset[link]) return;
    mUpset[link] = true;
    mWatch.Disturb(static_cast<HeartbeatWatch::Wire>(link));
}

void Unit::SetToolsBroken(bool broken)
{
    mToolsBroken = broken;
    mLastUpset = std::chrono::steady_clock::now();
    mIsProbing = false;
}

void Unit::CalmLinks()
{
    constexpr std::chrono::milliseconds Moment(1000);
    if (mToolsBroken || std::none_of(mUpset.begin(), mUpset.end(), [](bool upset) { return upset; })) return;
    if (std::chrono::steady_clock::now() - mLastUpset < Moment) return;
    char answer[4096];
    const ssize_t size = ::recv(mProbe.Stream().Descriptor(), answer, sizeof answer, MSG_DONTWAIT);
    if (!mIsProbing) {
        mIsProbing = true;
        mProbe.Type("version");
    } else if (size > 0) {
        for (unsigned int link = 0; link < LinkCount; ++link) {
            if (mUpset[link]) mWatch.Calm(static_cast<HeartbeatWatch::Wire>(link));
            mUpset[link] = false;
        }
    }
}

void Unit::Patch(const std::string& line, bool make)
{
    mPatches.insert(line);
    mOrb->Tell("patch " + line + (make ? " make=1" : " make=0"));
}

bool Unit::Look()
{
    const std::string output = mModule.Process().TakeOutput();
    if (mLog.is_open()) mLog << output << std::flush;
    const std::string text = mLineRest + output;
    const std::size_t end = text.rfind('\n') + 1;
    mLineRest = text.substr(end);
    for (const std::string& line : Lines(text.substr(0, end))) {
        // What is printed is read every few seconds.
        constexpr std::chrono::seconds Within(20);
        if (line.find("A heartbeat send delay") != std::string::npos) mWatch.TellLate("the log says: " + line, Within);
        for (const char* const bad : {"Exception on the main service", "unknown exception"}) {
            if (line.find(bad) != std::string::npos) mFindings.Violation("the log says: " + line);
        }
    }
    if (!mHasEnded) {
        try {
            mFindings.Violation("the module has ended: " + mModule.Process().Wait(Milliseconds(0)).Text());
            mHasEnded = true;
        } catch (const NotSeen&) {
            // As it should be.
        }
    }
    CheckDumps();
    CalmLinks();
    return !mHasEnded;
}

void Unit::CheckDumps()
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(DumpDirectory, ignored))
        if (entry.is_regular_file()) mFindings.ViolationOnce("there is a dump: " + entry.path().string());
}

void Unit::Settle()
{
    // Which streams are up depends on the last reports, so all peers report again.
    for (unsigned int link = 0; link < LinkCount; ++link)
        Unplug(link);
    AwaitMainThread();
    StartOver();
    for (const std::string& line : mPatches)
        mOrb->Tell("patch " + line + " make=0");
    mPatches.clear();
    ExpectRoutes({});

    const Neighbour& hub = Neighbours[1];
    mOrb->Tell("clear");
    Plug(0, hub);
    ExpectDevice(hub.device);
    ExpectStream(*mNeighbours[0], "hub", "local");
    ExpectStream(*mNeighbours[0], "hub", "data");
    const std::string toHub = "src=0x00120001:1:7 link=0 slots=21 dest=0x00300002:2:1";
    Patch(toHub, true);
    // The first slot of the link, if none was lost before.
    ExpectRoutes({{{FirstLinkEndpoint, 0}, {BulkEndpoint, 21}}});
    Patch(toHub, false);
    ExpectRoutes({});

    const Neighbour& box = Neighbours[0];
    for (unsigned int link = 0; link < LinkCount; ++link) {
        mOrb->Tell("clear");
        Plug(link, box);
        ExpectDevice(box.device);
        ExpectStream(*mNeighbours[link], "box", "local");
    }
    Patch("src=0x00200001:1:3 link=0 dest=0x00120001:2:5", true);
    Patch("src=0x00120001:1:2 link=0 slots=9 dest=0x00200001:2:4", true);
    // What goes to a box goes to it on both links.
    ExpectRoutes({{{BulkEndpoint, 0}, {FirstLinkEndpoint, 3}},
                  {{FirstLinkEndpoint, 4}, {BulkEndpoint, 9}},
                  {{SecondLinkEndpoint, 4}, {BulkEndpoint, 9}}});
    CompareTables();
}

void Unit::AwaitMainThread()
{
    mShell.Ask("version", SettlePatience);
    mShell.Ask("version", SettlePatience);
}

/// As at the start: the update service is connected, which lets the module connect to the Orb router, from which it
/// hears its name. An interface whose ifconfig failed stays down until then.
void Unit::StartOver()
{
    mOrb->Tell("disconnect");
    mUpdate->Tell("disconnect");
    mOrb->Tell("clear");
    AwaitMainThread();
    mUpdate->Tell("connect 55000 source=49190");
    ExpectStream(*mUpdate, "update service", "update");
    ExpectStream(*mOrb, "Orb router", "local");
    mOrb->WaitFor(peers::IO_INFO_REQ, 1, SettlePatience);
    AwaitMainThread();
}

void Unit::ExpectStream(Peer& peer, const std::string& name, const std::string& stream)
{
    if (peer.Tell("wait-stream " + stream + " 20000", Milliseconds(30000)).empty()) return;
    throw NotSeen("the " + name + " has no stream " + stream);
}

/// Until it is reported to the Orb router.
void Unit::ExpectDevice(const char* hid)
{
    try {
        mOrb->WaitForUpdate(peers::REMOTE_IO_UPDATE, hid, true, SettlePatience);
    } catch (const NotSeen&) {
        throw NotSeen(std::string("the Orb router is not told of the device ") + hid);
    }
}

/// Until the FPGA has these routes, sink and source, and no others.
void Unit::ExpectRoutes(const std::vector<std::pair<Sample, Sample>>& routes)
{
    const Deadline deadline(SettlePatience);
    while (!HasRoutes(routes)) {
        if (deadline.HasPassed()) {
            throw NotSeen("the FPGA has other routes than the " + std::to_string(routes.size()) +
                          " that were made; the module's:\n" + mShell.Ask("adma/status") + mShell.Ask("rs"));
        }
        AwaitMainThread();
    }
}

bool Unit::HasRoutes(const std::vector<std::pair<Sample, Sample>>& routes)
{
    constexpr unsigned int SourceShift = 12;
    std::size_t count = 0;
    for (const auto& [index, word] : ParseTable(mControl.Ask("table")))
        count += word >> SourceShift != 0 ? 1 : 0;
    return count == routes.size() && std::all_of(routes.begin(), routes.end(), [this](const auto& route) {
               return mControl.Probe(route.first) == std::optional<Sample>(route.second);
           });
}

/// The words that the module takes to be in force, and those that are.
void Unit::CompareTables()
{
    const auto hardware = ParseTable(mControl.Ask("table"));
    const auto own = ParseTable(Lines(mShell.Ask("adma/transactions 0 1535")));
    if (hardware != own) {
        throw NotSeen("the module's table of " + std::to_string(own.size()) + " words is not that of the FPGA, of " +
                      std::to_string(hardware.size()));
    }
}

void Unit::Stop()
{
    const Ending ending = mModule.Stop(SettlePatience);
    if (ending.signal != 0 || ending.exitCode != 0) mFindings.Violation("SIGTERM ended it with " + ending.Text());
    CheckDumps();
}

std::string Unit::Describe()
{
    std::string text;
    const auto add = [&](const std::string& name, Peer& peer) {
        text += name + " is " + peer.Tell("state").front() + ", streams:";
        for (const std::string& line : peer.Tell("streams"))
            text += " " + line;
        text += "\n";
    };
    add("the Orb router", *mOrb);
    add("the update service", *mUpdate);
    for (unsigned int link = 0; link < LinkCount; ++link) {
        if (mNeighbours[link]) add("the " + std::string(mFacts[link]->kind), *mNeighbours[link]);
    }
    return text;
}

} // namespace soak
