#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <netinet/in.h>
#include <sys/socket.h>

/// Where a socket leads to.
class SocketAddress
{
public:
    virtual ~SocketAddress() = default;

    virtual bool IsValid() const = 0;
    virtual const sockaddr* GetSockaddr() const = 0;
    virtual socklen_t GetLength() const = 0;
    virtual std::unique_ptr<SocketAddress> Clone() const = 0;
};

/// An IPv4 address with a port. Addresses and ports are in host order.
class Ipv4Address : public SocketAddress
{
public:
    /// The wildcard address.
    explicit Ipv4Address(std::uint16_t port = 0) : Ipv4Address(INADDR_ANY, port) {}
    Ipv4Address(std::uint32_t address, std::uint16_t port);
    /// From a dotted quad; not valid if the text is none.
    Ipv4Address(const std::string& host, std::uint16_t port);
    explicit Ipv4Address(const sockaddr_in& address) : mAddress(address) {}

    bool IsValid() const override { return mValid; }
    const sockaddr* GetSockaddr() const override { return reinterpret_cast<const sockaddr*>(&mAddress); }
    socklen_t GetLength() const override { return sizeof mAddress; }
    std::unique_ptr<SocketAddress> Clone() const override { return std::make_unique<Ipv4Address>(*this); }

private:
    sockaddr_in mAddress{};
    bool mValid = true;
};
