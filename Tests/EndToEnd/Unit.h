#pragma once

#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/UdpSocket.h"
#include "Simulation/Stage/UnitSetup.h"
#include "Tests/Support/Await.h"

#include <boost/algorithm/string.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <regex>
#include <sstream>
#include <thread>

/// Whether a text has the form of a pattern, in which a star stands for any text.
inline bool Matches(std::string text, std::string pattern)
{
    text += '\0';
    pattern += '\0';
    for (std::size_t at = 0, begin = 0;;) {
        const std::size_t star = pattern.find('*', begin);
        const std::string part = pattern.substr(begin, star - begin);
        const std::size_t found = text.find(part, at);
        if (found == std::string::npos || (begin == 0 && found != 0)) return false;
        if (star == std::string::npos) return true;
        at = found + part.size();
        begin = star + 1;
    }
}

/// The module in its unit, with an empty log, and whoever is in its network. A scene tells them what to do.
class Unit
{
public:
    Unit()
    {
        // Tools that a scene replaces come first, and scenes name programs without their directory.
        static const std::string sPath = "/tmp/tools:" + stage::ProgramPath("") + ":" + getenv("PATH");
        setenv("PATH", sPath.c_str(), 1);
        Play("run rm -rf /var/log/K2.log /var/lib/ostrel /home/root; mkdir -p /home/root/OrbModule\n"
             "run ip address replace 1.63.5.0/16 dev eth0");
    }

    /// Plays a scene: each line has a verb of the tables below, and after an arrow the pattern of the answer, which
    /// may take its time to become so. Without an arrow there is no answer. The lines of an answer are joined by bars.
    /// A line that is indented continues the one before, with a blank unless a star stands there; one that begins with
    /// # is a remark.
    void Play(const std::string& scene)
    {
        const std::string joined = std::regex_replace(scene, std::regex("\\*\n +\\*"), "*");
        std::istringstream lines(std::regex_replace(joined, std::regex("\n +"), " "));
        for (std::string line; std::getline(lines, line);) {
            if (line.empty() || line[0] == '#') continue;
            const std::size_t arrow = line.find(" ->");
            const std::string order = line.substr(0, arrow);
            std::string answer;
            try {
                if (arrow == std::string::npos) {
                    answer = Do(order);
                    if (answer.empty()) continue;
                } else {
                    const std::string pattern = boost::algorithm::trim_left_copy(line.substr(arrow + 3));
                    const auto pause = [] { std::this_thread::sleep_for(stage::Milliseconds(5)); };
                    if (Await([&] { return Matches(answer = Do(order), pattern); }, pause)) continue;
                }
            } catch (const std::exception& error) {
                answer = error.what();
            }
            throw std::runtime_error("\n" + line + "\nbut there was\n" + answer);
        }
    }

private:
    static constexpr std::size_t StampLength = 20;

