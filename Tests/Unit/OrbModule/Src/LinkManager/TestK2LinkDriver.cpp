#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"

#include "Simulation/LinkDriver/LinkDriver.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <chrono>
#include <linux/netlink.h>
#include <memory>
#include <system_error>
#include <tuple>

namespace {

using std::chrono::milliseconds;

/// Little-endian, as the machines are that this runs on; in words, so that it lies where a datagram would.
using Words = std::vector<std::uint32_t>;

/// Reads some messages, or that many bytes of them.
K2LinkStatus Read(const std::vector<Words>& messages, std::size_t bytes = 0)
{
    Words words;
    for (const Words& message : messages)
        words.insert(words.end(), message.begin(), message.end());
    K2LinkStatus status;
    K2LinkDriver::ReadReport(reinterpret_cast<const std::uint8_t*>(words.data()), bytes != 0 ? bytes : words.size() * 4,
                             status);
    return status;
}

// Length, type and flags, sequence, port; command and version; then attributes, each length and type, value.
const Words Whole = {68,         0x0022, 0,          0,      0x0101,     0x00010008, 1,          0x00020008, 0x50,
                     0x00030008, 7,      0x00040008, 0xABCD, 0x00050008, 0x20,       0x00060008, 2};
const Words OnlyRemotePort = {28, 0x0022, 0, 0, 0x0101, 0x00030008, 9};
const Words ErrorReply = {36, 0x0002, 0, 0, 0xFFFFFFFE, 0, 0, 0, 0};
const Words ShortAttribute = {28, 0x0022, 0, 0, 0x0101, 0x00030006, 9};

/// Without a report; it takes the time that it has.
bool WaitsInVain(K2LinkDriver& driver)
{
    const auto start = std::chrono::steady_clock::now();
    K2LinkStatus status;
    return !driver.WaitForStatus(status) && std::chrono::steady_clock::now() - start > milliseconds(48);
}

} // namespace

TEST(LinkReportTest, EachAttributeReachesItsFieldAnAbsentOneKeepsItsDefaultAndALaterMessageOverrides)
{
    const auto fields = [](const K2LinkStatus& status) {
        return std::tuple(status.Port, status.RemoteId, status.RemotePort, status.LinkState, status.FsiEndpoint,
                          status.AdmaEndpoint);
    };
    EXPECT_EQ(fields(Read({Whole})), std::tuple(1u, 0x50u, 7u, 0xABCDu, 0x20u, 2u));
    EXPECT_EQ(fields(Read({OnlyRemotePort})), std::tuple(0xFFFFFFFFu, 0u, 9u, 0u, 0u, 0u));
    EXPECT_EQ(fields(Read({Whole, OnlyRemotePort})), std::tuple(1u, 0x50u, 9u, 0xABCDu, 0x20u, 2u));
}

TEST(LinkReportTest, ErrorsAndMalformedMessagesAreLoggedAndPassedOver)
{
    LogRecorder log{DebugFeature::CommsDebug};
    EXPECT_EQ(Read({ErrorReply, ShortAttribute, OnlyRemotePort}).RemotePort, 9u);
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Error reply returned: No such file or directory\n",
                                                  testing::StartsWith("Failed to parse reply to netlink message: ")));
}

TEST(LinkReportTest, ADatagramThatIsCutGivesNothing)
{
    for (std::size_t size = 1; size < 68; ++size)
        EXPECT_EQ(Read({Whole}, size).Port, 0xFFFFFFFFu) << size;
    EXPECT_EQ(Read({{6800, 0x0022, 0, 0, 0x0101, 0x00010008, 1}}).Port, 0xFFFFFFFFu) << "a length that is too large";
    EXPECT_EQ(Read({{0, 0x0022, 0, 0}}).Port, 0xFFFFFFFFu) << "no length";
}

TEST(K2LinkDriverTest, ItIsCurrentUnlessItHasLostReportsAndNoDriverHoldsIt)
{
    LogRecorder log;
    LinkEnvironment environment;
    environment.reportWait = environment.driverWait = milliseconds(50);
    K2LinkDriver lonely(2, environment);
    EXPECT_TRUE(WaitsInVain(lonely));
    std::unique_ptr<sim::NetlinkSocket> silent;
    try {
        silent = std::make_unique<sim::NetlinkSocket>(NETLINK_USERSOCK, sim::LinkDriver::NETLINK_PORT, 0);
    } catch (const std::system_error& error) {
        GTEST_SKIP() << error.what() << ": no netlink between processes here";
    }
    sim::NetlinkSocket filler(NETLINK_USERSOCK, 0, 0);
    // A driver that does not answer, then one with a full queue.
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(K2LinkDriver(2, environment).GetRegistration().IsKnown());
        EXPECT_TRUE(lonely.IsCurrent());
        for (int sent = 0; sent < 1000; ++sent)
            filler.Send(std::vector<std::uint8_t>(4096), sim::LinkDriver::NETLINK_PORT);
    }
    EXPECT_FALSE(lonely.GetRegistration().IsKnown());
    EXPECT_TRUE(log.Lines().empty());

    silent.reset();
    sim::LinkDriver simulated;
    K2LinkDriver driver(2, environment);
    K2LinkStatus status;
    std::string ports;
    while (driver.WaitForStatus(status))
        ports += std::to_string(status.Port);
    EXPECT_EQ(ports, "01");
    EXPECT_TRUE(driver.IsCurrent());
    simulated.Execute("burst 10000");
    EXPECT_TRUE(WaitsInVain(driver));
    EXPECT_FALSE(driver.IsCurrent());
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Error receiving reply to netlink message: Out of memory\n"));
}
