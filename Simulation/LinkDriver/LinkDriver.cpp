#include "Simulation/LinkDriver/LinkDriver.h"

#include <linux/genetlink.h>
#include <linux/if.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <netlink/attr.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace sim {

namespace {

constexpr char FamilyName[] = "k2link";
constexpr char GroupName[] = "notify";
constexpr std::uint32_t Group = 5;
constexpr std::uint8_t FamilyVersion = 1;
constexpr std::uint8_t StatusCommand = 1;
constexpr std::uint32_t NoRemote = 0xFFFFFFFF;
constexpr unsigned long MostReports = 1000000;

enum Attribute {
    PortAttribute = 1,
    RemoteIdAttribute,
    RemotePortAttribute,
    StateAttribute,
    FsiAttribute,
    AdmaAttribute
};

struct MessageFree
{
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};
using Message = std::unique_ptr<nl_msg, MessageFree>;

std::vector<std::uint8_t> ToBytes(const Message& message)
{
    const nlmsghdr* const header = nlmsg_hdr(message.get());
    const auto* const begin = reinterpret_cast<const std::uint8_t*>(header);
    return {begin, begin + header->nlmsg_len};
}

/// Each registration of a family gets a new id, as in the kernel, also that of a driver that returns.
std::uint16_t MakeFamilyId()
{
    static std::atomic<unsigned> sRegistrations{0};
    return static_cast<std::uint16_t>(0x20 + (static_cast<unsigned>(getpid()) * 16 + sRegistrations++) % 0x3000);
}

std::uint32_t Number(const std::string& word)
{
    std::size_t end = 0;
    unsigned long value = 0;
    try {
        value = std::stoul(word, &end, 0);
    } catch (const std::logic_error&) {
    }
    if (word.empty() || end != word.size() || word[0] == '-' || value > 0xFFFFFFFF) {
        throw std::invalid_argument("not a number: " + word);
    }
    return static_cast<std::uint32_t>(value);
}

std::vector<std::uint8_t> HexBytes(const std::string& word)
{
    if (word.empty() || word.size() % 2 != 0) throw std::invalid_argument("not whole bytes: " + word);
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < word.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(Number("0x" + word.substr(i, 2))));
    }
    return bytes;
}

} // namespace

LinkDriver::LinkDriver()
    : mFamily(MakeFamilyId()), mSocket(NETLINK_USERSOCK, NETLINK_PORT, 0), mInterfaces(NETLINK_ROUTE, 0, RTMGRP_LINK)
{
    for (std::uint32_t i = 0; i < PORT_COUNT; ++i) {
        mPorts[i].admaEndpoint = i + 1;
        mPorts[i].fsiEndpoint = 0x10 * (i + 1);
    }
    // The third port carries no audio.
    mPorts[PORT_COUNT - 1].admaEndpoint = 0;

    const Message dump(nlmsg_alloc_simple(RTM_GETLINK, NLM_F_REQUEST | NLM_F_DUMP));
    const rtgenmsg all{AF_UNSPEC};
    nlmsg_append(dump.get(), const_cast<rtgenmsg*>(&all), sizeof all, NLMSG_ALIGNTO);
    mInterfaces.Send(ToBytes(dump), 0);
    ServeInterfaces();
    mThread = std::thread([this] { Serve(); });
}

LinkDriver::~LinkDriver()
{
    mStop = true;
    mThread.join();
}

void LinkDriver::Serve()
{
    while (!mStop) {
        pollfd waits[2] = {{mSocket.GetFileDescriptor(), POLLIN, 0}, {mInterfaces.GetFileDescriptor(), POLLIN, 0}};
        poll(waits, 2, 50);
        const std::lock_guard<std::mutex> lock(mMutex);
        if (waits[0].revents) ServeRequests();
        if (waits[1].revents) ServeInterfaces();
    }
}

