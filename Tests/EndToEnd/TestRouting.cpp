#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stage;
using testing::Contains;

namespace {

constexpr std::uint32_t SyncRequestBit = 1u << 5;

/// Commands in the shell, and what the FPGA has made of them.
class Routing : public testing::Test
{
protected:
    Routing() : mShell(mModule.OpenShell()), mControl(mModule.OpenControl())
    {
        mShell.StopTailing();
        mControl.WaitForSyncs(1);
        mControl.WaitForRegister(AudioDmaBlock, ControlRegister, SyncRequestBit, 0);
    }

    Module mModule;
    ShellClient mShell;
    ControlChannel mControl;
};

TEST_F(Routing, EverythingIsSilentAfterTheStart)
{
    EXPECT_EQ(mControl.Syncs(), 1u);
    const std::vector<std::string> table = mControl.Ask("table");
    // One word for each sink sample but that with the name 0, none of which has a source.
    EXPECT_EQ(table.size(), 3 * 512u);
    for (const std::string& line : table) {
        const unsigned long word = std::stoul(line.substr(line.find("0x")), nullptr, 16);
        ASSERT_EQ(word >> 12, 0u) << line;
    }
}

TEST_F(Routing, PatchAndUnpatchByHand)
{
    const Sample sink{FirstLinkEndpoint, 7};
    EXPECT_EQ(mShell.Ask("patch 0 5 1 7"), "");
    mControl.WaitForRoute(sink, Sample{BulkEndpoint, 5});
    // Sink 7 of endpoint 1 behind the 512 words of the bulk endpoint; source 5 of endpoint 3.
    EXPECT_THAT(mControl.Ask("table"), Contains("519 0x00605207"));
    EXPECT_EQ(mControl.Syncs(), 2u);

    EXPECT_EQ(mShell.Ask("patch 2 511 0 0"), "");
    mControl.WaitForRoute({BulkEndpoint, 0}, Sample{SecondLinkEndpoint, 511});
    EXPECT_EQ(mControl.Probe(sink), (Sample{BulkEndpoint, 5}));

    EXPECT_EQ(mShell.Ask("unpatch 0 5 1 7"), "");
    mControl.WaitForRoute(sink, std::nullopt);
    EXPECT_EQ(mControl.Probe({BulkEndpoint, 0}), (Sample{SecondLinkEndpoint, 511}));

    // What names no port or slot reaches nothing.
    const unsigned long syncs = mControl.Syncs();
    for (const std::string line : {"patch 3 5 1 7", "patch 0 512 1 7", "patch 0 5 1 512", "patch -1 5 1 7"}) {
        EXPECT_NE(mShell.Ask(line), "") << line;
    }
    EXPECT_EQ(mControl.Syncs(), syncs);
}

TEST_F(Routing, RequestsDuringAnActivationFoldIntoOne)
{
    mControl.Ask("hold on");
    EXPECT_EQ(mShell.Ask("patch 0 1 1 1"), "");
    mControl.WaitForRegister(AudioDmaBlock, ControlRegister, SyncRequestBit, SyncRequestBit);
    EXPECT_EQ(mShell.Ask("patch 0 2 1 2"), "");
    EXPECT_EQ(mShell.Ask("patch 0 3 1 3"), "");
    EXPECT_EQ(mShell.Ask("adma/syncing"), "true\n");
    EXPECT_EQ(mControl.Syncs(), 1u);
    EXPECT_EQ(mControl.Probe({FirstLinkEndpoint, 1}), std::nullopt);

    mControl.Ask("hold off");
    mControl.WaitForRoute({FirstLinkEndpoint, 3}, Sample{BulkEndpoint, 3});
    mControl.WaitForSyncs(3);
    EXPECT_EQ(mControl.Probe({FirstLinkEndpoint, 1}), (Sample{BulkEndpoint, 1}));
    EXPECT_EQ(mControl.Probe({FirstLinkEndpoint, 2}), (Sample{BulkEndpoint, 2}));

    // The two requests were one: the next command is the fourth activation.
    mControl.Ask("hold on");
    EXPECT_EQ(mShell.Ask("patch 0 4 1 4"), "");
    mControl.WaitForRegister(AudioDmaBlock, ControlRegister, SyncRequestBit, SyncRequestBit);
    mControl.Ask("complete");
    mControl.WaitForRoute({FirstLinkEndpoint, 4}, Sample{BulkEndpoint, 4});
    EXPECT_EQ(mControl.Syncs(), 4u);
}

} // namespace
