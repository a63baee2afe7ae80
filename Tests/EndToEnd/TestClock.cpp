#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"

#include <gtest/gtest.h>

#include <thread>

using namespace stage;

namespace {

constexpr char ReferenceBlock[] = "0004";
constexpr std::uint32_t Family44k1Bit = 1u << 3;
constexpr std::uint32_t PhaseFreezeBit = 1u << 4;

/// References that the simulated FPGA measures, and what the module makes of them.
class Clock : public testing::Test
{
protected:
    Clock() : mShell(mModule.OpenShell()), mControl(mModule.OpenControl()) { mShell.StopTailing(); }

    /// Until the module has taken it up.
    void Measure(const std::string& id, const std::string& value)
    {
        constexpr unsigned int pending = 0x18;
        mControl.Ask("measure " + id + " " + value);
        mControl.WaitForRegister(ReferenceBlock, pending, 1u << 2, 0);
    }
    /// The register is written by the module in its own time, and the board does not report it.
    void ExpectPll(const std::string& id)
    {
        const Deadline deadline(Patience);
        while (mControl.AskOne("pll") != id && !deadline.HasPassed())
            std::this_thread::yield();
        EXPECT_EQ(mControl.AskOne("pll"), id);
    }

    Module mModule;
    ShellClient mShell;
    ControlChannel mControl;
};

TEST_F(Clock, IsSelectedLostAndOverruledByHand)
{
    // Within the range of the 48 kHz family. The links' clocks are off from the start.
    Measure("1", "1150000");
    LogFile().WaitForLine("Clock 1 inside accept measurements ");
    EXPECT_EQ(mControl.AskOne("pll"), "0");
    const auto measureOn = [this] {
        for (const std::string value : {"1", "1150000"})
            Measure("4", value);
        // Its reply comes after what the measurements posted.
        EXPECT_EQ(mShell.Ask("clock/active"), "Internal\n");
    };
    for (const auto& [command, pll, isOverruled] : {std::tuple("enable k0", "1", false),
                                                    {"enable bulk", "4", false},
                                                    {"use_internal true", "0", true},
                                                    {"use_internal false", "4", false},
                                                    {"set_pll_source k1", "2", true},
                                                    {"auto_pll_select", "4", false},
                                                    {"disable bulk", "1", false},
                                                    {"disable k0", "0", false}}) {
        EXPECT_EQ(mShell.Ask("clock/" + std::string(command)), "") << command;
        if (command == std::string("enable bulk")) Measure("4", "1150000");
        ExpectPll(pll);
        if (!isOverruled) continue;
        measureOn();
        EXPECT_EQ(mControl.AskOne("pll"), pll) << command;
    }

    LogFile().WaitForLine("SetExternalPllSource 1");
    for (const auto& [argument, bit] : {std::pair("true", PhaseFreezeBit), {"false", 0u}}) {
        EXPECT_EQ(mShell.Ask("clock/enable_phase_freeze " + std::string(argument)), "");
        mControl.WaitForRegister(ReferenceBlock, ControlRegister, PhaseFreezeBit, bit);
    }
    EXPECT_EQ(mShell.Ask("clock/set_measurement_range 5 9000"), "");
    EXPECT_EQ(mControl.AskOne("range"), "5 9000");
}

TEST_F(Clock, FollowsTheRateOfTheSystem)
{
    ByteStream router = ByteStream::ConnectTcp(UnitNamespace, ModuleAddress, 55000);
    mControl.Ask("lock on");
    // SET_ROUTER_SAMPLE_RATE: 88.2 kHz, then 96 kHz.
    for (const auto& [rate, bit, pll] : {std::tuple('\x03', Family44k1Bit, "4"), {'\x01', 0u, "0"}}) {
        router.Send(std::string("\xA2\x02\x00\x28\x08\x00\x00\x00", 8) + rate + std::string(7, '\0'));
        mControl.WaitForRegister(ReferenceBlock, ControlRegister, Family44k1Bit, bit);
        // The first is for the choice, the second finds it locked; or out of range.
        Measure("4", "1250000");
        Measure("4", "1250000");
        ExpectPll(pll);
    }
    LogFile().WaitForLine("Stable Clock 4");
}

} // namespace
