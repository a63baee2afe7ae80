#include "Common/KLV/Commands/PatchCommands.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"

#include <benchmark/benchmark.h>
#include <boost/asio/io_service.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

// What a KLV stream costs from the kernel's socket to the slot of a command, against bare sockets with the
// same bytes in the same run.

namespace {

constexpr std::uint32_t Loopback = 0x7F000001;

double Seconds(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A blocking socket.
class Bare
{
public:
    explicit Bare(int fd) : mFd(fd) {}
    Bare(Bare&& other) noexcept : mFd(other.mFd) { other.mFd = -1; }
    Bare& operator=(Bare&&) = delete;
    ~Bare()
    {
        if (mFd != -1) ::close(mFd);
    }

    static sockaddr_in Address(std::uint16_t port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(Loopback);
        address.sin_port = htons(port);
        return address;
    }
    static Bare Listen()
    {
        Bare bare(::socket(AF_INET, SOCK_STREAM, 0));
        const sockaddr_in address = Address(0);
        if (::bind(bare.mFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
        if (::listen(bare.mFd, 20) != 0) std::abort();
        return bare;
    }
    static Bare Connect(std::uint16_t port)
    {
        Bare bare(::socket(AF_INET, SOCK_STREAM, 0));
        const sockaddr_in address = Address(port);
        if (::connect(bare.mFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) std::abort();
        return bare;
    }
    Bare Accept() const { return Bare(::accept(mFd, nullptr, nullptr)); }
    std::uint16_t GetPort() const
    {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        getsockname(mFd, reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }
    void Send(const std::string& bytes) const
    {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t size = ::send(mFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (size <= 0) std::abort();
            sent += static_cast<std::size_t>(size);
        }
    }
    void Receive(std::size_t size) const
    {
        static thread_local std::vector<char> buffer(1 << 16);
        while (size != 0) {
            const ssize_t piece = ::recv(mFd, buffer.data(), std::min(buffer.size(), size), 0);
            if (piece <= 0) std::abort();
            size -= static_cast<std::size_t>(piece);
        }
    }

private:
    int mFd;
};

std::string PingBytes(std::size_t textSize)
{
    std::string bytes("\x47\x03\x00\x28", 4);
    for (const std::size_t word : {textSize + 12, textSize}) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(word >> shift);
    }
    return bytes + std::string(textSize, 't') + std::string(8, '\0');
}

/// The comms with one connected peer; the calling thread is their main thread.
class LoopbackComms
{
public:
    LoopbackComms()
    {
        OrbKLVComms::Ports ports;
        ports.adjacentRouter = ports.masterRouter = 0;
        comms = std::make_unique<OrbKLVComms>(service, processor, streams, ports);
        comms->ConnectKLVStreamChanged(
            [this](UINT8GIGEPORT, StreamType, std::uint32_t, bool valid) { changes += valid ? 1 : 0; });
    }
    Bare ConnectPeer()
    {
        const int before = changes;
        Bare peer = Bare::Connect(comms->GetPorts().adjacentRouter);
        RunUntil([&] { return changes > before; });
        return peer;
    }
    void RunUntil(const std::function<bool()>& done)
    {
        while (!done())
            service.run_one();
    }

    boost::asio::io_service service;
    const boost::asio::io_service::work work{service};
    OrbCommandProcessor processor{service};
    OrbSimpleStreamContainer streams;
    std::unique_ptr<OrbKLVComms> comms;
    int changes = 0;
};

/// Seconds that a bare recv loop takes for count copies of a block.
double BareIngest(const std::string& block, std::size_t count)
{
    const Bare listener = Bare::Listen();
    const Bare sender = Bare::Connect(listener.GetPort());
    const Bare receiver = listener.Accept();
    std::thread thread([&] {
        for (std::size_t i = 0; i < count; ++i)
            sender.Send(block);
    });
    const double seconds = Seconds([&] { receiver.Receive(block.size() * count); });
    thread.join();
    return seconds;
}

/// @param commands in one block.
void Ingest(benchmark::State& state, const std::string& block, std::size_t commands, std::size_t count)
{
    double bare = 0;
    double ours = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        bare += BareIngest(block, count);
        LoopbackComms setup;
        std::size_t received = 0;
        setup.processor.Connect<OstrelPingCmd>(
            [&](const std::shared_ptr<OstrelPingCmd const>&, unsigned char, StreamType) { ++received; });
        const Bare peer = setup.ConnectPeer();
        std::thread thread([&] {
            for (std::size_t i = 0; i < count; ++i)
                peer.Send(block);
        });
        const double seconds = Seconds([&] { setup.RunUntil([&] { return received == commands * count; }); });
        thread.join();
        state.SetIterationTime(seconds);
        ours += seconds;
    }
    const double runs = static_cast<double>(state.iterations());
    const double bytes = static_cast<double>(block.size() * count) * runs;
    state.counters["commands/s"] = static_cast<double>(commands * count) * runs / ours;
    state.counters["MB/s"] = bytes / ours / 1e6;
    state.counters["bareMB/s"] = bytes / bare / 1e6;
    state.counters["ofBare"] = bare / ours;
}

void IngestSmall(benchmark::State& state)
{
    std::string block;
    std::size_t commands = 0;
    // 20 to 60 bytes each.
    for (; block.size() < 60000; ++commands)
        block += PingBytes(commands % 41);
    Ingest(state, block, commands, 300);
}

void IngestLarge(benchmark::State& state)
{
    Ingest(state, PingBytes(65536 - 20), 1, 4000);
}

void RoundTrip(benchmark::State& state)
{
    constexpr int Trips = 5000;
    const std::string ping = PingBytes(9);
    double bare = 0;
    double ours = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        {
            const Bare listener = Bare::Listen();
            const Bare near = Bare::Connect(listener.GetPort());
            const Bare far = listener.Accept();
            std::thread answers([&] {
                for (int i = 0; i < Trips; ++i) {
                    far.Receive(ping.size());
                    far.Send(ping);
                }
            });
            bare += Seconds([&] {
                for (int i = 0; i < Trips; ++i) {
                    near.Send(ping);
                    near.Receive(ping.size());
                }
            });
            answers.join();
        }
        LoopbackComms setup;
        int received = 0;
        setup.processor.Connect<OstrelPingCmd>(
            [&](const std::shared_ptr<OstrelPingCmd const>& command, unsigned char port, StreamType) {
                ++received;
                setup.comms->SendLocal(*command, port);
            });
        const Bare peer = setup.ConnectPeer();
        double seconds = 0;
        std::thread asks([&] {
            seconds = Seconds([&] {
                for (int i = 0; i < Trips; ++i) {
                    peer.Send(ping);
                    peer.Receive(ping.size());
                }
            });
        });
        setup.RunUntil([&] { return received == Trips; });
        asks.join();
        state.SetIterationTime(seconds / Trips);
        ours += seconds;
    }
    const double trips = static_cast<double>(Trips) * static_cast<double>(state.iterations());
    state.counters["us"] = ours / trips * 1e6;
    state.counters["bare_us"] = bare / trips * 1e6;
    state.counters["timesBare"] = ours / bare;
}

std::size_t ResidentBytes()
{
    std::size_t pages = 0;
    std::size_t resident = 0;
    std::FILE* const file = std::fopen("/proc/self/statm", "r");
    if (!file || std::fscanf(file, "%zu %zu", &pages, &resident) != 2) std::abort();
    std::fclose(file);
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Each stream has received and sent one command, and is then idle. The baseline is one page, the least that anything
/// of its own can cost.
void IdleStream(benchmark::State& state)
{
    constexpr std::size_t Streams = 300;
    const std::string ping = PingBytes(30);
    std::size_t grown = 0;
    for ([[maybe_unused]] const auto iteration : state) {
        LoopbackComms setup;
        std::size_t received = 0;
        setup.processor.Connect<OstrelPingCmd>(
            [&](const std::shared_ptr<OstrelPingCmd const>& command, unsigned char port, StreamType) {
                ++received;
                setup.comms->SendLocal(*command, port);
            });
        std::vector<Bare> peers;
        peers.reserve(Streams);
        const std::size_t before = ResidentBytes();
        for (std::size_t i = 0; i < Streams; ++i) {
            peers.push_back(setup.ConnectPeer());
            peers.back().Send(ping);
            setup.RunUntil([&] { return received == i + 1; });
        }
        grown += ResidentBytes() - before;
        state.SetIterationTime(1e-6);
    }
    const double each =
        static_cast<double>(grown) / static_cast<double>(Streams) / static_cast<double>(state.iterations());
    state.counters["KiB"] = each / 1024;
    state.counters["pages"] = each / static_cast<double>(sysconf(_SC_PAGESIZE));
}

/// From Connect on the main thread to the peer's accept, and on to the first byte of a command.
void ConnectToPeer(benchmark::State& state)
{
    constexpr int Connects = 200;
    double bare = 0;
    double accepted = 0;
    double sent = 0;
    const std::string ping = PingBytes(9);
    for ([[maybe_unused]] const auto iteration : state) {
        const Bare listener = Bare::Listen();
        for (int i = 0; i < Connects; ++i) {
            auto peer = std::async(std::launch::async, [&] { return listener.Accept(); });
            const auto start = std::chrono::steady_clock::now();
            const Bare near = Bare::Connect(listener.GetPort());
            const Bare far = peer.get();
            bare += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        }
        LoopbackComms setup;
        double round = 0;
        for (int i = 0; i < Connects; ++i) {
            auto peer = std::async(std::launch::async, [&] {
                Bare far = listener.Accept();
                const auto at = std::chrono::steady_clock::now();
                far.Receive(1);
                return std::pair(at, std::chrono::steady_clock::now());
            });
            const int before = setup.changes;
            const auto start = std::chrono::steady_clock::now();
            setup.comms->Connect(Loopback, 1, listener.GetPort());
            setup.RunUntil([&] { return setup.changes > before; });
            setup.comms->SendLocal(OstrelPingCmd("ORBMODULE", 0, 0), 1);
            const auto [at, first] = peer.get();
            round += std::chrono::duration<double>(at - start).count();
            sent += std::chrono::duration<double>(first - start).count();
            // The end of this stream comes before the start of the next.
            bool exists = true;
            while (exists)
                setup.comms->DisconnectPending(1, StreamType::LOCAL_LINK, exists);
        }
        accepted += round;
        state.SetIterationTime(round / Connects);
    }
    const double connects = static_cast<double>(Connects) * static_cast<double>(state.iterations());
    state.counters["accepted_us"] = accepted / connects * 1e6;
    state.counters["firstByte_us"] = sent / connects * 1e6;
    state.counters["bare_us"] = bare / connects * 1e6;
}

BENCHMARK(IngestSmall)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(IngestLarge)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(RoundTrip)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(5);
BENCHMARK(IdleStream)->UseManualTime()->Iterations(1);
BENCHMARK(ConnectToPeer)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(3);

} // namespace

int main(int argc, char** argv)
{
    // The lines of the streams are no part of the work.
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Fault), 0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
