// What a newcomer sees first: the module in the rig, at work.

#include "Simulation/Rehearsal/NetworkScene.h"
#include "Simulation/Rehearsal/Rehearsal.h"
#include "Simulation/Rehearsal/RoutingScene.h"
#include "Simulation/Rehearsal/ShowScene.h"
#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/RigProgram.h"

#include <iostream>
#include <memory>
#include <string>

#include <unistd.h>

namespace po = boost::program_options;
using namespace rehearsal;

namespace {

/// Shows the module on a page, at the listening socket that this program was given.
std::unique_ptr<stage::ChildProcess> StartWatch(int descriptor)
{
    stage::Command command{{stage::ProgramPath("OrbWatch"), "--listen-fd", std::to_string(descriptor)}};
    command.descriptors = {descriptor};
    auto watch = std::make_unique<stage::ChildProcess>(command);
    watch->WaitForOutput("OrbWatch shows");
    return watch;
}

int Play(const po::variables_map& values)
{
    stage::ModuleSetup setup;
    if (values.count("module")) setup.program = values["module"].as<std::string>();
    const std::chrono::seconds patience(values["patience"].as<unsigned int>());
    const bool hasTerminal = isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);

    std::unique_ptr<stage::ChildProcess> watch;
    if (values.count("watch")) watch = StartWatch(values["watch"].as<int>());

    RoutingScene routing(setup, patience);
    NetworkScene network(routing, patience);
    ShowScene show(routing, network, patience);
    Rehearsal rehearsal(values.count("step") > 0, std::chrono::seconds(values["pace"].as<unsigned int>()));
    rehearsal.Add(routing.Steps());
    rehearsal.Add(network.Steps());
    rehearsal.Add(show.Steps());
    if (hasTerminal && !values.count("no-shell")) {
        rehearsal.Add(routing.HandOver());
    }
    rehearsal.Add(routing.Farewell());
    if (!rehearsal.Play()) return 1;
    std::cout << "The rehearsal is complete: every step was seen." << std::endl;
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    po::options_description description("Plays the module's rehearsal; run it in the rig");
    // clang-format off
    description.add_options()
        ("help", "this text")
        ("module", po::value<std::string>(), "the program to play with, else OrbModuleSim beside this one")
        ("patience", po::value<unsigned int>()->default_value(10), "seconds that each thing may take to be seen")
        ("watch", po::value<int>(), "show the module on a page at the listening socket with this number")
        ("pace", po::value<unsigned int>()->default_value(0), "seconds to wait after each step")
        ("step", "wait for Enter before each step")
        ("no-shell", "do not hand over to the shell, even on a terminal");
    // clang-format on
    return stage::RunInRig("rehearsal", argc, argv, description, Play);
}
