#include "Simulation/LinkDriver/NetlinkSocket.h"

#include <cerrno>
#include <linux/netlink.h>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace sim {

NetlinkSocket::NetlinkSocket(int protocol, std::uint32_t port, std::uint32_t groups)
    : mFd(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol))
{
    if (mFd < 0) throw std::system_error(errno, std::generic_category(), "netlink socket");
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = groups;
    if (bind(mFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(mFd);
        throw std::system_error(error, std::generic_category(), "bind netlink port " + std::to_string(port));
    }
}

NetlinkSocket::~NetlinkSocket()
{
    close(mFd);
}

void NetlinkSocket::Send(const std::vector<std::uint8_t>& bytes, std::uint32_t port)
{
    SendTo(bytes, port, 0);
}

void NetlinkSocket::SendToGroup(const std::vector<std::uint8_t>& bytes, std::uint32_t group)
{
    SendTo(bytes, 0, 1u << (group - 1));
}

void NetlinkSocket::SendTo(const std::vector<std::uint8_t>& bytes, std::uint32_t port, std::uint32_t groups)
{
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = groups;
    // A send to a group answers ECONNREFUSED after it has been delivered, since no socket has port 0 of this protocol.
    sendto(mFd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

std::vector<std::uint8_t> NetlinkSocket::Receive(std::uint32_t& port)
{
    std::vector<std::uint8_t> bytes(64 * 1024);
    sockaddr_nl sender{};
    socklen_t length = sizeof sender;
    const ssize_t size =
        recvfrom(mFd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length);
    bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    port = sender.nl_pid;
    return bytes;
}

} // namespace sim
