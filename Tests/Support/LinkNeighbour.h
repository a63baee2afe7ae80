#pragma once

#include "Tests/Support/Await.h"

#include <algorithm>
#include <boost/asio.hpp>
#include <cstdint>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

/// The neighbour at the far end of a cable.
class LinkNeighbour
{
public:
    using Endpoint = boost::asio::ip::udp::endpoint;

    /// @param local where it listens.
    explicit LinkNeighbour(const Endpoint& local = {boost::asio::ip::address_v4::loopback(), 0})
        : mSocket(mService, local)
    {
        const timeval patience{10, 0};
        setsockopt(mSocket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    Endpoint GetEndpoint() const { return mSocket.local_endpoint(); }

    bool HasHeartbeat() const
    {
        pollfd wait{mNative, POLLIN, 0};
        return poll(&wait, 1, 0) > 0;
    }
    /// The module's next heartbeat, which also shows the address to answer.
    std::vector<std::uint8_t> Receive()
    {
        std::uint8_t bytes[64];
        socklen_t size = static_cast<socklen_t>(mModule.capacity());
        const ssize_t length = recvfrom(mNative, bytes, sizeof bytes, 0, mModule.data(), &size);
        if (length < 0) return {};
        mModule.resize(size);
        return {bytes, bytes + length};
    }
    /// Until the module has sent this variant word.
    bool WaitForVariant(std::vector<std::uint8_t> variant)
    {
        std::vector<std::uint8_t> packet;
        return Await(
            [&] { return packet.size() == 12 && std::equal(variant.begin(), variant.end(), packet.begin() + 8); },
            [&] { packet = Receive(); });
    }
    /// To where the module's last heartbeat came from.
    void Send(const std::vector<std::uint8_t>& bytes) { mSocket.send_to(boost::asio::buffer(bytes), mModule); }

private:
    boost::asio::io_service mService;
    boost::asio::ip::udp::socket mSocket;
    int mNative = mSocket.native_handle();
    Endpoint mModule;
};

/// A heartbeat by its bytes: HID, type, variant.
inline std::vector<std::uint8_t> HeartbeatPacket(std::uint16_t rack, std::uint16_t device, std::uint8_t type,
                                                 const std::vector<std::uint8_t>& variant)
{
    std::vector<std::uint8_t> packet;
    for (const int byte : {device & 0xFF, device >> 8, rack & 0xFF, rack >> 8, int{type}, 0, 0, 0})
        packet.push_back(static_cast<std::uint8_t>(byte));
    packet.insert(packet.end(), variant.begin(), variant.end());
    return packet;
}
