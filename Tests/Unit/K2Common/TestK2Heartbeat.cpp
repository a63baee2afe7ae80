#include "K2Common/K2Heartbeat.h"

#include <gmock/gmock.h>

using namespace K2Heartbeat;
using testing::ElementsAre;

TEST(LinkStateTest, EachFieldHasItsPlaceAndTheReservedBytesMeanNothing)
{
    const LinkState start(MakeLinkHid(0x12340000), K2_ORB_TYPE, START_VARIANT);
    EXPECT_THAT(start.GetBytes(), ElementsAre(0x00, 0x80, 0x34, 0x12, 0x06, 0x00, 0x00, 0x00, 0x0F, 0x00, 0xFF, 0xFF));

    const std::uint8_t bytes[] = {0x00, 0x80, 0x02, 0xC0, 0x01, 0xAA, 0xBB, 0xCC, 0x23, 0x00, 0x02, 0x01};
    const LinkState packet(bytes);
    EXPECT_EQ(packet.GetHid(), Hid(0xC0028000));
    EXPECT_EQ(packet.GetType(), K2_ROUTER_TYPE);
    EXPECT_EQ(packet.GetVariant(), 0x01020023u);
}

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
