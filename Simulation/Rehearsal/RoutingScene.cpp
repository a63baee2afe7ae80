#include "Simulation/Rehearsal/RoutingScene.h"

#include "Simulation/Rehearsal/Terminal.h"
#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UdpSocket.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <sstream>

using namespace stage;

namespace rehearsal {

namespace {

constexpr int HeartbeatsSeen = 3;
constexpr Sample Source{BulkEndpoint, 5};
constexpr Sample Sink{FirstLinkEndpoint, 7};

const std::string ExpectedHeartbeat("\x96\xff\xff\xff\xff", 5);

std::string Hex(const std::string& bytes)
{
    std::string text;
    for (const char byte : bytes) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x ", static_cast<unsigned char>(byte));
        text += digits.data();
    }
    return text.substr(0, text.size() - 1);
}

/// The lines that have text, one per line.
std::string Indented(const std::string& text)
{
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) result += "\n        " + line;
    }
    return result;
}

/// A reply of a command that has nothing to say.
void ExpectNoComplaint(const std::string& line, const std::string& reply)
{
    if (!reply.empty()) throw NotSeen("'" + line + "' in the shell gave '" + reply + "'");
}

} // namespace

std::vector<Step> RoutingScene::Steps()
{
    return {{"the module starts", [this] { return Start(); }},
            {"its heartbeat reaches master control", [this] { return SeeHeartbeats(); }},
            {"an engineer opens the shell", [this] { return OpenShell(); }},
            {"a command routes a sample through the FPGA", [this] { return Patch(); }},
            {"the audio is muted", [this] { return Mute(); }},
            {"all routes are cleared", [this] { return Clear(); }},
            {"the routes are listed", [this] { return ShowStatus(); }}};
}

Step RoutingScene::HandOver()
{
    return {"the shell is handed over", [this] {
                mQuitByHand = !HandOverToShell();
                return std::string(mQuitByHand ? "The module has closed it." : "The rehearsal continues.");
            }};
}

Step RoutingScene::Farewell()
{
    return {"the module stops", [this] { return Stop(); }};
}

std::string RoutingScene::Start()
{
    mModule = std::make_unique<Module>(mSetup, mPatience);
    mControl.emplace(mModule->OpenControl());
    return "It runs as process " + std::to_string(mModule->Process().Id()) + ", writes " + LogPath +
           " and serves its shell at port " + std::to_string(ShellPort) + ".";
}

std::string RoutingScene::SeeHeartbeats()
{
    UdpSocket masterControl(UnitNamespace, MasterControlAddress, HeartbeatPort);
    using Clock = std::chrono::steady_clock;
    Clock::time_point first;
    for (int i = 0; i < HeartbeatsSeen; ++i) {
        const Datagram heartbeat = masterControl.Receive(mPatience);
        if (i == 0) first = Clock::now();
        if (heartbeat.bytes != ExpectedHeartbeat || heartbeat.address != ModuleAddress ||
            heartbeat.port != HeartbeatPort) {
            throw NotSeen("master control received " + Hex(heartbeat.bytes) + " from " + heartbeat.address + ":" +
                          std::to_string(heartbeat.port));
        }
    }
    const std::chrono::duration<double> between = (Clock::now() - first) / (HeartbeatsSeen - 1);
    std::array<char, 32> seconds{};
    std::snprintf(seconds.data(), seconds.size(), "%.2f", between.count());
    return std::string("At ") + MasterControlAddress + ", " + std::to_string(HeartbeatsSeen) + " datagrams came from " +
           ModuleAddress + ", " + seconds.data() + " s apart: " + Hex(ExpectedHeartbeat) +
           " (no master router is known yet).";
}

std::string RoutingScene::OpenShell()
{
    mShell.emplace(mModule->OpenShell(mPatience));
    mShell->StopTailing(mPatience);
    return "It greets and answers:" + Indented(mShell->Greeting() + "> version\n" + mShell->Ask("version", mPatience));
}

std::string RoutingScene::Patch()
{
    const std::string before = mControl->AskOne("probe " + Sink.Text());
    if (before != "silence") throw NotSeen("the sample is fed by " + before + " before the command");
    const std::string line = "patch 0 5 1 7";
    ExpectNoComplaint(line, mShell->Ask(line, mPatience));
    mControl->WaitForRoute(Sink, Source, mPatience);
    return "'" + line + "': the FPGA has activated a table in which sample 7 of link port 1 (endpoint " +
           std::to_string(Sink.endpoint) + ") is fed by sample 5 of the Orb side (endpoint " +
           std::to_string(Source.endpoint) + "); before, it was silent.";
}

std::string RoutingScene::Mute()
{
    for (const bool mute : {true, false}) {
        const std::string line = std::string("adma/mute ") + (mute ? "true" : "false");
        ExpectNoComplaint(line, mShell->Ask(line, mPatience));
        const bool isMuted = (mControl->Register(AudioDmaBlock, ControlRegister) & MuteBit) != 0;
        if (isMuted != mute) throw NotSeen("after '" + line + "' the FPGA's mute bit has not changed");
    }
    return "'adma/mute true' sets the mute bit of the FPGA, 'adma/mute false' clears it.";
}

std::string RoutingScene::Clear()
{
    const std::string line = "adma/clear_all";
    ExpectNoComplaint(line, mShell->Ask(line, mPatience));
    mControl->WaitForRoute(Sink, std::nullopt, mPatience);
    return "'" + line + "': the FPGA has activated a table in which sample 7 of link port 1 is silent again.";
}

std::string RoutingScene::ShowStatus()
{
    const std::string line = "adma/status";
    const std::string reply = mShell->Ask(line, mPatience);
    for (const std::string sink : {"bulk: ", "k0: ", "k1: "}) {
        if (reply.find(" >> " + sink) == std::string::npos) {
            throw NotSeen("'" + line + "' does not list the sink " + sink + "but gives '" + reply + "'");
        }
    }
    return "'" + line + "' lists each sink and what feeds it:" + Indented(reply);
}

std::string RoutingScene::Stop()
{
    mShell.reset();
    const std::string cause = mQuitByHand ? "'quit'" : "SIGTERM";
    const Ending ending = mQuitByHand ? mModule->Process().Wait(mPatience) : mModule->Stop(mPatience);
    if (ending.signal || ending.exitCode) throw NotSeen(cause + " ended the module with " + ending.Text());
    return cause + " ends it cleanly: " + ending.Text() + ".";
}

} // namespace rehearsal
