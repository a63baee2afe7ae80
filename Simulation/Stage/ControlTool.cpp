// Sends one command to a control channel and prints the answer:
//   OrbControl probe 1 7        at the socket in ORB_SIM_CONTROL
// Exit code 0, or 1 if the answer is an error or none comes.

#include "Simulation/Stage/Module.h"

#include <iostream>

int main(int argc, char** argv)
{
    std::string command;
    for (int i = 1; i < argc; ++i)
        command += (i > 1 ? " " : "") + std::string(argv[i]);
    if (command.empty()) {
        std::cerr << "Usage: OrbControl COMMAND [ARGUMENT...], with the socket's path in " << stage::ControlVariable
                  << "\n";
        return 2;
    }
    try {
        // A "wait" answers in its own time.
        for (const std::string& line :
             stage::ControlChannel(stage::Module::ControlPath()).Ask(command, std::chrono::hours(1))) {
            std::cout << line << "\n";
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "OrbControl: " << error.what() << "\n";
        return 1;
    }
}
