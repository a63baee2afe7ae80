#pragma once

#include "MiscSource/GlobalConstants.h"
#include "OrbModule/Inc/LinkManager/K2LinkStatus.h"
#include "OrbModule/Inc/LinkManager/LinkEnvironment.h"

#include <boost/asio/ip/udp.hpp>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <poll.h>
#include <string>

struct nl_sock;
class LinkManager;

/// All that the module asks of the link interfaces and their kernel driver: shell commands that configure an
/// interface, and the netlink family through which the driver reports each port's neighbour. Cheap and short-lived,
/// but for the one of the scan. An instance belongs to one thread.
class K2LinkDriver
{
public:
    /// Asks the driver for the state of each port. Without the driver the object still exists, and no report comes.
    explicit K2LinkDriver(const LinkManager& manager);
    /// @param environment outlives this object.
    K2LinkDriver(std::uint32_t portCount, const LinkEnvironment& environment);

    static std::string GetInterfaceName(LinkIndex link);
    // Each gives the status of the shell command, 0 for success.
    int InterfaceUp(LinkIndex link);
    int InterfaceDown(LinkIndex link);
    int SetInterfaceAddress(LinkIndex link, const boost::asio::ip::udp::endpoint& endpoint);
    int ClearInterfaceAddress(LinkIndex link);
    /// Gives the socket the type of service of heartbeats.
    static void SetSocketTos(LinkIndex link, boost::asio::ip::udp::socket& socket);

    /// Waits for a report, at most for the environment's time. Fields that the report does not carry keep their value.
    /// @return true when a report arrived, even one that carried nothing.
    bool WaitForStatus(K2LinkStatus& status);
    /// False once this socket can no longer be trusted to bring every report: the family was absent when it was made,
    /// it has failed, or the driver has meanwhile been registered again. A new instance is then needed. Asks the
    /// driver, so not for every turn of a loop. A driver that is away for the moment changes nothing.
    bool IsCurrent() const;

    /// Kernel's ids of the driver's family and group; not positive if there are none.
    struct Registration
    {
        int family = 0;
        int group = 0;

        bool IsKnown() const { return family > 0; }
        friend bool operator==(const Registration& a, const Registration& b)
        {
            return a.family == b.family && a.group == b.group;
        }
    };
    /// What this instance found when it was made.
    const Registration& GetRegistration() const { return mRegistration; }

    /// Decodes one datagram of the driver. If it has several messages, later values replace earlier ones.
    static void ReadReport(const std::uint8_t* bytes, std::size_t size, K2LinkStatus& status);

private:
    using SocketOwner = std::unique_ptr<nl_sock, void (*)(nl_sock*)>;

    bool ReceiveReport(K2LinkStatus& status);
    void RequestStatus(std::uint32_t port);

    const LinkEnvironment& mEnvironment;
    const SocketOwner mSocket;
    Registration mRegistration;
    struct pollfd mPollFd;
    bool mFailed = false;
};
