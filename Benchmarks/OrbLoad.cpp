// A load on the real program in the rig, seen from its neighbours and from its hardware. Each figure has a
// baseline from the same run: what the kernel alone takes for the same bytes.

#include "Benchmarks/BareStream.h"
#include "Benchmarks/LoadReport.h"
#include "Benchmarks/LoadUnit.h"
#include "Simulation/Stage/ByteStream.h"
#include "Simulation/Stage/ChildProcess.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/RigProgram.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <numeric>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

namespace po = boost::program_options;
using namespace stage;

namespace {

struct Sizes
{
    unsigned int patches;
    unsigned int swings;
    unsigned int rest;
};

// ---- the hardware's figures

struct SyncTimes
{
    double request = 0;    ///< in microseconds
    double activation = 0; ///< in microseconds
};

SyncTimes GetTimes(ControlChannel& control)
{
    std::istringstream text(control.AskOne("times"));
    SyncTimes times;
    text >> times.request >> times.activation;
    return {times.request / 1e3, times.activation / 1e3};
}

/// Waits for the route, and gives the time of the last activation, which is its own or a later one.
double ActivationOf(ControlChannel& control, Sample sink, std::optional<Sample> source)
{
    control.WaitForRoute(sink, source, std::chrono::minutes(1));
    return GetTimes(control).activation;
}

// ---- what the module costs

double ResidentMebibytes(pid_t process)
{
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, 6, "VmRSS:") == 0) return std::stod(line.substr(6)) / 1024;
    throw NotSeen("the module's VmRSS");
}

/// Seconds on a core so far, of all threads, by the scheduler's own account.
double CpuSeconds(pid_t process)
{
    double nanoseconds = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        std::ifstream file(task.path() / "schedstat");
        double own = 0;
        if (!(file >> own)) throw NotSeen("the schedstat of a thread");
        nanoseconds += own;
    }
    return nanoseconds / 1e9;
}

double CpuPercentAtRest(pid_t process, unsigned int seconds)
{
    const double before = CpuSeconds(process);
    const double start = NowMicroseconds();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    return (CpuSeconds(process) - before) / (NowMicroseconds() - start) * 1e8;
}

// ---- figures

void Append(peers::Bytes& all, const peers::Bytes& bytes)
{
    all.insert(all.end(), bytes.begin(), bytes.end());
}

std::vector<std::uint32_t> SlotsFrom(std::uint32_t first, std::uint32_t count)
{
    std::vector<std::uint32_t> slots(count);
    std::iota(slots.begin(), slots.end(), first);
    return slots;
}

void MeasurePatch(const Report& report, LoadUnit& unit, const Sizes& sizes)
{
    Samples patches;
    ControlChannel& control = unit.GetControl();
    std::array<peers::Bytes, 2> commands{LoadUnit::HubPatch(0, 1, 1, {7}, true),
                                         LoadUnit::HubPatch(0, 1, 1, {7}, false)};
    for (unsigned int i = 0; i < sizes.patches; ++i) {
        const unsigned long syncs = control.Syncs();
        const double start = NowMicroseconds();
        unit.GetTap().Send(commands[i % 2]);
        control.WaitForSyncs(syncs + 1);
        patches.Add(GetTimes(control).request - start);
    }
    const Samples bare = BareRoundTrips(commands[0], sizes.patches);
    const auto row = [&](const std::string& name, double part, double times) {
        const double seen = patches.At(part);
        const double baseline = bare.At(part);
        std::ostringstream text;
        text << "ratio at most " << times;
        report.Row("patch to sync request, " + name, seen, baseline, "us",
                   Target{text.str(), seen <= times * baseline});
    };
    row("p50", 0.5, 4);
    row("p99", 0.99, 20);
    const Samples threads = BareHandOvers(commands[0], sizes.patches);
    report.Row("patch to sync request, p50, by three bare threads", patches.At(0.5), threads.At(0.5), "us");
    report.Row("patch to sync request, worst", patches.Worst(), bare.Worst(), "us");
}

