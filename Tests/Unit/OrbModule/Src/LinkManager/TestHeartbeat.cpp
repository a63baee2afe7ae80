#include "OrbModule/Inc/LinkManager/Heartbeat.h"

#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <gmock/gmock.h>

using boost::asio::ip::udp;
using testing::ElementsAre;

namespace {

const auto Loopback = boost::asio::ip::address_v4::loopback();

} // namespace

TEST(HeartbeatTest, SendsFiveBytesASecondWithTheMasterAsItStands)
{
    LogRecorder log;
    boost::asio::io_service service;
    udp::socket peer(service, udp::endpoint(Loopback, 0));
    {
        const auto built = std::chrono::steady_clock::now();
        Heartbeat heartbeat(udp::endpoint(Loopback, 0), peer.local_endpoint());
        std::array<std::uint8_t, 16> bytes{};
        ASSERT_EQ(peer.receive(boost::asio::buffer(bytes)), 5u);
        EXPECT_GE(std::chrono::steady_clock::now() - built, std::chrono::seconds(1));
        EXPECT_THAT(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 5),
                    ElementsAre(0x96, 0xFF, 0xFF, 0xFF, 0xFF));

        heartbeat.SetMasterHid(0x01028000);
        ASSERT_EQ(peer.receive(boost::asio::buffer(bytes)), 5u);
        EXPECT_THAT(std::vector<std::uint8_t>(bytes.begin(), bytes.begin() + 5),
                    ElementsAre(0x96, 0x00, 0x80, 0x02, 0x01));
    }
    EXPECT_TRUE(log.Lines().empty());
}

TEST(HeartbeatTest, AFailedSendIsTheLast)
{
    LogRecorder log;
    // The socket has no leave to broadcast.
    Heartbeat heartbeat(udp::endpoint(Loopback, 0), udp::endpoint(boost::asio::ip::address_v4::broadcast(), 9));
    EXPECT_TRUE(log.WaitFor("Heartbeat::Send FAILED\r\n"));
}

TEST(HeartbeatTest, AnEndpointThatCannotBeBoundIsNamed)
{
    boost::asio::io_service service;
    const udp::socket taken(service, udp::endpoint(Loopback, 0));
    std::ostringstream name;
    name << taken.local_endpoint();
    try {
        Heartbeat heartbeat(taken.local_endpoint(), taken.local_endpoint());
        FAIL() << "two sockets on " << name.str();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::AllOf(testing::HasSubstr(name.str()), testing::HasSubstr("eth0")));
    }
    EXPECT_EQ(Heartbeat::UnitEndpoint(UNIT_MODULE).address().to_string(), "1.63.5.0");
    EXPECT_EQ(Heartbeat::UnitEndpoint(UNIT_MASTER_CONTROL).address().to_string(), "1.63.1.0");
    EXPECT_EQ(Heartbeat::UnitEndpoint(UNIT_MODULE).port(), 49157);
}
