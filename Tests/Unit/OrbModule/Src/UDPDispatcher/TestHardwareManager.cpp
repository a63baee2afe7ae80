#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"

#include "Tests/Support/LogRecorder.h"

#include <ctime>
#include <gmock/gmock.h>

TEST(HardwareManagerTest, OffsetFollowsTheNetworkOnlyWhenItIsFarOff)
{
    const struct
    {
        std::uint32_t system;
        std::int32_t offset;
        std::uint32_t network;
        std::optional<std::int32_t> expected;
    } cases[] = {
        {1000, 0, 1005, std::nullopt},
        {1000, 0, 1006, 6},
        {1000, 0, 995, std::nullopt},
        {1000, 0, 994, -6},
        {1000, 6, 1006, std::nullopt},           // the comparison includes the offset
        {1000, 6, 900, -100},                    // and the new one replaces it
        {1700000000, 0, 4294967295, 2147483647}, // further than an offset reaches
        {4294967295, 0, 0, -2147483647 - 1},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(HardwareManager::WorkOutOffset(test.system, test.offset, test.network), test.expected)
            << test.system << " + " << test.offset << " against " << test.network;
    }
}

TEST(HardwareManagerTest, AMessageMovesTheLogsClock)
{
    LogRecorder log;
    HardwareManager manager;
    const auto now = static_cast<std::uint32_t>(std::time(nullptr));
    const std::uint32_t network = now - 86400;
    const char bytes[] = {20, static_cast<char>(network), static_cast<char>(network >> 8),
                          static_cast<char>(network >> 16), static_cast<char>(network >> 24)};
    const auto message = std::make_shared<const NetworkTimeMessage>(bytes);
    manager.OnNetworkTimeMessage(message);
    EXPECT_NEAR(Audit::Instance()->GetTimeOffset(), -86400, 2);

    EXPECT_EQ(log.Lines().size(), 3u);
    manager.OnNetworkTimeMessage(message);
    EXPECT_EQ(log.Lines().size(), 3u);
}
