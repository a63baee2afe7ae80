#include "Simulation/Fpga/ControlCommands.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

namespace {

using simulation::SimulatedFpga;

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
