#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

/// A bound netlink datagram socket that never blocks.
class NetlinkSocket
{
public:
    /// @param port 0 for one of the kernel's choice; @param groups mask of the groups to listen to.
    /// @throws std::system_error
    NetlinkSocket(int protocol, std::uint32_t port, std::uint32_t groups);
    ~NetlinkSocket();
    NetlinkSocket(const NetlinkSocket&) = delete;
    NetlinkSocket& operator=(const NetlinkSocket&) = delete;

    int GetFileDescriptor() const { return mFd; }
    /// To one port. What cannot be taken at once is lost.
    void Send(const std::vector<std::uint8_t>& bytes, std::uint32_t port);
    /// To all of a group.
    void SendToGroup(const std::vector<std::uint8_t>& bytes, std::uint32_t group);
    /// The next datagram, at most 64 KiB of it; empty if there is none. @param port takes the sender's.
    std::vector<std::uint8_t> Receive(std::uint32_t& port);

private:
    void SendTo(const std::vector<std::uint8_t>& bytes, std::uint32_t port, std::uint32_t groups);

    int mFd;
};

} // namespace sim
