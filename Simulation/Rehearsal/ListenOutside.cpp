// Opens a listening socket and runs a command with it as descriptor 3. A command that makes a network namespace of its
// own can so be reached from the network in which this was started.

#include <cstdlib>
#include <iostream>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int HandedDescriptor = 3;

/// @return -1 and a line on standard error if the port cannot be had.
int Listen(std::uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(descriptor, SOMAXCONN) != 0) {
        perror("ListenOutside");
        return -1;
    }
    return descriptor;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::cerr << "Usage: ListenOutside PORT COMMAND [argument...]; port 0 is any free one" << std::endl;
        return 2;
    }
    const int descriptor = Listen(static_cast<std::uint16_t>(std::atoi(argv[1])));
    if (descriptor < 0) return 1;
    if (descriptor != HandedDescriptor) dup2(descriptor, HandedDescriptor);
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    std::cout << "The page of the module: http://127.0.0.1:" << ntohs(address.sin_port) << "/" << std::endl;
    execvp(argv[2], argv + 2);
    perror("ListenOutside");
    return 1;
}
