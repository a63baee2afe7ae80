#include "Simulation/Soak/Vitals.h"

#include "Simulation/Stage/ChildProcess.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace soak {

namespace {

std::size_t CountEntries(const std::string& directory)
{
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
        ++count;
    return count;
}

} // namespace

Vitals Vitals::Of(pid_t process, stage::ControlChannel& control)
{
    const std::string directory = "/proc/" + std::to_string(process);
    Vitals vitals;
    vitals.allocatedKiB = std::stoul(control.AskOne("heap")) / 1024;
    std::ifstream status(directory + "/status");
    for (std::string line; std::getline(status, line);) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        if (name == "VmRSS:") words >> vitals.residentKiB;
    }
    vitals.threads = CountEntries(directory + "/task");
    vitals.descriptors = CountEntries(directory + "/fd");
    return vitals;
}

std::string Vitals::ListSockets(pid_t process)
{
    stage::ChildProcess list({{"ss", "--numeric", "--all", "--processes", "--tcp", "--udp"}});
    list.Wait();
    std::istringstream lines(list.Output());
    std::string text;
    for (std::string line; std::getline(lines, line);) {
        if (line.find("pid=" + std::to_string(process) + ",") != std::string::npos) text += line + "\n";
    }
    return text;
}

std::string Vitals::Text() const
{
    return std::to_string(allocatedKiB) + " KiB allocated, " + std::to_string(residentKiB) + " KiB resident, " +
           std::to_string(threads) + " threads, " + std::to_string(descriptors) + " descriptors";
}

Vitals Vitals::Settled(pid_t process, stage::ControlChannel& control, const Vitals& wanted)
{
    constexpr std::chrono::seconds Patience(20);
    const auto deadline = std::chrono::steady_clock::now() + Patience;
    for (;;) {
        Vitals vitals = Of(process, control);
        if (vitals.HasMemoryOf(wanted) && vitals.HasHandlesOf(wanted)) return vitals;
        if (std::chrono::steady_clock::now() > deadline) {
            vitals.sockets = ListSockets(process);
            return vitals;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

} // namespace soak
