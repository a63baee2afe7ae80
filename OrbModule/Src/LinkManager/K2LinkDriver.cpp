#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"

#include "Audit/Audit.h"
#include "OrbModule/Inc/LinkManager/LinkDriverSocket.h"
#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace {

constexpr char FamilyName[] = "k2link";
constexpr char GroupName[] = "notify";
constexpr std::uint8_t FamilyVersion = 1;
constexpr std::uint8_t StatusRequest = 1;
constexpr int RequestFlags = NLM_F_REQUEST | NLM_F_ECHO;
constexpr int PortAttribute = 1;
constexpr int HighestAttribute = 6;
constexpr int TypeOfService = 20;
constexpr char UpErrors[] = "/tmp/ifup.err";
constexpr char DownErrors[] = "/tmp/ifdown.err";

/// By attribute; there is no attribute 0.
constexpr std::uint32_t K2LinkStatus::*StatusFields[HighestAttribute + 1] = {nullptr,
                                                                             &K2LinkStatus::Port,
                                                                             &K2LinkStatus::RemoteId,
                                                                             &K2LinkStatus::RemotePort,
                                                                             &K2LinkStatus::LinkState,
                                                                             &K2LinkStatus::FsiEndpoint,
                                                                             &K2LinkStatus::AdmaEndpoint};

bool Connect(nl_sock* socket, std::chrono::microseconds wait)
{
    if (!socket || ConnectLinkDriverSocket(socket) < 0) return false;
    nl_socket_disable_seq_check(socket);
    nl_socket_disable_auto_ack(socket);
    // A driver must not hold the thread, neither with a full queue nor with an answer that does not come.
    const timeval limit{wait.count() / 1000000, wait.count() % 1000000};
    setsockopt(nl_socket_get_fd(socket), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(nl_socket_get_fd(socket), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    return true;
}

void LogErrorReply(const nlmsghdr* header)
{
    if (nlmsg_datalen(header) < static_cast<int>(sizeof(nlmsgerr))) return;
    nlmsgerr reply;
    std::memcpy(&reply, nlmsg_data(header), sizeof reply);
    char buffer[128];
    AUDIT_LOG(CommsDebug, "Error reply returned: %s\n",
              strerror_r(static_cast<int>(0u - static_cast<unsigned>(reply.error)), buffer, sizeof buffer));
}

void ReadMessage(nlmsghdr* header, K2LinkStatus& status)
{
    nla_policy policy[HighestAttribute + 1] = {};
    for (nla_policy& entry : policy)
        entry.type = NLA_U32;

    nlattr* attributes[HighestAttribute + 1] = {};
    const int result = genlmsg_parse(header, 0, attributes, HighestAttribute, policy);
    if (result < 0) {
        AUDIT_LOG(CommsDebug, "Failed to parse reply to netlink message: %s\n", nl_geterror(result));
        return;
    }
    for (int i = PortAttribute; i <= HighestAttribute; ++i) {
        if (attributes[i]) status.*StatusFields[i] = nla_get_u32(attributes[i]);
    }
}

} // namespace

K2LinkDriver::K2LinkDriver(const LinkManager& manager) : K2LinkDriver(manager.GetPortCount(), manager.GetEnvironment())
{}

K2LinkDriver::K2LinkDriver(std::uint32_t portCount, const LinkEnvironment& environment)
    : mEnvironment(environment), mSocket(nl_socket_alloc(), nl_socket_free), mPollFd{-1, POLLIN, 0}
{
    if (!Connect(mSocket.get(), environment.driverWait)) return;
    mRegistration.family = genl_ctrl_resolve(mSocket.get(), FamilyName);
    if (mRegistration.IsKnown()) {
        mRegistration.group = genl_ctrl_resolve_grp(mSocket.get(), FamilyName, GroupName);
        if (mRegistration.group <= 0 || nl_socket_add_memberships(mSocket.get(), mRegistration.group, 0) < 0)
            mFailed = true;
        for (std::uint32_t port = 0; port < portCount; ++port)
            RequestStatus(port);
    }
    mPollFd.fd = nl_socket_get_fd(mSocket.get());
}

void K2LinkDriver::RequestStatus(std::uint32_t port)
{
    const std::unique_ptr<nl_msg, void (*)(nl_msg*)> message(nlmsg_alloc(), nlmsg_free);
    if (!message || !genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, mRegistration.family, 0, RequestFlags,
                                 StatusRequest, FamilyVersion)) {
        return;
    }
    if (nla_put_u32(message.get(), PortAttribute, port) < 0) return;
    nl_send_auto_complete(mSocket.get(), message.get());
}