/// A batch fills the link with patches of so many slots each and empties it again, several times over; a last patch
/// shows when the hardware has them all.
void MeasureRate(const Report& report, LoadUnit& unit, std::uint32_t slots)
{
    constexpr std::uint32_t Mark = 300;
    const std::uint32_t together = 512 / slots;
    const std::uint32_t wanted = slots == 512 ? 1024 : 10240;
    peers::Bytes batch;
    std::uint32_t commands = 0;
    while (commands < wanted) {
        for (const bool make : {true, false}) {
            for (std::uint32_t i = 0; i < together; ++i, ++commands)
                Append(batch, LoadUnit::HubPatch(0, i + 1, i, SlotsFrom(i * slots, slots), make));
        }
    }
    Append(batch, LoadUnit::HubPatch(0, 1000, 1000, {Mark}, true));
    ++commands;
    Samples rates;
    Samples bare;
    for (int run = 0; run < 3; ++run) {
        const double start = NowMicroseconds();
        unit.GetTap().Send(batch);
        const double end = ActivationOf(unit.GetControl(), {FirstLinkEndpoint, 0}, Sample{BulkEndpoint, Mark});
        rates.Add(commands / (end - start) * 1e6);
        bare.Add(commands / BareTransfer(batch) * 1e6);
        unit.GetTap().Send(LoadUnit::HubPatch(0, 1000, 1000, {Mark}, false));
        ActivationOf(unit.GetControl(), {FirstLinkEndpoint, 0}, std::nullopt);
    }
    std::optional<Target> target;
    if (slots == 1) target = Target{"at least 10000 a second", rates.At(0.5) >= 10000};
    report.Row("patches a second, " + std::to_string(slots) + (slots == 1 ? " slot" : " slots"), rates.At(0.5),
               bare.At(0.5), "/s", target);
}

/// 500 patches with slots of their own on each link, and between them 500 that share those of the first link.
std::vector<peers::Bytes> StormPatches(bool make)
{
    std::vector<peers::Bytes> patches;
    for (std::uint32_t i = 0; i < 1500; ++i) {
        const std::uint32_t source = i % 500;
        const unsigned int link = i < 1000 ? 0 : 1;
        patches.push_back(LoadUnit::HubPatch(link, source + 1, i, {source}, make));
    }
    return patches;
}

void MeasureStorm(const Report& report, LoadUnit& unit)
{
    peers::Bytes storm;
    for (const peers::Bytes& patch : StormPatches(true))
        Append(storm, patch);
    const double start = NowMicroseconds();
    unit.GetTap().Send(storm);
    const double end = ActivationOf(unit.GetControl(), {SecondLinkEndpoint, 499}, Sample{BulkEndpoint, 499});
    const double seen = (end - start) / 1e3;
    report.Row("storm of 1500 patches to the last route", seen, BareTransfer(storm) / 1e3, "ms",
               Target{"within 300 ms", seen <= 300});
}

void CalmStorm(LoadUnit& unit)
{
    peers::Bytes breaks;
    for (const peers::Bytes& patch : StormPatches(false))
        Append(breaks, patch);
    unit.GetTap().Send(breaks);
    ActivationOf(unit.GetControl(), {SecondLinkEndpoint, 499}, std::nullopt);
}

/// @param base of the module without neighbours.
void MeasureRest(const Report& report, LoadUnit& unit, const Sizes& sizes, const std::string& what, double baseCpu,
                 double baseMemory)
{
    const double cpu = CpuPercentAtRest(unit.GetProcess(), sizes.rest);
    const double memory = ResidentMebibytes(unit.GetProcess());
    report.Row("core at rest, " + what, cpu, baseCpu, "%", Target{"under 0.3 %", cpu < 0.3});
    report.Row("resident, " + what, memory, baseMemory, "MiB", Target{"under 16 MiB", memory < 16});
}

void MeasureSwing(const Report& report, LoadUnit& unit, const Sizes& sizes)
{
    constexpr std::array<Sample, 2> OnLink{{{FirstLinkEndpoint, 3}, {SecondLinkEndpoint, 3}}};
    constexpr Sample AtOrb{BulkEndpoint, 0};
    std::ostringstream patch;
    patch << "patch src=" << LoadUnit::Box << ":1:3 link=0 dest=" << LoadUnit::OrbIo << ":2:5";
    unit.PlugBox(0);
    unit.GetOrb().Tell(patch.str());
    unit.GetControl().WaitForRoute(AtOrb, OnLink[0]);
    unit.PlugBox(1);
    unit.AwaitStandBy(1);
    Samples swings;
    for (unsigned int i = 0; i < sizes.swings; ++i) {
        const unsigned int lost = i % 2;
        const double start = NowMicroseconds();
        unit.PullCable(lost);
        const double end = ActivationOf(unit.GetControl(), AtOrb, OnLink[1 - lost]);
        if (end < start) throw NotSeen("the route swung over before the cable was lost");
        swings.Add((end - start) / 1e3);
        unit.GetNeighbour(lost).Tell("vanish");
        unit.PlugAgain(lost);
        unit.AwaitStandBy(lost);
    }
    const Samples bare = BareRoundTrips(LoadUnit::HubPatch(0, 1, 1, {7}, true), sizes.patches);
    const std::string name = "lost cable to swung-over table, ";
    report.Row(name + "p50", swings.At(0.5), bare.At(0.5) / 1e3, "ms");
    report.Row(name + "p99", swings.At(0.99), bare.At(0.99) / 1e3, "ms", Target{"within 5 ms", swings.At(0.99) <= 5});
    report.Row(name + "worst of " + std::to_string(swings.Count()), swings.Worst(), bare.Worst() / 1e3, "ms");
}

