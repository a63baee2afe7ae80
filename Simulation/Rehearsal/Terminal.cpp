#include "Simulation/Rehearsal/Terminal.h"

#include "Simulation/Stage/ShellClient.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rehearsal {

bool HandOverToShell()
{
    std::cout << "\nThe shell is yours: 'help' lists the commands. Replies come with the log, after 'tail false' "
                 "alone.\nCtrl-D ends the rehearsal.\n";
    stage::ShellClient shell;
    // Ctrl-C is for a command that is being typed; the rehearsal ends in good order by Ctrl-D.
    std::signal(SIGINT, SIG_IGN);
    std::cout << shell.Greeting() << std::flush;

    std::array<char, 4096> block;
    const int connection = shell.Stream().Descriptor();
    std::cout << shell.Stream().Pending() << std::flush;
    for (;;) {
        std::array<pollfd, 2> entries{{{STDIN_FILENO, POLLIN, 0}, {connection, POLLIN, 0}}};
        if (poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) return true;
        if (entries[1].revents) {
            const ssize_t size = recv(connection, block.data(), block.size(), 0);
            if (size <= 0) return false;
            std::cout.write(block.data(), size).flush();
        }
        if (entries[0].revents) {
            const ssize_t size = read(STDIN_FILENO, block.data(), block.size());
            if (size <= 0) return true;
            shell.Stream().Send(std::string(block.data(), static_cast<std::size_t>(size)));
        }
    }
}

} // namespace rehearsal
