#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"

#include "Tests/Support/LogRecorder.h"

#include <ctime>
#include <gmock/gmock.h>

TEST(HardwareManagerTest, OffsetFollowsTheNetworkOnlyWhenItIsFarOff)
{
    const std::tuple<std::uint32_t, std::int32_t, std::uint32_t, std::optional<std::int32_t>> cases[] = {
        {1000, 0, 1005, std::nullopt},
        {1000, 0, 1006, 6},
        {1000, 0, 995, std::nullopt},
        {1000, 0, 994, -6},
        {1000, 6, 1006, std::nullopt},           // the comparison includes the offset
        {1000, 6, 900, -100},                    // and the new one replaces it
        {1700000000, 0, 4294967295, 2147483647}, // further than an offset reaches
        {4294967295, 0, 0, -2147483647 - 1},
    };
    for (const auto& [system, offset, network, expected] : cases)
        EXPECT_EQ(HardwareManager::ComputeOffset(system, offset, network), expected)
            << system << " + " << offset << " against " << network;
}

TEST(HardwareManagerTest, AMessageMovesTheLogsClock)
{
    LogRecorder log;
    HardwareManager::TimePoint now;
    HardwareManager manager([&] { return now; });
    constexpr std::int32_t OldOffset = -86400;
    Audit::Instance()->SetTimeOffset(OldOffset);
    // 3 February 2033, 04:05:06 UTC.
    const auto message = std::make_shared<const NetworkTimeMessage>("\x14\x72\x7f\xac\x76");
    constexpr std::int64_t Network = 0x76AC7F72;
    const std::time_t before = std::time(nullptr);
    manager.OnNetworkTimeMessage(message);
    const std::int32_t offset = Audit::Instance()->GetTimeOffset();
    const std::time_t then = static_cast<std::time_t>(Network - offset);
    EXPECT_THAT(then - before, testing::AllOf(testing::Ge(0), testing::Le(20)));

    const std::string start = "HardwareManager NetworkTimeMessage - ";
    const auto text = [](std::time_t time) { return std::string(std::ctime(&time)); };
    const auto old = [&](int difference) {
        return start + "Old time was " + text(then + OldOffset + difference) + "\r";
    };
    // time() may lag behind gettimeofday() by a tick of the kernel.
    EXPECT_THAT(log.Lines(), testing::ElementsAre(testing::AnyOf(old(-1), old(0), old(1)),
                                                  start + "New time  is " + text(Network) + "\r",
                                                  start + "Offset " + std::to_string(offset) + " Added to Audit\r\n"));
    manager.OnNetworkTimeMessage(message);
    EXPECT_EQ(log.Lines().size(), 3u);

    // Of a flood three changes a second are logged, the number of the others with the next one.
    const auto zero = std::make_shared<const NetworkTimeMessage>("\x14\0\0\0");
    bool isZero = false;
    const auto countLines = [&](int ms, int changes) {
        now = HardwareManager::TimePoint(std::chrono::milliseconds(ms));
        const std::size_t lines = log.Lines().size();
        for (int i = 0; i < changes; ++i)
            manager.OnNetworkTimeMessage((isZero = !isZero) ? zero : message);
        return log.Lines().size() - lines;
    };
    EXPECT_EQ(countLines(0, 5), 6u);
    EXPECT_NEAR(Audit::Instance()->GetTimeOffset(), static_cast<double>(-before), 20)
        << "also by a change that is not logged";
    EXPECT_EQ(countLines(999, 1), 0u);
    EXPECT_EQ(countLines(1000, 4), 10u);
    EXPECT_TRUE(log.Has(start + "4 changes not logged\r\n"));
    EXPECT_EQ(countLines(2000, 3), 10u);
    EXPECT_EQ(countLines(3000, 1), 3u);
}