void Measure(const Sizes& sizes)
{
    const Report report;
    LoadUnit unit;
    const double baseCpu = CpuPercentAtRest(unit.GetProcess(), sizes.rest);
    const double baseMemory = ResidentMebibytes(unit.GetProcess());
    unit.PlugHub(0);
    unit.PlugHub(1);
    MeasureRest(report, unit, sizes, "three streams", baseCpu, baseMemory);
    MeasureStorm(report, unit);
    MeasureRest(report, unit, sizes, "1500 patches", baseCpu, baseMemory);
    CalmStorm(unit);
    MeasurePatch(report, unit, sizes);
    for (const std::uint32_t slots : {1u, 8u, 512u})
        MeasureRate(report, unit, slots);
    unit.Unplug(1);
    unit.Unplug(0);
    MeasureSwing(report, unit, sizes);
    unit.Stop();
}

// ---- OrbWatch

/// The idle module, alone and then with OrbWatch and an open page, and OrbWatch itself.
void MeasureWatch(unsigned int seconds)
{
    const Report report;
    LoadUnit unit;
    unit.PlugHub(0);
    unit.PlugHub(1);
    const double baseCpu = CpuPercentAtRest(unit.GetProcess(), seconds);
    const double baseMemory = ResidentMebibytes(unit.GetProcess());

    ChildProcess watch({{ProgramPath("OrbWatch")}});
    watch.WaitForOutput("OrbWatch shows");
    ByteStream page = ByteStream::ConnectTcp({}, "127.0.0.1", 8055);
    page.Send("GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n");
    page.TakeThrough("\"contact\":\"live\"");
    const double ownBefore = CpuSeconds(watch.Id());
    const double start = NowMicroseconds();
    const double cpu = CpuPercentAtRest(unit.GetProcess(), seconds);
    const double own = (CpuSeconds(watch.Id()) - ownBefore) / (NowMicroseconds() - start) * 1e8;
    const double ownMemory = ResidentMebibytes(watch.Id());
    const double memory = ResidentMebibytes(unit.GetProcess());
    report.Row("core at rest, a page open", cpu, baseCpu, "%", Target{"under 0.3 %", cpu < 0.3});
    report.Row("resident, a page open", memory, baseMemory, "MiB", Target{"under 16 MiB", memory < 16});
    report.Row("OrbWatch: core, a page open", own, baseCpu, "%", Target{"under 1 %", own < 1});
    report.Row("OrbWatch: resident, a page open", ownMemory, baseMemory, "MiB", Target{"under 16 MiB", ownMemory < 16});
    unit.Stop();
}

// ---- heartbeats

/// Sees the packets that come to the primary link's far end, past the neighbour that lives there.
class HeartbeatWatch
{
public:
    HeartbeatWatch()
    {
        const NamespaceScope scope(PrimaryNamespace);
        mSocket =
            FileDescriptor(Checked(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_IP)), "packet socket"));
        const int on = 1;
        Checked(setsockopt(mSocket.Get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on), "SO_TIMESTAMPNS");
    }
    /// When the kernel took the next link heartbeat in, in microseconds; nothing if none comes.
    std::optional<double> Next(Milliseconds patience)
    {
        const Deadline deadline(patience);
        while (mSocket.WaitReadable(deadline)) {
            std::array<std::uint8_t, 128> packet;
            char control[256];
            sockaddr_ll sender{};
            iovec data{packet.data(), packet.size()};
            msghdr message{};
            message.msg_name = &sender;
            message.msg_namelen = sizeof sender;
            message.msg_iov = &data;
            message.msg_iovlen = 1;
            message.msg_control = control;
            message.msg_controllen = sizeof control;
            const ssize_t size = recvmsg(mSocket.Get(), &message, 0);
            if (size < 0 || !IsHeartbeat(sender, packet, static_cast<std::size_t>(size))) continue;
            for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
                if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SO_TIMESTAMPNS) continue;
                timespec stamp{};
                std::memcpy(&stamp, CMSG_DATA(header), sizeof stamp);
                return static_cast<double>(stamp.tv_sec) * 1e6 + static_cast<double>(stamp.tv_nsec) / 1e3;
            }
        }
        return std::nullopt;
    }

