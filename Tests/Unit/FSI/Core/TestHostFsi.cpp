#include "FSI/Core/HostFsi.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gtest/gtest.h>
#include <thread>

/// The block reads 0 where the control bits were written, as the hardware does: only the shadow knows them.
TEST(ControlBits, FollowTheShadowAndNotTheRegisterAndAreNotLostBetweenTwoThreads)
{
    simulation::SimulatedFpga board;
    fsi::HostFsi block{"0004", board.Open("0004")};
    block.SetControlBit(31);
    const auto toggle = [&block](int bit) {
        for (int i = 0; i < 1000; ++i) {
            block.SetControlBit(bit);
            block.ClearControlBit(bit);
        }
        block.SetControlBit(bit);
    };
    std::thread other(toggle, 5);
    toggle(4);
    other.join();
    EXPECT_EQ(board.GetRegister("0004", 0x38), 0x80000030u);
    block.ClearControlBit(4);
    block.ClearControlBit(3);
    EXPECT_EQ(board.GetRegister("0004", 0x38), 0x80000020u);
}
