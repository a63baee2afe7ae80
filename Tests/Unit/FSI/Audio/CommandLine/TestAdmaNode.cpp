#include "FSI/Audio/CommandLine/AdmaNode.h"
#include "Tests/Unit/FSI/Audio/AdmaFixture.h"
#include "Utilities/CommandLine/NodeManager.h"

#include <iomanip>
#include <sstream>
#include <string>

namespace {

class AdmaCommands : public AdmaFixture
{
protected:
    void SetUp() override
    {
        Start();
        mTree.GetRoot().AddNode(std::make_shared<AdmaNode>(mManager));
    }
    std::string Run(const std::string& command, const std::string& arguments = "") const
    {
        const auto action = mTree.Find("adma/" + command);
        return action ? action->Run(arguments, nullptr) : "no such command";
    }
    /// Runs a command that answers nothing and syncs once.
    void Change(const std::string& command, const std::string& arguments = "")
    {
        const std::uint64_t syncs = mBoard.GetSyncs();
        EXPECT_EQ(Run(command, arguments), "") << command << " " << arguments;
        ASSERT_TRUE(Settle(syncs + 1)) << command;
    }

    cmd::NodeManager mTree;
};

TEST_F(AdmaCommands, RoutesCanBeSetShownAndCleared)
{
    Change("patch2", "bulk 0-3 k0 8-11");
    Change("patch2", "bulk 0,2 k1 510-511");
    EXPECT_EQ(Probe(1, 11), "3:3");
    EXPECT_EQ(Probe(2, 511), "3:2");
    EXPECT_EQ(Run("status"), "Sources          Sinks\n"
                             "0:    0       >> k0:   0-7    \n"
                             "bulk: 0-3     >> k0:   8-11   \n"
                             "0:    0       >> k0:   12-511 \n"
                             "\n"
                             "0:    0       >> k1:   0-509  \n"
                             "bulk: 0       >> k1:   510    \n"
                             "bulk: 2       >> k1:   511    \n"
                             "\n"
                             "0:    0       >> bulk: 0-511  \n");
    EXPECT_EQ(Run("transactions", "521 520"), "520: 0x00600208\n521: 0x00601209\n");
    Change("clear_from", "bulk");
    EXPECT_EQ(Probe(1, 11) + Probe(2, 511), "--");
    Change("patch", "k1 bulk");
    EXPECT_EQ(Probe(3, 0) + " " + Probe(3, 511), "2:0 2:511");
    Change("patch", "k0 k1");
    Change("clear_to", "bulk");
    EXPECT_EQ(Probe(3, 5) + " " + Probe(2, 5), "- 1:5");
    Change("clear_all");
    EXPECT_EQ(Probe(2, 5), "-");
}

TEST_F(AdmaCommands, WrongInputIsReportedAndChangesNothing)
{
    Change("patch2", "bulk 1 k0 1");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"patch", "k9 nosink", "Error: Unknown or invalid source 'k9'"},
        {"patch", "k0 k9", "Error: Unknown or invalid sink 'k9'"},
        {"patch2", "k9 x nosink y", "Error: Unknown or invalid source 'k9'"},
        {"patch2", "k0 x k9 y", "Error: Unknown or invalid sink 'k9'"},
        {"patch2", "k0 3,600 k1 x", "Error: '3,600' is not valid for 'k0'"},
        {"patch2", "k0 0-3 k1 5-3", "Error: '5-3' is not valid for 'k1'"},
        {"patch2", "k0 0,1,1,2 k1 0-3", "Error: Source and sink sizes must match: 3 sources and 4 sinks requested"},
        {"clear_from", "K0", "Error: Unknown or invalid source 'K0'"},
        {"clear_to", "adma", "Error: Unknown or invalid sink 'adma'"},
        {"mute", "maybe", "error: arg 1: cannot convert 'maybe' to type 'bool'"},
        {"transactions", "1", "error: 'transactions' expects 2 argument(s), 1 provided"},
    };
    const std::uint64_t syncs = mBoard.GetSyncs();
    for (const auto& [command, arguments, error] : cases)
        EXPECT_EQ(Run(command, arguments), error);
    EXPECT_EQ(mBoard.GetSyncs(), syncs);
    Change("sync");
    EXPECT_EQ(Probe(1, 1), "3:1");
}

TEST_F(AdmaCommands, EndpointsAreListedAndMutesReachTheBlock)
{
    std::ostringstream expected;
    expected << "  bulk: Endpoint: 3, " << std::setw(23) << "transactions 0-511,"
             << " FSI: 0012, mapped addr: 0x" << std::hex << reinterpret_cast<std::uintptr_t>(mBulk->GetMappedAddress())
             << "\n"
             << "    k0: Endpoint: 1, " << std::setw(23) << "transactions 512-1023,"
             << " [Kernel FSI]\n"
             << "    k1: Endpoint: 2, " << std::setw(23) << "transactions 1024-1535,"
             << " [Kernel FSI]\n";
    EXPECT_EQ(Run("links"), expected.str());
    for (const auto& [command, argument, control] : {std::tuple("mute_on_pll_loss", "false", 0x08u),
                                                     {"mute_on_pll_loss", "true", 0u},
                                                     {"mute", "true", 0x10u},
                                                     {"mute", "false", 0u}}) {
        EXPECT_EQ(Run(command, argument), "");
        EXPECT_EQ(mBoard.GetRegister("0003", 0x38), control) << command;
    }
}

TEST_F(AdmaCommands, TheTableIsShownWithinItsBounds)
{
    for (const auto& [range, count] :
         {std::pair("2040 5000", 8), {"2047 2047", 1}, {"2048 2048", 0}, {"4000 5000", 0}, {"0 4294967295", 2048}}) {
        const std::string text = Run("transactions", range);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), count) << range;
    }
    EXPECT_EQ(Run("transactions", "1 1"), "1: 0x00000601\n");
}

TEST_F(AdmaCommands, ResetAndAcknowledgeGoPastTheManager)
{
    Change("patch2", "bulk 1 k0 1");
    Change("reset_fsi");
    EXPECT_EQ(mBoard.GetActiveTable(), simulation::SimulatedFpga::Table{});

    SynchroniseAndHold(4);
    EXPECT_EQ(Run("syncing"), "true");
    EXPECT_EQ(mBoard.GetRegister("0003", 0x38), 0x20u);
    EXPECT_EQ(Run("sync_ack"), "");
    EXPECT_EQ(mBoard.GetRegister("0003", 0x38), 0u);
    mBoard.Complete();
    EXPECT_EQ(Run("syncing"), "false");
}

} // namespace
