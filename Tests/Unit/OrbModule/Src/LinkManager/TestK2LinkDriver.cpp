#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"

#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <tuple>

namespace {

/// Little-endian, as the machines are that this runs on; in words, so that it lies where a datagram would.
using Words = std::vector<std::uint32_t>;

K2LinkStatus Read(const Words& words, std::size_t bytes = 0)
{
    K2LinkStatus status;
    K2LinkDriver::ReadReport(reinterpret_cast<const std::uint8_t*>(words.data()), bytes != 0 ? bytes : words.size() * 4,
                             status);
    return status;
}
Words operator+(Words first, const Words& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Length, type and flags, sequence, port; command and version; then attributes, each length and type, value.
const Words Whole = {68,         0x0022, 0,          0,      0x0101,     0x00010008, 1,          0x00020008, 0x50,
                     0x00030008, 7,      0x00040008, 0xABCD, 0x00050008, 0x20,       0x00060008, 2};
const Words OnlyRemotePort = {28, 0x0022, 0, 0, 0x0101, 0x00030008, 9};
const Words ErrorReply = {36, 0x0002, 0, 0, 0xFFFFFFFE, 0, 0, 0, 0};
const Words ShortAttribute = {28, 0x0022, 0, 0, 0x0101, 0x00030006, 9};

} // namespace

TEST(LinkReportTest, EachAttributeReachesItsFieldAnAbsentOneKeepsItsDefaultAndALaterMessageOverrides)
{
    const auto fields = [](const K2LinkStatus& status) {
        return std::tuple(status.Port, status.RemoteId, status.RemotePort, status.LinkState, status.FsiEndpoint,
                          status.AdmaEndpoint);
    };
    EXPECT_EQ(fields(Read(Whole)), std::tuple(1u, 0x50u, 7u, 0xABCDu, 0x20u, 2u));
    EXPECT_EQ(fields(Read(OnlyRemotePort)), std::tuple(0xFFFFFFFFu, 0u, 9u, 0u, 0u, 0u));
    EXPECT_EQ(fields(Read(Whole + OnlyRemotePort)), std::tuple(1u, 0x50u, 9u, 0xABCDu, 0x20u, 2u));
}

TEST(LinkReportTest, ErrorsAndMalformedMessagesAreLoggedAndPassedOver)
{
    LogRecorder log{DebugFeature::CommsDebug};
    EXPECT_EQ(Read(ErrorReply + ShortAttribute + OnlyRemotePort).RemotePort, 9u);
    EXPECT_THAT(log.Lines(), testing::ElementsAre("Error reply returned: No such file or directory\n",
                                                  testing::StartsWith("Failed to parse reply to netlink message: ")));
}

TEST(LinkReportTest, ADatagramThatIsCutGivesNothing)
{
    for (std::size_t size = 1; size < 68; ++size)
        EXPECT_EQ(Read(Whole, size).Port, 0xFFFFFFFFu) << size;
    EXPECT_EQ(Read({6800, 0x0022, 0, 0, 0x0101, 0x00010008, 1}).Port, 0xFFFFFFFFu) << "a length that is too large";
    EXPECT_EQ(Read({0, 0x0022, 0, 0}).Port, 0xFFFFFFFFu) << "no length";
}

TEST(K2LinkDriverTest, WithoutTheDriverAScanWaitsAndReportsNothing)
{
    LogRecorder log;
    LinkEnvironment environment;
    environment.reportWait = std::chrono::milliseconds(50);
    K2LinkDriver driver(2, environment);
    K2LinkStatus status;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(driver.WaitForStatus(status));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(49));
    EXPECT_TRUE(driver.IsCurrent());
    EXPECT_FALSE(driver.GetRegistration().IsKnown());
    EXPECT_TRUE(log.Lines().empty());
}
