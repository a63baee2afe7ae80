// What commands and the Orb router's rate make of the FPGA.

#include "Tests/EndToEnd/Network.h"

using namespace stage;
using testing::Contains;

namespace {

/// A module alone, its shell without the log, and its board.
class Fpga : public testing::Test
{
protected:
    Fpga() { mShell.StopTailing(); }

    /// A reference measures so; until the module has taken it up.
    void Measure(const std::string& id, const std::string& value)
    {
        constexpr unsigned int pending = 0x18;
        mControl.Ask("measure " + id + " " + value);
        mControl.WaitForRegister(ReferenceBlock, pending, 1u << 2, 0);
    }
    void ExpectPll(const std::string& id)
    {
        EXPECT_TRUE(Await([&] { return mControl.AskOne("pll") == id; })) << id;
    }
    void ExpectControlBit(std::uint32_t bit, bool isSet)
    {
        mControl.WaitForRegister(ReferenceBlock, ControlRegister, bit, isSet ? bit : 0);
    }

    static constexpr char ReferenceBlock[] = "0004";
    Module mModule;
    ShellClient mShell = mModule.OpenShell();
    ControlChannel mControl = mModule.OpenControl();
};

TEST_F(Fpga, IsSilentUntilItIsPatchedByHand)
{
    for (const auto& [line, reply] : {std::pair("version", "OrbModuleSim 1.0.2452\n"),
                                      {"quit --help", "Terminate the application\n\nUsage: quit\n"},
                                      {"db --help", "Set debug level <level>\n\nUsage: db 'int'\n"},
                                      {"adma/patch nosuch k0", "Error: Unknown or invalid source 'nosuch'\n"}})
        EXPECT_EQ(mShell.Ask(line), reply);
    mControl.WaitForSyncs(1);
    constexpr std::uint32_t syncRequest = 1u << 5;
    mControl.WaitForRegister(AudioDmaBlock, ControlRegister, syncRequest, 0);
    EXPECT_EQ(mControl.Syncs(), 1u);
    // One word for each sink sample but that with the name 0, none of which has a source.
    const std::vector<std::string> table = mControl.Ask("table");
    EXPECT_EQ(table.size(), 3 * 512u);
    for (const std::string& line : table)
        ASSERT_EQ(std::stoul(line.substr(line.find("0x")), nullptr, 16) >> 12, 0u) << line;

    const Sample sink{FirstLinkEndpoint, 7};
    EXPECT_EQ(mShell.Ask("patch 0 5 1 7"), "");
    mControl.WaitForRoute(sink, Sample{BulkEndpoint, 5});
    // Sink 7 of endpoint 1 after the 512 words of the bulk endpoint; source 5 of endpoint 3.
    EXPECT_THAT(mControl.Ask("table"), Contains("519 0x00605207"));
    EXPECT_EQ(mControl.Syncs(), 2u);

    EXPECT_EQ(mShell.Ask("unpatch 0 5 1 7"), "");
    mControl.WaitForRoute(sink, std::nullopt);
    // What names no port or slot reaches nothing.
    const unsigned long syncs = mControl.Syncs();
    for (const std::string line : {"patch 3 5 1 7", "patch 0 512 1 7", "patch 0 5 1 512", "patch -1 5 1 7"})
        EXPECT_NE(mShell.Ask(line), "") << line;
    EXPECT_EQ(mControl.Syncs(), syncs);
}

TEST_F(Fpga, ItsClockIsSelectedLostAndOverruledByHand)
{
    // Within the range of the 48 kHz family. The links' clocks are off from the start.
    Measure("1", "1150000");
    LogFile().WaitForLine("Clock 1 inside accept measurements ");
    EXPECT_EQ(mControl.AskOne("pll"), "0");
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
        Measure("4", "1");
        Measure("4", "1150000");
        // Its reply comes after what the measurements posted.
        EXPECT_EQ(mShell.Ask("clock/active"), "Internal\n");
        EXPECT_EQ(mControl.AskOne("pll"), pll) << command;
    }
    LogFile().WaitForLine("SetExternalPllSource 1");
    for (const bool isOn : {true, false}) {
        EXPECT_EQ(mShell.Ask(isOn ? "clock/enable_phase_freeze true" : "clock/enable_phase_freeze false"), "");
        ExpectControlBit(1u << 4, isOn);
    }
    EXPECT_EQ(mShell.Ask("clock/set_measurement_range 5 9000"), "");
    EXPECT_EQ(mControl.AskOne("range"), "5 9000");
}

TEST_F(Fpga, ItsClockFollowsTheRateOfTheSystem)
{
    ByteStream router = ByteStream::ConnectTcp(UnitNamespace, ModuleAddress, 55000);
    mControl.Ask("lock on");
    // SET_ROUTER_SAMPLE_RATE: 88.2 kHz, then 96 kHz.
    for (const bool is44k1 : {true, false}) {
        router.Send(std::string("\xA2\x02\x00\x28\x08\x00\x00\x00", 8) + (is44k1 ? '\x03' : '\x01') +
                    std::string(7, '\0'));
        ExpectControlBit(1u << 3, is44k1);
        // The first is for the choice, the second finds it locked; or out of range.
        Measure("4", "1250000");
        Measure("4", "1250000");
        ExpectPll(is44k1 ? "4" : "0");
    }
    LogFile().WaitForLine("Stable Clock 4");
}

} // namespace
