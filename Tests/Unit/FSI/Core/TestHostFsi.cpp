#include "FSI/Core/HostFsi.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

/// The block reads 0 where the control bits were written, as the hardware does: only the shadow knows them.
class ControlBits : public testing::Test
{
protected:
    simulation::SimulatedFpga mBoard;
    fsi::HostFsi mBlock{"0004", mBoard.Open("0004")};
};

TEST_F(ControlBits, FollowTheShadowAndNotTheRegister)
{
    mBlock.SetControlBit(3);
    mBlock.SetControlBit(31);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0x80000008u);
    mBlock.ClearControlBit(3);
    mBlock.ClearControlBit(4);
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0x80000000u);
}

TEST_F(ControlBits, AreNotLostBetweenTwoThreads)
{
    const auto toggle = [this](int bit) {
        for (int i = 0; i < 1000; ++i) {
            mBlock.SetControlBit(bit);
            mBlock.ClearControlBit(bit);
        }
        mBlock.SetControlBit(bit);
    };
    std::thread other(toggle, 5);
    toggle(4);
    other.join();
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0x30u);
}

} // namespace
