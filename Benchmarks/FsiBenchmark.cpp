// What a change of routes costs: one Synchronise, the whole table through the data port and the wake of the sync
// thread, against a bare copy of the table plus 2048 stores that each go through a virtual call. The counter "ratio"
// is the one time over the other, taken in the same run.

#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"

#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstring>
#include <memory>
#include <vector>

namespace {

/// Registers in memory, with the accesses of a mapped block.
class MemoryBlock : public fsi::RegisterBlock
{
public:
    std::uint8_t Read8(std::uint32_t offset) const override
    {
        return static_cast<std::uint8_t>(mRegisters[offset / 4] >> (offset % 4 * 8));
    }
    std::uint32_t Read32(std::uint32_t offset) const override { return mRegisters[offset / 4]; }
    void Write32(std::uint32_t offset, std::uint32_t value) override { mRegisters[offset / 4] = value; }
    void WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count) override
    {
        volatile std::uint32_t& port = mRegisters[offset / 4];
        for (std::size_t i = 0; i < count; ++i)
            port = words[i];
    }
    int GetFileDescriptor() const override { return -1; }
    const volatile void* GetMappedAddress() const override { return mRegisters.data(); }
    std::uint32_t GetSize() const override { return 0x40; }

private:
    std::array<volatile std::uint32_t, 16> mRegisters{};
};

constexpr std::size_t TableSize = audio::AudioDmaFsi::TableSize;

void CopyAndStore(fsi::RegisterBlock& block, const std::vector<std::uint32_t>& table, std::vector<std::uint32_t>& copy)
{
    std::memcpy(copy.data(), table.data(), TableSize * sizeof(std::uint32_t));
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
    for (const std::uint32_t word : copy)
        block.Write32(0x20, word);
}

struct Baseline
{
    std::unique_ptr<fsi::RegisterBlock> block = std::make_unique<MemoryBlock>();
    std::vector<std::uint32_t> table = std::vector<std::uint32_t>(TableSize, 0x605207);
    std::vector<std::uint32_t> copy = std::vector<std::uint32_t>(TableSize);

    void Run() { CopyAndStore(*block, table, copy); }
};

void CopyPlusVirtualStores(benchmark::State& state)
{
    Baseline baseline;
    benchmark::DoNotOptimize(baseline.block);
    for (auto _ : state)
        baseline.Run();
}
BENCHMARK(CopyPlusVirtualStores);

void Synchronise(benchmark::State& state)
{
    using Clock = std::chrono::steady_clock;
    fsi::DeviceRegistry registry;
    const auto fsi = registry.Register<audio::AudioDmaFsi>("adma", std::make_unique<MemoryBlock>());
    const auto manager = std::make_shared<audio::AudioDmaManager>(fsi, &registry);
    std::vector<std::shared_ptr<audio::AudioDmaEndpoint>> endpoints;
    for (const int address : {3, 1, 2})
        endpoints.push_back(registry.Register<audio::K2FsiLink>("k" + std::to_string(address), address, address, 512));
    manager->RegisterEndpoints(endpoints);

    const Clock::time_point start = Clock::now();
    for (auto _ : state)
        manager->Synchronise();
    const auto measured = Clock::now() - start;

    Baseline baseline;
    benchmark::DoNotOptimize(baseline.block);
    const Clock::time_point baselineStart = Clock::now();
    for (benchmark::IterationCount i = 0; i < state.iterations(); ++i)
        baseline.Run();
    const auto bare = Clock::now() - baselineStart;
    state.counters["ratio"] = static_cast<double>(measured.count()) / static_cast<double>(bare.count());
}
BENCHMARK(Synchronise)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