void LinkDriver::ServeRequests()
{
    std::uint32_t from = 0;
    for (Bytes bytes = mSocket.Receive(from); !bytes.empty(); bytes = mSocket.Receive(from)) {
        int left = static_cast<int>(bytes.size());
        auto* header = reinterpret_cast<nlmsghdr*>(bytes.data());
        for (; nlmsg_ok(header, left); header = nlmsg_next(header, &left))
            Answer(*header, from);
    }
}

void LinkDriver::ServeInterfaces()
{
    std::uint32_t from = 0;
    for (Bytes bytes = mInterfaces.Receive(from); !bytes.empty(); bytes = mInterfaces.Receive(from)) {
        int left = static_cast<int>(bytes.size());
        auto* header = reinterpret_cast<nlmsghdr*>(bytes.data());
        for (; nlmsg_ok(header, left); header = nlmsg_next(header, &left))
            TakeInterfaceChange(*header);
    }
}

void LinkDriver::TakeInterfaceChange(const nlmsghdr& header)
{
    if (header.nlmsg_type != RTM_NEWLINK || nlmsg_datalen(&header) < static_cast<int>(sizeof(ifinfomsg))) return;
    const auto* const info = static_cast<const ifinfomsg*>(nlmsg_data(&header));
    const nlattr* const name = nlmsg_find_attr(const_cast<nlmsghdr*>(&header), sizeof(ifinfomsg), IFLA_IFNAME);
    if (!name) return;
    for (std::uint32_t port = 0; port < PORT_COUNT; ++port) {
        if (nla_strcmp(name, ("k2link" + std::to_string(port)).c_str()) != 0) continue;
        const bool isUp = (info->ifi_flags & IFF_UP) != 0;
        const bool shows = mPorts[port].remoteId != NoRemote && isUp != mPorts[port].isUp;
        mPorts[port].isUp = isUp;
        if (shows) NotifyPort(port);
    }
}

void LinkDriver::Answer(const nlmsghdr& request, std::uint32_t to)
{
    auto* const header = const_cast<nlmsghdr*>(&request);
    if (!genlmsg_valid_hdr(header, 0)) return mSocket.Send(MakeError(-EINVAL, &request), to);
    const std::uint8_t command = static_cast<const genlmsghdr*>(nlmsg_data(header))->cmd;

    if (request.nlmsg_type == GENL_ID_CTRL) {
        const nlattr* const name = nlmsg_find_attr(header, GENL_HDRLEN, CTRL_ATTR_FAMILY_NAME);
        const bool known = command == CTRL_CMD_GETFAMILY && name && nla_strcmp(name, FamilyName) == 0;
        mSocket.Send(known ? MakeFamilyReply(request) : MakeError(-ENOENT, &request), to);
    } else if (request.nlmsg_type == mFamily && command == StatusCommand) {
        const nlattr* const port = nlmsg_find_attr(header, GENL_HDRLEN, PortAttribute);
        const bool known = port && nla_len(port) >= 4 && nla_get_u32(const_cast<nlattr*>(port)) < PORT_COUNT;
        mSocket.Send(known ? MakeReport(nla_get_u32(const_cast<nlattr*>(port)), to, request.nlmsg_seq)
                           : MakeError(-EINVAL, &request),
                     to);
    } else {
        mSocket.Send(MakeError(-EOPNOTSUPP, &request), to);
    }
}

LinkDriver::Bytes LinkDriver::MakeFamilyReply(const nlmsghdr& request) const
{
    const Message message(nlmsg_alloc());
    genlmsg_put(message.get(), request.nlmsg_pid, request.nlmsg_seq, GENL_ID_CTRL, 0, 0, CTRL_CMD_NEWFAMILY, 2);
    nla_put_string(message.get(), CTRL_ATTR_FAMILY_NAME, FamilyName);
    nla_put_u16(message.get(), CTRL_ATTR_FAMILY_ID, mFamily);
    nla_put_u32(message.get(), CTRL_ATTR_VERSION, FamilyVersion);
    nla_put_u32(message.get(), CTRL_ATTR_HDRSIZE, 0);
    nla_put_u32(message.get(), CTRL_ATTR_MAXATTR, AdmaAttribute);
    nlattr* const groups = nla_nest_start(message.get(), CTRL_ATTR_MCAST_GROUPS);
    nlattr* const group = nla_nest_start(message.get(), 1);
    nla_put_u32(message.get(), CTRL_ATTR_MCAST_GRP_ID, Group);
    nla_put_string(message.get(), CTRL_ATTR_MCAST_GRP_NAME, GroupName);
    nla_nest_end(message.get(), group);
    nla_nest_end(message.get(), groups);
    return ToBytes(message);
}

