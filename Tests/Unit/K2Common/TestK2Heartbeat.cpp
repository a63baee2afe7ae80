#include "K2Common/K2Heartbeat.h"

#include <gtest/gtest.h>

using namespace K2Heartbeat;

TEST(LinkVariantTest, FieldsAreReadAndReplacedWithoutTouchingTheOthers)
{
    EXPECT_EQ(GetVariantNumber(0x01020023), 3u);
    EXPECT_EQ(GetVariantRate(0x01020023), SampleRates::RATE_44K1);
    EXPECT_EQ(GetVariantRack(0x01020023), 0x0102u);
    EXPECT_EQ(MakeVariant(3, SampleRates::RATE_48K, 0x0102), 0x01020003u);
    EXPECT_EQ(MakeVariant(0xFF, SampleRates::RATE_44K1, 0x1C001), 0xC001002Fu);
    EXPECT_EQ(WithVariantRate(0x0102003F, SampleRates::RATE_48K), 0x0102000Fu);
    EXPECT_EQ(WithVariantRack(0x01020023, INVALID_RACK_ID), 0xFFFF0023u);
}
