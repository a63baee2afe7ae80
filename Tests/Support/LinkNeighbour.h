#pragma once

#include <algorithm>
#include <boost/asio.hpp>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

/// The neighbour at the far end of a cable.
class LinkNeighbour
{
public:
    using Endpoint = boost::asio::ip::udp::endpoint;

    /// @param local where it listens; its network namespace is that of the calling thread.
    explicit LinkNeighbour(const Endpoint& local = {boost::asio::ip::address_v4::loopback(), 0})
        : mSocket(mService, local)
    {
        const int on = 1;
        setsockopt(mSocket.native_handle(), IPPROTO_IP, IP_RECVTOS, &on, sizeof on);
        setsockopt(mSocket.native_handle(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
        const timeval patience{10, 0};
        setsockopt(mSocket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    Endpoint GetEndpoint() const { return mSocket.local_endpoint(); }

    bool HasHeartbeat() const
    {
        pollfd wait{mNative, POLLIN, 0};
        return poll(&wait, 1, 0) > 0;
    }
    /// The module's next heartbeat, which also tells where it is to be answered.
    std::vector<std::uint8_t> Receive()
    {
        std::uint8_t bytes[64];
        char control[256];
        iovec data{bytes, sizeof bytes};
        msghdr message{};
        message.msg_name = mModule.data();
        message.msg_namelen = static_cast<socklen_t>(mModule.capacity());
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t size = recvmsg(mSocket.native_handle(), &message, 0);
        if (size < 0) return {};
        mModule.resize(message.msg_namelen);
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
            if (header->cmsg_level == IPPROTO_IP && header->cmsg_type == IP_TOS) mTypeOfService = *CMSG_DATA(header);
            if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SO_TIMESTAMPNS) {
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
                mArrival = std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec);
            }
        }
        return {bytes, bytes + size};
    }
    /// Until the module has told this variant word.
    bool WaitForVariant(std::vector<std::uint8_t> variant)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (std::chrono::steady_clock::now() < end) {
            const auto packet = Receive();
            if (packet.size() == 12 && std::equal(variant.begin(), variant.end(), packet.begin() + 8)) return true;
        }
        return false;
    }
    /// To where the module's last heartbeat came from.
    void Send(const std::vector<std::uint8_t>& bytes) { mSocket.send_to(boost::asio::buffer(bytes), mModule); }
    /// Where the last heartbeat came from, and with which type of service.
    const Endpoint& GetModule() const { return mModule; }
    int TypeOfService() const { return mTypeOfService; }
    /// When the kernel took the last heartbeat in, by the system's clock.
    std::chrono::nanoseconds Arrival() const { return mArrival; }

private:
    boost::asio::io_service mService;
    boost::asio::ip::udp::socket mSocket;
    int mNative = mSocket.native_handle();
    Endpoint mModule;
    int mTypeOfService = 0;
    std::chrono::nanoseconds mArrival{0};
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