LinkDriver::Bytes LinkDriver::MakeReport(std::uint32_t port, std::uint32_t to, std::uint32_t sequence) const
{
    const Port& state = mPorts[port];
    const bool shows = state.isUp && state.remoteId != NoRemote;
    const Message message(nlmsg_alloc());
    genlmsg_put(message.get(), to, sequence, mFamily, 0, 0, StatusCommand, FamilyVersion);
    nla_put_u32(message.get(), PortAttribute, port);
    nla_put_u32(message.get(), RemoteIdAttribute, shows ? state.remoteId : NoRemote);
    nla_put_u32(message.get(), RemotePortAttribute, state.remotePort);
    nla_put_u32(message.get(), StateAttribute, shows ? 1 : 0);
    nla_put_u32(message.get(), FsiAttribute, state.fsiEndpoint);
    nla_put_u32(message.get(), AdmaAttribute, state.admaEndpoint);
    return ToBytes(message);
}

LinkDriver::Bytes LinkDriver::MakeError(int error, const nlmsghdr* request)
{
    nlmsgerr body{};
    body.error = error;
    if (request) body.msg = *request;
    const Message message(nlmsg_alloc_simple(NLMSG_ERROR, 0));
    if (request) nlmsg_hdr(message.get())->nlmsg_seq = request->nlmsg_seq;
    nlmsg_append(message.get(), &body, sizeof body, NLMSG_ALIGNTO);
    return ToBytes(message);
}

void LinkDriver::Notify(const Bytes& bytes)
{
    mSocket.SendToGroup(bytes, Group);
}

std::string LinkDriver::Execute(const std::string& line)
{
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string word; in >> word;)
        words.push_back(word);
    const std::lock_guard<std::mutex> lock(mMutex);
    try {
        return Carry(words);
    } catch (const std::invalid_argument& error) {
        return std::string("error: ") + error.what() + "\n";
    }
}

std::string LinkDriver::Carry(const std::vector<std::string>& words)
{
    const auto is = [&words](const char* name, std::size_t arguments) {
        return words.size() == arguments + 1 && words[0] == name;
    };
    const auto port = [&words] {
        const std::uint32_t number = Number(words[1]);
        if (number >= PORT_COUNT) throw std::invalid_argument("no port " + words[1]);
        return number;
    };

    if (is("plug", 3)) {
        Port& changed = mPorts[port()];
        changed.remoteId = Number(words[2]);
        changed.remotePort = Number(words[3]);
        NotifyPort(port());
    } else if (is("unplug", 1)) {
        mPorts[port()].remoteId = NoRemote;
        NotifyPort(port());
    } else if (is("endpoint", 2)) {
        mPorts[port()].admaEndpoint = Number(words[2]);
        NotifyPort(port());
    } else if (is("raw", 1)) {
        Notify(HexBytes(words[1]));
    } else if (is("error", 1)) {
        Notify(MakeError(-static_cast<int>(Number(words[1]) & 0x7FFFFFFF), nullptr));
    } else if (is("burst", 1)) {
        const std::uint32_t count = Number(words[1]);
        if (count > MostReports) throw std::invalid_argument("too many: " + words[1]);
        for (std::uint32_t i = 0; i < count; ++i)
            NotifyPort(i % PORT_COUNT);
    } else {
        throw std::invalid_argument("unknown command");
    }
    return {};
}

} // namespace sim
