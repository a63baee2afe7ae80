#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace stage;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char ReferenceBlock[] = "0004";
constexpr unsigned int Pending = 0x18;
constexpr std::uint32_t MeasurementBit = 1u << 2;
constexpr std::uint32_t Family44k1Bit = 1u << 3;
constexpr std::uint32_t PhaseFreezeBit = 1u << 4;
/// Within the range of the 48 kHz family, and within that of the 44.1 kHz family.
constexpr char In48k[] = "1150000";
constexpr char In44k1[] = "1250000";

/// References that the simulated FPGA measures, and what the module makes of them.
class Clock : public testing::Test
{
protected:
    Clock() : mShell(mModule.OpenShell()), mControl(mModule.OpenControl()) { mShell.StopTailing(); }

    void Measure(const std::string& id, const std::string& value) { mControl.Ask("measure " + id + " " + value); }
    /// The register is written by the module in its own time, and the board does not tell of it.
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
    LogFile mLog;
};

TEST_F(Clock, SelectsLocksLosesAndFallsBack)
{
    EXPECT_EQ(mShell.Ask("clock/sources"), "bulk k0 k1 \n");
    EXPECT_EQ(mShell.Ask("clock/active"), "Internal\n");
    // The links' clocks are off from the start.
    Measure("1", In48k);
    mLog.WaitForLine("Clock 1 inside accept measurements ");
    EXPECT_EQ(mControl.AskOne("pll"), "0");
    EXPECT_EQ(mShell.Ask("clock/enable k0"), "");
    ExpectPll("1");
    mLog.WaitForLine("SetExternalPllSource 1");

    // A worse source first, then the one of the Orb router, which has priority 0.
    EXPECT_EQ(mShell.Ask("clock/active"), "k0\n");
    Measure("4", In48k);
    ExpectPll("4");
    EXPECT_EQ(mShell.Ask("clock/active"), "bulk\n");
    EXPECT_THAT(mShell.Ask("clock/status"), ContainsRegex("1150000 +stable locking \\[selected\\]"));

    mControl.Ask("lock on");
    Measure("4", In48k);
    mLog.WaitForLine("Stable Clock 4");
    EXPECT_THAT(mShell.Ask("clock/status"), ContainsRegex("1150000 +stable locked \\[selected\\]"));

    // Out of range: back to the next best, and from there, by either loss event, to the internal clock.
    Measure("4", "1128999");
    ExpectPll("1");
    for (const std::string event : {"0", "1"}) {
        Measure("1", In48k);
        mControl.WaitForRegister(ReferenceBlock, Pending, MeasurementBit, 0);
        ExpectPll("1");
        mControl.Ask("event 0004 " + event);
        ExpectPll("0");
    }
    EXPECT_EQ(mShell.Ask("clock/active"), "Internal\n");
    EXPECT_THAT(mShell.Ask("clock/status"),
                AllOf(HasSubstr("  1    true       0 unstable\n"), Not(HasSubstr("[selected"))));
}

TEST_F(Clock, IsOverruledByHand)
{
    Measure("4", In48k);
    ExpectPll("4");
    const auto measureOn = [this] {
        for (const std::string& value : {std::string("1"), std::string(In48k)}) {
            Measure("4", value);
            mControl.WaitForRegister(ReferenceBlock, Pending, MeasurementBit, 0);
        }
        // Its reply comes after what the measurements posted.
        EXPECT_EQ(mShell.Ask("clock/active"), "Internal\n");
    };
    EXPECT_EQ(mShell.Ask("clock/use_internal true"), "");
    ExpectPll("0");
    measureOn();
    EXPECT_EQ(mControl.AskOne("pll"), "0");
    EXPECT_EQ(mShell.Ask("clock/use_internal false"), "");
    ExpectPll("4");
    EXPECT_EQ(mShell.Ask("clock/set_pll_source k1"), "");
    ExpectPll("2");
    measureOn();
    EXPECT_EQ(mControl.AskOne("pll"), "2");
    EXPECT_EQ(mShell.Ask("clock/auto_pll_select"), "");
    ExpectPll("4");
    EXPECT_EQ(mShell.Ask("clock/disable bulk"), "");
    ExpectPll("0");

    EXPECT_EQ(mShell.Ask("clock/enable_phase_freeze true"), "");
    mControl.WaitForRegister(ReferenceBlock, ControlRegister, PhaseFreezeBit, PhaseFreezeBit);
    EXPECT_EQ(mShell.Ask("clock/enable_phase_freeze false"), "");
    mControl.WaitForRegister(ReferenceBlock, ControlRegister, PhaseFreezeBit, 0);
    EXPECT_EQ(mShell.Ask("clock/set_measurement_range 5 9000"), "");
    EXPECT_EQ(mControl.AskOne("range"), "5 9000");
}

TEST_F(Clock, FollowsTheRateOfTheSystem)
{
    ByteStream router = ByteStream::ConnectTcp(UnitNamespace, ModuleAddress, 55000);
    // SET_ROUTER_SAMPLE_RATE: 88.2 kHz.
    router.Send(std::string("\xA2\x02\x00\x28\x08\x00\x00\x00\x03\x00\x00\x00\x00\x00\x00\x00", 16));
    mControl.WaitForRegister(ReferenceBlock, ControlRegister, Family44k1Bit, Family44k1Bit);
    Measure("4", In44k1);
    ExpectPll("4");
    // And 96 kHz.
    router.Send(std::string("\xA2\x02\x00\x28\x08\x00\x00\x00\x01\x00\x00\x00\x00\x00\x00\x00", 16));
    mControl.WaitForRegister(ReferenceBlock, ControlRegister, Family44k1Bit, 0);
    mControl.Ask("lock on");
    Measure("4", In44k1);
    mLog.WaitForLine("Main lamda SetRouterSampleRateCmd96kHz Port ORB PORT ");
    // Two measurements, and not one event for both.
    mControl.WaitForRegister(ReferenceBlock, Pending, MeasurementBit, 0);
    Measure("4", In44k1);
    ExpectPll("0");
}

} // namespace
