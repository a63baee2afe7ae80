#include "Audit/Audit.h"
#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "Tests/Support/SendOnlyComms.h"

#include <benchmark/benchmark.h>
#include <boost/asio/io_service.hpp>

#include <ctime>
#include <memory>

// What one report about a remote device costs with 10, 1,000 and 10,000 devices known. The baseline of the same run
// is the writing of one RemoteIoUpdate into memory, which every report costs in any case.

namespace {

/// Time of this thread on a processor, in nanoseconds: the machine may have other work.
double Now()
{
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

constexpr std::uint32_t Self = 0x00128000;
constexpr std::uint32_t RouterHid = 0x00308000;
constexpr std::uint32_t DevicesPerRouter = 8;

class NullComms : public SendOnlyComms
{
public:
    bool Send(const StreamName&, const DeskCommand&) override
    {
        ++mSent;
        return true;
    }

    std::uint64_t mSent = 0;
};

/// A directory with a router on both links, with devices spread over remote routers.
class Directory
{
public:
    explicit Directory(std::uint32_t count)
        : mCount(count), mDevices(mService, mComms, [](const std::string&, const std::string&) { return 0; }, {}, {})
    {
        mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(Self, RemoteDeviceType::Orb, 512, 512, 0), 0,
                              StreamType::LOCAL_LINK);
        for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
            mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 1, 0, 2, RouterHid, K2Heartbeat::K2_ROUTER_TYPE);
            mDevices.OnKLVStreamChanged(port, StreamType::LOCAL_LINK, 2, true);
            mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, RemoteDeviceType::Router, 512, 512, 0), port,
                                  StreamType::LOCAL_LINK);
            for (std::uint32_t i = 0; i < mCount; ++i)
                Report(i, port, 0x0A000001 + 256 * i);
        }
        mService.poll();
    }

    void Report(std::uint32_t index, UINT8GIGEPORT port, std::uint32_t address)
    {
        mDevices.OnRemoteIoUpdate(Update(index, address), port, StreamType::LOCAL_LINK);
    }
    void ReportRouterGone(std::uint32_t index, UINT8GIGEPORT port)
    {
        mDevices.OnRemoteRouterUpdate(
            std::make_shared<RemoteRouterUpdate>(RemoteDeviceType::Hub, OwnerOf(index), 0u, 0u), port,
            StreamType::LOCAL_LINK);
    }
    void RunPosted()
    {
        mService.restart();
        mService.poll();
    }
    static std::shared_ptr<const RemoteIoUpdate> Update(std::uint32_t index, std::uint32_t address)
    {
        return std::make_shared<RemoteIoUpdate>(RemoteDeviceType::FixedFormat, HidOf(index), address, OwnerOf(index),
                                                SampleRates::RATE_48K, RateList{SampleRates::RATE_48K});
    }

private:
    static Hid HidOf(std::uint32_t index)
    {
        return (0x1000 + index / DevicesPerRouter) << 16 | index % DevicesPerRouter;
    }
    static Hid OwnerOf(std::uint32_t index) { return (0x1000 + index / DevicesPerRouter) << 16 | 0x8000; }

    std::uint32_t mCount;
    boost::asio::io_service mService;
    NullComms mComms;
    DeviceManager mDevices;
};

void Quiet()
{
    for (const DebugFeature feature : {DebugFeature::Information, DebugFeature::Fault, DebugFeature::Assert})
        Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(feature), 0);
}

double BaselineNanoseconds()
{
    constexpr int Rounds = 20000;
    const auto update = Directory::Update(0, 1);
    const double start = Now();
    for (int i = 0; i < Rounds; ++i) {
        CommandContainer bytes;
        update->WriteTo(bytes);
        benchmark::DoNotOptimize(bytes.GetLength());
    }
    return (Now() - start) / Rounds;
}

/// Runs one event after the other over all devices, and gives its cost and the baseline.
template <class Event>
void Measure(benchmark::State& state, Event event)
{
    Quiet();
    const auto count = static_cast<std::uint32_t>(state.range(0));
    Directory directory(count);
    const double baseline = BaselineNanoseconds();
    std::uint32_t index = 0;
    std::uint64_t events = 0;
    const double start = Now();
    for (auto unused : state) {
        (void)unused;
        event(directory, index);
        directory.RunPosted();
        // A stride that visits all devices far from one another.
        index = (index + 7919) % count;
        ++events;
    }
    const double each = (Now() - start) / static_cast<double>(events);
    state.counters["baseline_ns"] = baseline;
    state.counters["times_baseline"] = each / baseline;
}

void KnownDeviceReportedAgain(benchmark::State& state)
{
    Measure(state, [](Directory& directory, std::uint32_t index) { directory.Report(index, 1, 0x0A000001); });
}
BENCHMARK(KnownDeviceReportedAgain)->Arg(10)->Arg(1000)->Arg(10000);

void DeviceGoneAndBackOnBothLinks(benchmark::State& state)
{
    Measure(state, [](Directory& directory, std::uint32_t index) {
        for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            directory.Report(index, port, 0);
        for (const UINT8GIGEPORT port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT})
            directory.Report(index, port, 0x0A000001);
    });
}
BENCHMARK(DeviceGoneAndBackOnBothLinks)->Arg(10)->Arg(1000)->Arg(10000);

/// A router that ends on one link: its eight devices lose that link, all others are not looked at.
void RouterGoneOnOneLink(benchmark::State& state)
{
    Measure(state, [](Directory& directory, std::uint32_t index) { directory.ReportRouterGone(index, 1); });
}
BENCHMARK(RouterGoneOnOneLink)->Arg(10)->Arg(1000)->Arg(10000);

} // namespace

BENCHMARK_MAIN();
