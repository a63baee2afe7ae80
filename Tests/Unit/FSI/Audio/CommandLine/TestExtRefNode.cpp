#include "FSI/Audio/BulkAudioFsi.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/K2FsiLink.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/SimulatedFpga.h"
#include "Utilities/CommandLine/NodeManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(ClockCommands, NamesAreThoseOfTheRegistryAndWithoutItThereAreNone)
{
    simulation::SimulatedFpga board;
    boost::asio::io_service service;
    fsi::DeviceRegistry registry;
    const auto fsi = registry.Register<audio::ExternalReferenceFsi>("extref", board.Open("0004"));
    const auto manager = std::make_shared<audio::ExternalClockManager>(service, fsi);
    registry.Register<audio::K2FsiLink>("k0", 1, 1, 512);
    registry.Register<OrbModule::BulkAudioFsi>("bulk", 4, board.Open("0012"));
    cmd::NodeManager named;
    named.GetRoot().AddNode(std::make_shared<ExtRefNode>(manager, &registry));
    cmd::NodeManager nameless;
    nameless.GetRoot().AddNode(std::make_shared<ExtRefNode>(manager, nullptr));
    const auto measure = [&](std::uint32_t id) {
        board.Measure(id, 1150000);
        fsi->DispatchInterrupts();
    };

    EXPECT_EQ(named.Find("clock/sources")->Run("", nullptr), "bulk k0 ");
    measure(5);
    EXPECT_EQ(named.Find("clock/active")->Run("", nullptr), "Unknown");
    measure(1);
    EXPECT_EQ(named.Find("clock/active")->Run("", nullptr), "k0");
    const auto expectStatus = [&](const std::string& ofK0) {
        EXPECT_THAT(named.Find("clock/status")->Run("", nullptr),
                    testing::MatchesRegex("Clock Ids: bulk \\(4\\) k0 \\(1\\) Internal \\(0\\)\n\n"
                                          " Id Enabled Measure    State\n(.*\n)*  1    true +" +
                                          ofK0 + "\n(.*\n)*"));
    };
    expectStatus("1150000 +stable locking \\[selected\\]");
    board.SetServoLock(true);
    measure(1);
    expectStatus("1150000 +stable locked \\[selected\\]");
    board.RaiseEvent("0004", 0);
    fsi->DispatchInterrupts();
    expectStatus("0 unstable");
    EXPECT_EQ(nameless.Find("clock/sources")->Run("", nullptr), "");
    for (const char* const command : {"clock/enable", "clock/disable", "clock/set_pll_source"}) {
        EXPECT_EQ(named.Find(command)->Run("extref", nullptr), "Error: Unknown clock 'extref'") << command;
        EXPECT_EQ(nameless.Find(command)->Run("bulk", nullptr), "Error: Unknown clock 'bulk'") << command;
    }
}

} // namespace
