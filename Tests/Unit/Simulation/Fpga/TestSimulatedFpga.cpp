#include "Simulation/Fpga/ControlCommands.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace {

using simulation::SimulatedFpga;

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

TEST(ControlCommands, WhatTheyCannotMakeOutIsAnError)
{
    SimulatedFpga board;
    std::istringstream lines("\nnonsense\nreg 0003\nreg 0005 38\nreg 0003 40\nreg 0003 39\nreg 0003 -4\nprobe 8 0\n"
                             "probe 1 512\nhold maybe\ncomplete\ncomplete now\nmeasure 256 1\nmeasure 1 16777216\n"
                             "event 0003 32\nevent 0013 1\nsync-time -1\nsync-time 99999999999999999999\n"
                             "wait syncs x 1\nwait locks 1 1\n");
    for (std::string line; std::getline(lines, line);)
        EXPECT_THAT(simulation::RunControlCommand(board, line).text, testing::MatchesRegex("error: .+\n")) << line;
    EXPECT_EQ(board.GetRegister("0004", 0x18), 0u);
}

} // namespace
