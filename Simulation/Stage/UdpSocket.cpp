#include "Simulation/Stage/UdpSocket.h"

#include "Simulation/Stage/NetworkNamespace.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace stage {

namespace {

sockaddr_in Endpoint(const std::string& address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr) != 1) throw std::invalid_argument(address);
    return endpoint;
}

} // namespace

UdpSocket::UdpSocket(const std::string& networkNamespace, const std::string& address, std::uint16_t port)
    : mName(address + ":" + std::to_string(port))
{
    const NamespaceScope scope(networkNamespace);
    mSocket = FileDescriptor(Checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket"));
    const sockaddr_in local = Endpoint(address, port);
    Checked(bind(mSocket.Get(), reinterpret_cast<const sockaddr*>(&local), sizeof local), "bind " + mName);
}

void UdpSocket::SendTo(const std::string& address, std::uint16_t port, const std::string& bytes)
{
    const sockaddr_in peer = Endpoint(address, port);
    Checked(static_cast<int>(sendto(mSocket.Get(), bytes.data(), bytes.size(), 0,
                                    reinterpret_cast<const sockaddr*>(&peer), sizeof peer)),
            "send to " + address);
}

Datagram UdpSocket::Receive(Milliseconds patience)
{
    if (!mSocket.WaitReadable(Deadline(patience))) throw NotSeen("no datagram came to " + mName);
    std::array<char, 65536> block;
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const ssize_t size =
        recvfrom(mSocket.Get(), block.data(), block.size(), 0, reinterpret_cast<sockaddr*>(&peer), &length);
    if (size < 0) throw std::system_error(errno, std::generic_category(), "receive at " + mName);

    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &peer.sin_addr, text.data(), text.size());
    return {std::string(block.data(), static_cast<std::size_t>(size)), text.data(), ntohs(peer.sin_port)};
}

} // namespace stage