    std::string Do(const std::string& line)
    {
        const std::size_t blank = std::min(line.find(' '), line.size());
        const std::string verb = line.substr(0, blank);
        const std::string text = line.substr(std::min(blank + 1, line.size()));
        if (const auto peer = mPeers.find(verb); peer != mPeers.end()) return Tell(*peer->second, text);
        if (const auto script = mScripts.find(verb); script != mScripts.end()) return Run(script->second, text);
        if (const auto question = mQuestions.find(verb); question != mQuestions.end()) return question->second(text);
        mOrders.at(verb)(text);
        return {};
    }
    /// Of each command that a peer has received there is the stream, and the value in hex; of all, also the number.
    static std::string Tell(stage::Peer& peer, const std::string& line)
    {
        std::vector<std::string> answer = peer.Tell(line);
        const std::regex entry(R"(^\d+ (\S+) (\d+)( \S\S){8})");
        for (std::string& each : answer)
            if (line.rfind("received", 0) == 0)
                each = std::regex_replace(each, entry, line == "received" ? "$2 $1" : "$1");
        return boost::algorithm::join(answer, " | ");
    }
    static std::string Ask(const std::string& path, const std::string& line)
    {
        return boost::algorithm::join(stage::ControlChannel(path).Ask(line), " | ");
    }
    static std::string InOneLine(std::istream&& text)
    {
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            boost::algorithm::trim(line);
            // The time of a line of the log is left out.
            if (line.size() > StampLength && line[0] == '[') line.erase(0, StampLength);
            if (!line.empty()) lines.push_back(line);
        }
        return boost::algorithm::join(lines, " | ");
    }
    static std::string InOneLine(const std::string& text) { return InOneLine(std::istringstream(text)); }
    static std::string Run(const std::string& script, const std::string& text)
    {
        stage::ChildProcess process({{"bash", "-c", script, text}});
        const std::string ending = process.Wait().Text();
        return InOneLine(process.Output() + process.Errors() + (ending == "exit code 0" ? "" : ending));
    }
    std::string End(bool isAsked)
    {
        stage::ChildProcess& module = mProcesses.at("module");
        const std::string ending = (isAsked ? module.Stop() : module.Wait()).Text();
        return InOneLine(ending + "\n" + module.Errors());
    }
    /// @param text the link, the name of a neighbour, and a further order to it.
    /// @return the last device that the Orb router will learn of.
    std::string Plug(const std::string& text)
    {
        std::istringstream words(text);
        unsigned int link = 0;
        std::string name, order;
        std::getline(words >> link >> name >> std::ws, order);
        stage::Neighbour neighbour = mNeighbours.at(name);
        if (!order.empty()) neighbour.lines.push_back(order);
        stage::Peer& peer = *(mPeers[text.substr(0, 1)] = stage::StartNeighbour(link, neighbour));
        Ask(stage::LinkDriverPath, stage::PlugLine(link, neighbour.rack));
        peer.Tell("appear");
        return name == "hub" ? "0x00300002" : neighbour.hid;
    }
    void StartProcess(const std::string& name, const stage::Command& command, const std::string& output)
    {
        mProcesses.erase(name);
        mProcesses.try_emplace(name, command).first->second.WaitForOutput(output);
    }
    void AwaitUpdate(const std::string& hid, bool present)
    {
        const bool isRouting = hid.find("8000") != std::string::npos;
        mPeers.at("orb")->WaitForUpdate(isRouting ? 827 : 826, hid, present);
    }

    const std::map<std::string, stage::Neighbour> mNeighbours{
        {"box", {"fixed", "0x00200001", 0x20, {"card 0 QV1410"}}},
        {"other-box", {"fixed", "0x00210001", 0x21, {"card 0 QV1410"}}},
        {"hub", {"hub", "0x00308000", 0x30, {"device 0x00300002 fixed 0.48.9.1", "of 0x00300002 card 0 QV1410"}}},
        {"router", {"router", "0x00408000", 0x40, {}}}};
    /// What peers there are, "orb", "update" or the link of a neighbour, which take orders of the program Peer.
    std::map<std::string, std::unique_ptr<stage::Peer>> mPeers;
    std::map<std::string, stage::ChildProcess> mProcesses;
    std::optional<stage::UdpSocket> mOccupied;

    const std::map<std::string, std::function<void(const std::string&)>> mOrders{
        {"start-orb", [this](const std::string&) { mPeers["orb"] = stage::StartOrbRouter(); }},
        {"start-update", [this](const std::string& order) { mPeers["update"] = stage::StartUpdateService(order); }},
        {"start-driver",
         [this](const std::string&) { StartProcess("driver", stage::Module::MakeLinkDriverCommand(), "ready"); }},
        // Perhaps by a command of its own.
        {"start-module",
         [this](const std::string& command) {
             const std::string text = command.empty() ? "exec OrbModuleSim" : command;
             StartProcess("module", stage::Module::MakeCommand({"sh", {"-c", text}}), "");
         }},
        {"start-alone", [this](const std::string&) { Play("start-driver\nstart-module\nlog -> *Run...........*"); }},
        {"start-watch", [this](const std::string&) { StartProcess("watch", {{"OrbWatch"}}, "OrbWatch shows"); }},
        // All of them, until the module knows who it is and its links are up. A master router may take so long, in
        // milliseconds, to appear; the module adds 5 s.
        {"start",
         [this](const std::string& routerTime) {
             Play("start-orb\nstart-update\nstart-alone\norb received 800 -> *local*\norb command 885 u32:" +
                  (routerTime.empty() ? "600000" : routerTime) + "\nlog -> *Start Router Ignore Timer*");
         }},
        {"plug", [this](const std::string& text) { Plug(text); }},
        {"connect", [this](const std::string& text) { AwaitUpdate(Plug(text), true); }},
        {"unplug",
         [this](const std::string& link) {
             Ask(stage::LinkDriverPath, "unplug " + link);
             mPeers.erase(link);
         }},
        {"knows", [this](const std::string& hid) { AwaitUpdate(hid, true); }},
        {"forgets", [this](const std::string& hid) { AwaitUpdate(hid, false); }},
        {"occupy", [this](const std::string& port) { mOccupied.emplace("", "0.0.0.0", std::stoi(port)); }},
        {"release", [this](const std::string&) { mOccupied.reset(); }}};

    const std::map<std::string, std::function<std::string(const std::string&)>> mQuestions{
        {"driver", [](const std::string& line) { return Ask(stage::LinkDriverPath, line); }},
        {"fpga", [](const std::string& line) { return Ask(stage::Module::ControlPath(), line); }},
        {"shell",
         [](const std::string& line) {
             stage::ShellClient shell;
             shell.StopTailing();
             return InOneLine(shell.Ask(line));
         }},
        {"log", [](const std::string&) { return InOneLine(std::ifstream("/var/log/K2.log")); }},
        {"end", [this](const std::string&) { return End(true); }},
        {"await-end", [this](const std::string&) { return End(false); }}};

    /// What the shell of this machine does with a text, which is its argument 0.
    const std::map<std::string, std::string> mScripts{
        {"run", "eval \"$0\""},
        // Features of the log, from the start of the module on.
        {"features", "echo on \"$0\" >/home/root/OrbModule/debug.conf"},
        // The IPv4 address of an interface.
        {"address", "ip -4 -brief address show dev $0 | tr / ' ' | awk '{print $3}'"},
        // How many lines of the log have a text.
        {"count", "grep -cF \"$0\" /var/log/K2.log || true"},
        // A page of OrbWatch.
        {"get", "exec 3<>/dev/tcp/127.0.0.1/8055; printf 'GET %s HTTP/1.1\\r\\nHost: localhost\\r\\nConnection: "
                "close\\r\\n\\r\\n' $0 >&3; cat <&3"},
        // A peer of others, by its kind and number.
        {"peer", "set -- $0; ORB_SIM_CONTROL=/tmp/Peer-$1.control OrbControl \"${@:2}\""}};
};
