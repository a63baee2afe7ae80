#include "Sockets/SocketAddress.h"

#include <arpa/inet.h>

Ipv4Address::Ipv4Address(std::uint32_t address, std::uint16_t port)
{
    mAddress.sin_family = AF_INET;
    mAddress.sin_port = htons(port);
    mAddress.sin_addr.s_addr = htonl(address);
}

Ipv4Address::Ipv4Address(const std::string& host, std::uint16_t port) : Ipv4Address(INADDR_ANY, port)
{
    mValid = inet_pton(AF_INET, host.c_str(), &mAddress.sin_addr) == 1;
}
