#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using simulation::SimulatedFpga;

constexpr std::chrono::seconds Patience(20);

bool Readable(const fsi::RegisterBlock& block)
{
    pollfd line{block.GetFileDescriptor(), POLLIN, 0};
    return ::poll(&line, 1, 0) == 1 && (line.revents & POLLIN);
}

bool TakeInterrupt(const fsi::RegisterBlock& block)
{
    std::uint32_t count = 0;
    return ::read(block.GetFileDescriptor(), &count, sizeof count) == 4;
}

void WriteTable(fsi::RegisterBlock& block, const std::vector<std::uint32_t>& words, std::uint32_t first = 0)
{
    block.Write32(0x24, 0xC0000 + 4 * first);
    block.WriteBurst(0x20, words.data(), words.size());
}

void RequestSync(fsi::RegisterBlock& block)
{
    block.Write32(0x38, 0);
    block.Write32(0x38, 0x20);
}

TEST(SimulatedFpga, BlocksIdentifyThemselvesAndOthersAreMissing)
{
    SimulatedFpga board;
    EXPECT_EQ(board.Open("0010")->Read8(0x06), 42);
    EXPECT_EQ(board.Open("0012")->Read8(0x04), 3);
    board.SetFirmwareBuild(200);
    EXPECT_EQ(board.Open("0010")->Read8(0x06), 200);
    board.RemoveBlock("0004");
    for (const auto& [name, instance] :
         {std::make_pair("0004", 0), std::make_pair("0005", 0), std::make_pair("0003", 1)})
        EXPECT_THROW(board.Open(name, instance), std::system_error) << name;
}

TEST(SimulatedFpga, TheTableThatWasWrittenAtTheRequestBecomesActive)
{
    SimulatedFpga board;
    const auto dma = board.Open("0003");
    WriteTable(*dma, {0x605207, 0x606208});
    EXPECT_FALSE(board.Probe(1, 7));
    board.SetHold(true);
    RequestSync(*dma);
    EXPECT_EQ(dma->Read32(0x3C), 0x8u);
    WriteTable(*dma, {0x000207}, 2);
    EXPECT_FALSE(board.Probe(1, 7));
    EXPECT_TRUE(board.Complete());
    EXPECT_FALSE(board.Complete());
    EXPECT_EQ(dma->Read32(0x3C), 0u);
    EXPECT_EQ(board.Probe(1, 7), (SimulatedFpga::SampleName{3, 5}));
    RequestSync(*dma);
    board.SetHold(false);
    EXPECT_FALSE(board.Probe(1, 7)) << "the later entry of a sink stands";
    EXPECT_EQ(board.GetSyncs(), 2u);

    dma->Write32(0x38, 0x30);
    EXPECT_EQ(board.GetSyncs(), 2u) << "the request bit was set before";
    const std::vector<std::uint32_t> more(2049, 0x111111);
    WriteTable(*dma, more);
    RequestSync(*dma);
    EXPECT_EQ(board.GetActiveTable()[2047], 0x111111u);
    EXPECT_EQ(dma->Read32(0x20), 0u) << "the table cannot be read back";
    EXPECT_EQ(dma->Read32(0x38), 0u) << "neither can the control bits";
    EXPECT_EQ(board.GetRegister("0003", 0x38), 0x20u);
}

TEST(SimulatedFpga, AnActivationTakesItsTime)
{
    SimulatedFpga board;
    const auto dma = board.Open("0003");
    board.SetSyncTime(std::chrono::milliseconds(2));
    RequestSync(*dma);
    ASSERT_TRUE(board.WaitForSyncs(1, Patience));
    const SimulatedFpga::Times times = board.GetTimes();
    EXPECT_GE(times.activation - times.request, std::chrono::milliseconds(2));
    board.SetSyncTime(std::chrono::hours(1));
    RequestSync(*dma);
    EXPECT_EQ(board.GetSyncs(), 1u);
    board.SetSyncTime(std::chrono::microseconds(0));
    board.SetHold(true);
    board.SetHold(false);
    EXPECT_EQ(board.GetSyncs(), 2u);
}

TEST(SimulatedFpga, EventsPendAndInterruptWhileTheyAreEnabled)
{
    SimulatedFpga board;
    const auto reference = board.Open("0004");
    board.Measure(4, 1150000);
    EXPECT_FALSE(Readable(*reference));
    reference->Write32(0x30, 0x1F);
    EXPECT_TRUE(Readable(*reference)) << "what pended is told once it is enabled";
    board.RaiseEvent("0004", 0);
    EXPECT_TRUE(TakeInterrupt(*reference));
    EXPECT_FALSE(Readable(*reference)) << "interrupts that were not taken are one";
    EXPECT_EQ(reference->Read32(0x18), 0x5u);
    EXPECT_EQ(reference->Read32(0x34), 0u);
    reference->Write32(0x34, 0x4);
    EXPECT_EQ(reference->Read32(0x18), 0x1u);

    reference->Write32(0x24, 0x30000);
    EXPECT_EQ(reference->Read32(0x20), 1150000u << 8 | 4);
    board.SetServoLock(true);
    EXPECT_EQ(reference->Read32(0x3C), 0x8u);
    board.BreakInterruptLine("0004");
    EXPECT_FALSE(TakeInterrupt(*reference));
}

} // namespace
