#include "Simulation/Soak/HeartbeatWatch.h"

#include "Simulation/Stage/NetworkNamespace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace stage;

namespace soak {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

struct WireFacts
{
    const char* name;
    const char* farEnd;
    std::uint16_t firstPort;
    std::uint16_t lastPort;
    std::size_t size;
    /// The period, and as much again less a little: one that is missing must show.
    milliseconds longest;
};

constexpr WireFacts Facts[] = {{"the primary link", PrimaryNamespace, 60001, 60002, 12, milliseconds(590)},
                               {"the secondary link", SecondaryNamespace, 60001, 60002, 12, milliseconds(590)},
                               {"eth0", UnitNamespace, 49157, 49157, 5, milliseconds(1900)}};

FileDescriptor Listen(const std::string& networkNamespace)
{
    const NamespaceScope scope(networkNamespace);
    FileDescriptor result(Checked(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP)), "packet socket"));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex("eth0"));
    Checked(::bind(result.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind of eth0");
    const int on = 1;
    Checked(::setsockopt(result.Get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on), "time stamps");
    // A flood on the wire must not push heartbeats out: only UDP that arrives is kept.
    constexpr unsigned int PacketType = static_cast<unsigned int>(SKF_AD_OFF + SKF_AD_PKTTYPE);
    constexpr unsigned int ProtocolOffset = 9;
    sock_filter filter[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, PacketType),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, PACKET_OUTGOING, 3, 0),
                            BPF_STMT(BPF_LD | BPF_B | BPF_ABS, ProtocolOffset),
                            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 1),
                            BPF_STMT(BPF_RET | BPF_K, 0xFFFF),
                            BPF_STMT(BPF_RET | BPF_K, 0)};
    const sock_fprog program{sizeof filter / sizeof filter[0], filter};
    Checked(::setsockopt(result.Get(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), "filter");
    return result;
}

bool IsHeartbeat(const unsigned char* packet, std::size_t size, const WireFacts& facts)
{
    if (size < 20) return false;
    const std::size_t header = (packet[0] & 0x0Fu) * 4u;
    if (packet[9] != IPPROTO_UDP || size < header + 8) return false;
    const unsigned int port = packet[header + 2] * 256u + packet[header + 3];
    const std::size_t length = packet[header + 4] * 256u + packet[header + 5];
    return port >= facts.firstPort && port <= facts.lastPort && length == facts.size + 8;
}

/// On the clock of the kernel's stamps.
nanoseconds Now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return std::chrono::seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
}

} // namespace

HeartbeatWatch::HeartbeatWatch(Findings& findings) : mFindings(findings)
{
    for (std::size_t wire = 0; wire < WireCount; ++wire)
        mWires[wire].socket = Listen(Facts[wire].farEnd);
    int ends[2];
    Checked(::pipe(ends), "pipe");
    mStop[0] = FileDescriptor(ends[0]);
    mStop[1] = FileDescriptor(ends[1]);
    mThread = std::thread([this] { Run(); });
}

HeartbeatWatch::~HeartbeatWatch()
{
    mStop[1].Close();
    mThread.join();
}

void HeartbeatWatch::Disturb(Wire wire)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    State& state = mWires[wire];
    if (state.disturbances++ == 0 && state.last) Judge(wire, Now());
}

void HeartbeatWatch::Calm(Wire wire)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    State& state = mWires[wire];
    if (--state.disturbances == 0) state.last.reset();
}

void HeartbeatWatch::TellLate(const std::string& text, std::chrono::seconds within)
{
    const milliseconds machine = mSleeper.GetLateness(within);
    if (machine.count() == 0) {
        mFindings.Violation(text);
    } else {
        mFindings.Tell("not judged, since a bare sleeping thread was late by " + std::to_string(machine.count()) +
                       " ms at about that time: " + text);
    }
}

std::string HeartbeatWatch::Summary() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    std::string text;
    for (std::size_t wire = 0; wire < WireCount; ++wire) {
        const State& state = mWires[wire];
        char line[200];
        std::snprintf(line, sizeof line, "%s%lu intervals on %s, the longest %.1f ms", text.empty() ? "" : "; ",
                      state.judged, Facts[wire].name, static_cast<double>(state.longest.count()) / 1e6);
        text += line;
    }
    return text;
}

void HeartbeatWatch::Run()
{
    pollfd entries[WireCount + 1] = {};
    for (std::size_t wire = 0; wire < WireCount; ++wire)
        entries[wire] = {mWires[wire].socket.Get(), POLLIN, 0};
    entries[WireCount] = {mStop[0].Get(), POLLIN, 0};
    for (;;) {
        if (::poll(entries, WireCount + 1, -1) < 0 && errno != EINTR) return;
        if (entries[WireCount].revents != 0) return;
        for (int wire = 0; wire < WireCount; ++wire) {
            if (entries[wire].revents != 0) Receive(static_cast<Wire>(wire));
        }
    }
}

void HeartbeatWatch::Receive(Wire wire)
{
    unsigned char packet[256];
    iovec piece{packet, sizeof packet};
    alignas(cmsghdr) char control[256];
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = ::recvmsg(mWires[wire].socket.Get(), &message, MSG_DONTWAIT);
    if (size <= 0) return;
    if (!IsHeartbeat(packet, static_cast<std::size_t>(size), Facts[wire])) return;
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_TIMESTAMPNS) continue;
        timespec stamp{};
        std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
        const nanoseconds at = std::chrono::seconds(stamp.tv_sec) + nanoseconds(stamp.tv_nsec);
        const std::lock_guard<std::mutex> lock(mMutex);
        State& state = mWires[wire];
        if (state.disturbances != 0) return;
        if (state.last) Judge(wire, at);
        state.last = at;
        return;
    }
}

/// With mMutex held, while there is a last beat.
void HeartbeatWatch::Judge(Wire wire, nanoseconds now)
{
    State& state = mWires[wire];
    const nanoseconds gap = now - *state.last;
    ++state.judged;
    if (gap > state.longest) state.longest = gap;
    if (gap <= Facts[wire].longest) return;
    TellLate("no heartbeat on " + std::string(Facts[wire].name) + " for " + std::to_string(gap.count() / 1000000) +
                 " ms",
             std::chrono::seconds(3));
}

} // namespace soak