std::string K2LinkDriver::GetInterfaceName(LinkIndex link)
{
    return "k2link" + std::to_string(ToNumber(link));
}

int K2LinkDriver::InterfaceUp(LinkIndex link)
{
    return mEnvironment.run("ifconfig " + GetInterfaceName(link) + " up", UpErrors);
}

int K2LinkDriver::InterfaceDown(LinkIndex link)
{
    return mEnvironment.run("ifconfig " + GetInterfaceName(link) + " down", UpErrors);
}

int K2LinkDriver::SetInterfaceAddress(LinkIndex link, const boost::asio::ip::udp::endpoint& endpoint)
{
    return mEnvironment.run("ifconfig " + GetInterfaceName(link) + " " + endpoint.address().to_string() +
                                " netmask 255.255.255.0",
                            UpErrors);
}

int K2LinkDriver::ClearInterfaceAddress(LinkIndex link)
{
    return mEnvironment.run("ifconfig " + GetInterfaceName(link) + " 0.0.0.0 ", DownErrors);
}

void K2LinkDriver::SetSocketTos(LinkIndex link, boost::asio::ip::udp::socket& socket)
{
    if (setsockopt(socket.native_handle(), IPPROTO_IP, IP_TOS, &TypeOfService, sizeof TypeOfService) != 0) {
        AUDIT_STREAM(Fault, "Failed to set socket TOS for " << LinkPortText(link) << "\n");
    }
}

bool K2LinkDriver::WaitForStatus(K2LinkStatus& status)
{
    const int wait = static_cast<int>(mEnvironment.reportWait.count());
    mPollFd.revents = 0;
    poll(&mPollFd, 1, wait);
    if ((mPollFd.revents & POLLIN) && ReceiveReport(status)) return true;
    if (mPollFd.revents != 0) {
        // Reports may be lost. The descriptor may stay in that state, so the next try waits.
        mFailed = true;
        poll(nullptr, 0, wait);
    }
    return false;
}

bool K2LinkDriver::ReceiveReport(K2LinkStatus& status)
{
    sockaddr_nl sender{};
    unsigned char* received = nullptr;
    const int size = nl_recv(mSocket.get(), &sender, &received, nullptr);
    const std::unique_ptr<unsigned char, void (*)(void*)> buffer(received, std::free);
    if (size < 0) {
        AUDIT_LOG(Fault, "Error receiving reply to netlink message: %s\n", nl_geterror(size));
        return false;
    }
    ReadReport(buffer.get(), static_cast<std::size_t>(size), status);
    return true;
}

void K2LinkDriver::ReadReport(const std::uint8_t* bytes, std::size_t size, K2LinkStatus& status)
{
    // The library takes messages by a pointer that is not constant, but does not write.
    auto* header = reinterpret_cast<nlmsghdr*>(const_cast<std::uint8_t*>(bytes));
    for (int left = static_cast<int>(size); nlmsg_ok(header, left); header = nlmsg_next(header, &left)) {
        if (header->nlmsg_type == NLMSG_ERROR) {
            LogErrorReply(header);
        } else {
            ReadMessage(header, status);
        }
    }
}

bool K2LinkDriver::IsCurrent() const
{
    if (mFailed) return false;
    const SocketOwner probe(nl_socket_alloc(), nl_socket_free);
    if (!Connect(probe.get(), mEnvironment.driverWait)) return true;
    const int family = genl_ctrl_resolve(probe.get(), FamilyName);
    // The driver is away for the moment, so a new instance would not find it either.
    if (family <= 0) return true;
    return mRegistration == Registration{family, genl_ctrl_resolve_grp(probe.get(), FamilyName, GroupName)};
}
