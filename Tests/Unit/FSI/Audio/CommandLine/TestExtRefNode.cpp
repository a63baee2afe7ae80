#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Utilities/CommandLine/NodeManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ClockCommands : public testing::Test
{
protected:
    ClockCommands()
        : mFsi(mRegistry.Register<audio::ExternalReferenceFsi>("extref", mBoard.Open("0004"))),
          mManager(std::make_shared<audio::ExternalClockManager>(mService, mFsi))
    {
        mRegistry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
        mRegistry.Register<OrbModule::BulkAudioFsi>("bulk", 4, mBoard.Open("0012"));
        mTree.GetRoot().AddNode(std::make_shared<ExtRefNode>(mManager, &mRegistry));
    }
    /// The result as the user sees it, then all that the command posted.
    std::string Run(const std::string& command, const std::string& arguments = "")
    {
        const auto action = mTree.Find("clock/" + command);
        const std::string result = action ? action->Run(arguments, nullptr) : "no such command";
        mService.restart();
        mService.poll();
        return result;
    }
    void Measure(std::uint32_t id)
    {
        mBoard.Measure(id, 1150000);
        mFsi->DispatchInterrupts();
    }

    simulation::SimulatedFpga mBoard;
    boost::asio::io_service mService;
    fsi::DeviceRegistry mRegistry;
    std::shared_ptr<audio::ExternalReferenceFsi> mFsi;
    std::shared_ptr<audio::ExternalClockManager> mManager;
    cmd::NodeManager mTree;
};

TEST_F(ClockCommands, SourcesAreNamedAndTheActiveOneShown)
{
    EXPECT_EQ(Run("sources"), "bulk k0 ");
    EXPECT_EQ(Run("active"), "Internal");
    Measure(5);
    EXPECT_EQ(Run("active"), "Unknown");
    Measure(1);
    EXPECT_EQ(Run("active"), "k0");
    const std::string status = Run("status");
    EXPECT_THAT(status, StartsWith("Clock Ids: bulk (4) k0 (1) Internal (0)\n\n Id Enabled Measure    State\n"));
    EXPECT_THAT(status, HasSubstr("  1    true 1150000   stable locking [selected]\n"));
}

TEST_F(ClockCommands, SourcesAreEnabledAndDisabled)
{
    Measure(4);
    EXPECT_EQ(Run("disable", "bulk"), "");
    EXPECT_EQ(Run("active"), "Internal");
    EXPECT_EQ(Run("enable", "bulk"), "");
    EXPECT_EQ(Run("active"), "bulk");
    for (const char* const command : {"enable", "disable", "set_pll_source"})
        EXPECT_EQ(Run(command, "adma"), "Error: Unknown clock 'adma'") << command;
    EXPECT_EQ(Run("active"), "bulk");
}

TEST_F(ClockCommands, TheSelectionCanBeOverridden)
{
    Measure(4);
    EXPECT_EQ(Run("use_internal", "true"), "");
    EXPECT_EQ(mBoard.GetPllSource(), 0u);
    EXPECT_THAT(Run("status"), Not(HasSubstr("[selected")));
    EXPECT_EQ(Run("use_internal", "false"), "");
    EXPECT_EQ(Run("active"), "bulk");

    EXPECT_EQ(Run("set_pll_source", "k0"), "");
    EXPECT_EQ(mBoard.GetPllSource(), 1u) << "the last value that the register receives";
    EXPECT_EQ(Run("active"), "Internal");
    EXPECT_THAT(Run("status"), Not(HasSubstr("[selected")));
    EXPECT_EQ(Run("auto_pll_select"), "");
    EXPECT_EQ(mBoard.GetPllSource(), 4u);
}

TEST_F(ClockCommands, TheBlockIsReachedAtOnce)
{
    Run("enable_phase_freeze", "true");
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0x10u);
    Run("enable_phase_freeze", "false");
    EXPECT_EQ(mBoard.GetRegister("0004", 0x38), 0u);
    Run("set_measurement_range", "10 4294967295");
    EXPECT_EQ(mBoard.GetRange(), std::make_pair(10u, 4294967295u));
    EXPECT_EQ(Run("set_measurement_range", "10 4294967296"),
              "error: arg 2: cannot convert '4294967296' to type 'unsigned'");
}

TEST_F(ClockCommands, WithoutARegistryThereAreNoNames)
{
    cmd::NodeManager tree;
    tree.GetRoot().AddNode(std::make_shared<ExtRefNode>(mManager, nullptr));
    EXPECT_EQ(tree.Find("clock/sources")->Run("", nullptr), "");
    EXPECT_EQ(tree.Find("clock/enable")->Run("bulk", nullptr), "Error: Unknown clock 'bulk'");
}

} // namespace
