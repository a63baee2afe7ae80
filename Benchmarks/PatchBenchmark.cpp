// What a patch costs: the slots, and the whole way from a command to the request that makes the table active. The
// log lines of each patch are switched off here, since they are measured with the log.

#include "Audit/Audit.h"
#include "Common/KLV/Commands/PatchCommands.h"
#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Core/DeviceRegistry.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "Tests/Support/SendOnlyComms.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <numeric>

namespace {

constexpr Hid Desk = 0xC0010005;
constexpr Hid Box = 0xC0020001;

std::vector<std::uint32_t> CountUp(std::uint32_t count)
{
    std::vector<std::uint32_t> slots(count);
    std::iota(slots.begin(), slots.end(), 0u);
    return slots;
}

/// The desk on port 0 and one box on the primary link.
class TwoDevices : public iDevices
{
public:
    bool IsDeviceOnline(Hid, Routing::PortsEnum) const override { return true; }
    bool IsLocalIo(Hid) const override { return false; }
    bool IsOwnDevice(Hid hid) const override { return hid == Desk; }
    std::vector<std::uint32_t> GetInputLinkSlot(Hid, AudioPortNumber) const override { return {}; }
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid, AudioPortNumber) const override { return {}; }
    DevicePorts GetDevicePorts(Hid, Routing::PortsEnum port) const override { return {port, 5}; }
    std::uint32_t GetSlaveAddress(Hid, Routing::PortsEnum) const override { return 0; }
};

class NoComms : public SendOnlyComms
{
public:
    bool Send(const StreamName&, const DeskCommand& command) override
    {
        benchmark::DoNotOptimize(&command);
        return true;
    }
};

/// Allocates and frees one source. Arguments: slots in use before, slots of the source.
void AllocateAndFree(benchmark::State& state)
{
    LinkAllocation allocation;
    const auto used = static_cast<std::uint32_t>(state.range(0));
    if (used != 0) allocation.Allocate({Desk, 1}, {0, CountUp(used)}, 1, {Box, 1});
    const Routing::GigeAndSlots link{0, CountUp(static_cast<std::uint32_t>(state.range(1)))};
    for (auto _ : state) {
        benchmark::DoNotOptimize(allocation.Allocate({Desk, 2}, link, 1, {Box, 2}));
        benchmark::DoNotOptimize(allocation.Free({Desk, 2}, 1, {Box, 2}));
    }
}
BENCHMARK(AllocateAndFree)->Args({0, 1})->Args({511, 1})->Args({0, 8})->Args({504, 8})->Args({0, 512});

/// The baseline of a whole patch: the table is copied once.
void CopyOfTheTable(benchmark::State& state)
{
    std::vector<std::uint32_t> from(audio::AudioDmaFsi::TableSize, 1);
    std::vector<std::uint32_t> to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(std::uint32_t));
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(CopyOfTheTable);

/// A command makes a patch and a command breaks it, each up to Synchronise on the simulated board. Arguments: slots of
/// the patch, patches that exist already.
void MakeAndBreak(benchmark::State& state)
{
    boost::asio::io_service service;
    fsi::DeviceRegistry registry;
    const auto adma = registry.Register<audio::AudioDmaFsi>("adma");
    Patcher patcher(service, &registry, std::make_shared<audio::AudioDmaManager>(adma, &registry),
                    [](std::uint32_t link) { return static_cast<std::uint8_t>(link + 1); });
    TwoDevices devices;
    NoComms comms;
    PatchController controller(devices, comms, patcher);
    const auto slots = CountUp(static_cast<std::uint32_t>(state.range(0)));
    const auto command = [&](std::uint32_t index, bool make) {
        const IoPort source(Desk, 1, index);
        return std::make_shared<const RouterPatchAudio>(PatchSource(source, 1, slots), IoPort(Box, 2, index), source,
                                                        make, false);
    };
    const auto standing = static_cast<std::uint32_t>(state.range(1));
    for (std::uint32_t i = 0; i < standing; ++i) {
        controller.ReceivedRouterPatchAudioCmd(command(i + 1, true), 0, StreamType::LOCAL_LINK);
    }
    const auto make = command(0, true);
    const auto break_ = command(0, false);
    for (auto _ : state) {
        controller.ReceivedRouterPatchAudioCmd(make, 0, StreamType::LOCAL_LINK);
        adma->DispatchInterrupts();
        controller.ReceivedRouterPatchAudioCmd(break_, 0, StreamType::LOCAL_LINK);
        adma->DispatchInterrupts();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 2);
}
BENCHMARK(MakeAndBreak)->Args({1, 0})->Args({1, 500})->Args({8, 0})->Args({512, 0});

} // namespace

int main(int argc, char** argv)
{
    for (const DebugFeature feature : {DebugFeature::Information, DebugFeature::Fault}) {
        Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(feature), 0);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
