// What the commands of an engineer make of the FPGA.

#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stage;
using testing::Contains;

namespace {

TEST(Routing, EverythingIsSilentUntilItIsPatchedByHand)
{
    Module module;
    ShellClient shell = module.OpenShell();
    shell.StopTailing();
    for (const auto& [line, reply] : {std::pair("version", "OrbModuleSim 1.0.2452\n"),
                                      {"quit --help", "Terminate the application\n\nUsage: quit\n"},
                                      {"adma/patch nosuch k0", "Error: Unknown or invalid source 'nosuch'\n"}})
        EXPECT_EQ(shell.Ask(line), reply);
    ControlChannel control = module.OpenControl();
    control.WaitForSyncs(1);
    constexpr std::uint32_t syncRequest = 1u << 5;
    control.WaitForRegister(AudioDmaBlock, ControlRegister, syncRequest, 0);
    EXPECT_EQ(control.Syncs(), 1u);
    // One word for each sink sample but that with the name 0, none of which has a source.
    const std::vector<std::string> table = control.Ask("table");
    EXPECT_EQ(table.size(), 3 * 512u);
    for (const std::string& line : table)
        ASSERT_EQ(std::stoul(line.substr(line.find("0x")), nullptr, 16) >> 12, 0u) << line;

    const Sample sink{FirstLinkEndpoint, 7};
    EXPECT_EQ(shell.Ask("patch 0 5 1 7"), "");
    control.WaitForRoute(sink, Sample{BulkEndpoint, 5});
    // Sink 7 of endpoint 1 after the 512 words of the bulk endpoint; source 5 of endpoint 3.
    EXPECT_THAT(control.Ask("table"), Contains("519 0x00605207"));
    EXPECT_EQ(control.Syncs(), 2u);

    EXPECT_EQ(shell.Ask("unpatch 0 5 1 7"), "");
    control.WaitForRoute(sink, std::nullopt);
    // What names no port or slot reaches nothing.
    const unsigned long syncs = control.Syncs();
    for (const std::string line : {"patch 3 5 1 7", "patch 0 512 1 7", "patch 0 5 1 512", "patch -1 5 1 7"})
        EXPECT_NE(shell.Ask(line), "") << line;
    EXPECT_EQ(control.Syncs(), syncs);
}

} // namespace