private:
    static bool IsHeartbeat(const sockaddr_ll& sender, const std::array<std::uint8_t, 128>& packet, std::size_t size)
    {
        constexpr std::size_t WholePacket = 20 + 8 + 12;
        constexpr std::uint8_t TypeOfService = 20;
        return sender.sll_pkttype == PACKET_HOST && size == WholePacket && packet[1] == TypeOfService &&
               packet[9] == IPPROTO_UDP;
    }

    FileDescriptor mSocket;
};

/// The largest deviation from 300 ms of a bare thread that sleeps by the clock, in milliseconds.
void BareBeats(const std::atomic<bool>& running, Samples& deviations)
{
    auto next = std::chrono::steady_clock::now();
    double last = NowMicroseconds();
    while (running) {
        next += Milliseconds(300);
        std::this_thread::sleep_until(next);
        const double now = NowMicroseconds();
        deviations.Add(std::abs(now - last - 300000) / 1e3);
        last = now;
    }
}

void SendPaced(LoadUnit& unit, const std::atomic<bool>& running, std::atomic<unsigned long>& sent)
{
    constexpr unsigned int APass = 10;
    peers::Bytes pass;
    for (unsigned int i = 0; i < APass; ++i)
        Append(pass, LoadUnit::HubPatch(0, 1, 1, {7}, i % 2 == 0));
    auto next = std::chrono::steady_clock::now();
    while (running) {
        unit.GetTap().Send(pass);
        sent += APass;
        next += Milliseconds(1);
        std::this_thread::sleep_until(next);
    }
}

void MeasureHeartbeats(unsigned int seconds)
{
    const Report report;
    LoadUnit unit;
    unit.PlugHub(0);
    HeartbeatWatch watch;
    std::atomic<bool> running{true};
    std::atomic<unsigned long> sent{0};
    Samples bare;
    Samples deviations;
    std::thread load([&] { SendPaced(unit, running, sent); });
    std::thread clock([&] { BareBeats(running, bare); });
    const double start = NowMicroseconds();
    double last = 0;
    while (NowMicroseconds() - start < seconds * 1e6) {
        const std::optional<double> beat = watch.Next(Milliseconds(2000));
        if (!beat) {
            std::cerr << "orbload: two seconds without a heartbeat" << std::endl;
            last = 0;
            continue;
        }
        if (last > 0) deviations.Add(std::abs(*beat - last - 300000) / 1e3);
        last = *beat;
    }
    const double took = (NowMicroseconds() - start) / 1e6;
    running = false;
    load.join();
    clock.join();
    std::printf("%zu intervals, %.0f commands a second sent\n", deviations.Count(), static_cast<double>(sent) / took);
    report.Row("heartbeat's deviation from 300 ms, p50", deviations.At(0.5), bare.At(0.5), "ms");
    report.Row("heartbeat's deviation from 300 ms, largest", deviations.Worst(), bare.Worst(), "ms",
               Target{"under 10 ms", deviations.Count() != 0 && deviations.Worst() < 10});
    unit.Stop();
}

} // namespace

int main(int argc, char** argv)
{
    po::options_description description("Puts a load on OrbModuleSim and reports; run it in the rig");
    Sizes sizes{};
    // clang-format off
    description.add_options()
        ("help", "this text")
        ("patches", po::value(&sizes.patches)->default_value(2000), "single patches whose time is taken")
        ("swings", po::value(&sizes.swings)->default_value(200), "cables that are lost")
        ("rest", po::value(&sizes.rest)->default_value(20), "seconds for each look at the module at rest")
        ("watch", po::value<unsigned int>(), "instead, look so many seconds at the module at rest, alone and with OrbWatch")
        ("heartbeats", po::value<unsigned int>(), "instead, watch the link heartbeats for so many seconds under load");
    // clang-format on
    return stage::RunInRig("orbload", argc, argv, description, [&](const po::variables_map& values) {
        if (values.count("heartbeats")) {
            MeasureHeartbeats(values["heartbeats"].as<unsigned int>());
        } else if (values.count("watch")) {
            MeasureWatch(values["watch"].as<unsigned int>());
        } else {
            Measure(sizes);
        }
        return 0;
    });
}
