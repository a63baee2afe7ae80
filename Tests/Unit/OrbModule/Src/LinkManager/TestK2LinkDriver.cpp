#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"

#include "Tests/Support/LogRecorder.h"

#include <chrono>
#include <gmock/gmock.h>

namespace {

using Words = std::vector<std::uint32_t>;

/// Little-endian, as the machines are that this runs on; in words, so that it lies where a datagram would.
std::vector<std::uint32_t> Join(std::initializer_list<Words> messages)
{
    Words all;
    for (const Words& message : messages)
        all.insert(all.end(), message.begin(), message.end());
    return all;
}

K2LinkStatus Read(const Words& words, std::size_t bytes = 0)
{
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

} // namespace

TEST(LinkReportTest, EveryAttributeReachesItsField)
{
    const K2LinkStatus status = Read(Whole);
    EXPECT_EQ(status.Port, 1u);
    EXPECT_EQ(status.RemoteId, 0x50u);
    EXPECT_EQ(status.RemotePort, 7u);
    EXPECT_EQ(status.LinkState, 0xABCDu);
    EXPECT_EQ(status.FsiEndpoint, 0x20u);
    EXPECT_EQ(status.AdmaEndpoint, 2u);
}

TEST(LinkReportTest, AbsentAttributesKeepTheirDefaultsAndLaterMessagesOverride)
{
    EXPECT_EQ(Read(OnlyRemotePort).Port, 0xFFFFFFFFu);
    const K2LinkStatus both = Read(Join({Whole, OnlyRemotePort}));
    EXPECT_EQ(both.RemoteId, 0x50u);
    EXPECT_EQ(both.RemotePort, 9u);
}

TEST(LinkReportTest, ErrorsAndMalformedMessagesAreLoggedAndPassedOver)
{
    LogRecorder log{DebugFeature::CommsDebug};
    EXPECT_EQ(Read(Join({ErrorReply, ShortAttribute, OnlyRemotePort})).RemotePort, 9u);
    ASSERT_EQ(log.Lines().size(), 2u);
    EXPECT_EQ(log.Lines()[0], "Error reply returned: No such file or directory\n");
    EXPECT_THAT(log.Lines()[1], testing::StartsWith("Failed to parse reply to netlink message: "));
}

TEST(LinkReportTest, ADatagramThatIsCutGivesNothing)
{
    for (std::size_t size = 1; size < 68; ++size)
        EXPECT_EQ(Read(Whole, size).Port, 0xFFFFFFFFu) << size;
    const Words lengthTooLarge = {6800, 0x0022, 0, 0, 0x0101, 0x00010008, 1};
    EXPECT_EQ(Read(lengthTooLarge).Port, 0xFFFFFFFFu);
    const Words noLength = {0, 0x0022, 0, 0};
    EXPECT_EQ(Read(noLength).Port, 0xFFFFFFFFu);
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
