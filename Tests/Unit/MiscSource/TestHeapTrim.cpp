#include "MiscSource/HeapTrim.h"

#include <gtest/gtest.h>

TEST(HeapTrim, RunsOnTheMainServiceOnceAPeriod)
{
    constexpr std::chrono::milliseconds Period(5);
    boost::asio::io_service service;
    const auto start = std::chrono::steady_clock::now();
    const HeapTrim trim(service, Period);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(service.run_one_for(std::chrono::seconds(10)), 1u);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 3 * Period);
}
