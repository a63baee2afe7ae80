#pragma once

#include "Simulation/LinkDriver/NetlinkSocket.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

struct nlmsghdr;

namespace sim {

/// The link driver of a unit, in a process: answers on a userspace netlink port as the kernel's generic netlink does
/// for the family "k2link", holds the state of three ports, and reports changes to the group "notify".
///
/// A plugged cable is not yet a neighbour: where an interface k2linkN exists, its neighbour shows only while that
/// interface is up. Where there is none, the port counts as up.
///
/// Its thread serves requests and watches the interfaces; Execute may be called from any thread.
class LinkDriver
{
public:
    static constexpr std::uint32_t NETLINK_PORT = 27442;
    static constexpr std::uint32_t PORT_COUNT = 3;

    /// @throws std::system_error if the netlink port is taken.
    LinkDriver();
    ~LinkDriver();
    LinkDriver(const LinkDriver&) = delete;
    LinkDriver& operator=(const LinkDriver&) = delete;

    /// Carries out one command line, and gives the lines of the answer, each with its line feed, without the final
    /// ".". Numbers may be decimal, or hexadecimal with 0x.
    ///   plug PORT REMOTEID REMOTEPORT   unplug PORT   endpoint PORT ADMA
    ///   raw HEX       this datagram to the group      error CODE    an error message to the group
    ///   burst N       N reports, port by port in turn
    std::string Execute(const std::string& line);

private:
    struct Port
    {
        std::uint32_t remoteId = 0xFFFFFFFF;
        std::uint32_t remotePort = 0;
        std::uint32_t fsiEndpoint = 0;
        std::uint32_t admaEndpoint = 0;
        bool isUp = true;
    };
    using Bytes = std::vector<std::uint8_t>;

    void Serve();
    void ServeRequests();
    void ServeInterfaces();
    void TakeInterfaceChange(const nlmsghdr& header);
    void Answer(const nlmsghdr& request, std::uint32_t to);
    Bytes MakeFamilyReply(const nlmsghdr& request) const;
    Bytes MakeReport(std::uint32_t port, std::uint32_t to, std::uint32_t sequence) const;
    static Bytes MakeError(int error, const nlmsghdr* request);
    std::string Carry(const std::vector<std::string>& words);
    void Notify(const Bytes& bytes);
    void NotifyPort(std::uint32_t port) { Notify(MakeReport(port, 0, 0)); }

    const std::uint16_t mFamily;
    NetlinkSocket mSocket;
    NetlinkSocket mInterfaces;
    /// Guards mPorts.
    std::mutex mMutex;
    std::array<Port, PORT_COUNT> mPorts;
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

} // namespace sim
