#include "OrbModule/Inc/LinkManager/Heartbeat.h"

#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <gtest/gtest.h>
#include <poll.h>

static const auto Loopback = boost::asio::ip::address_v4::loopback();
constexpr std::chrono::milliseconds Period(50);

TEST(HeartbeatTest, SendsFiveBytesAPeriodWithTheMasterOfThatMomentUntilASendFails)
{
    LogRecorder log;
    boost::asio::io_service service;
    boost::asio::ip::udp::socket peer(service, {Loopback, 0});
    const auto built = std::chrono::steady_clock::now();
    Heartbeat heartbeat({boost::asio::ip::address_v4(0x7F000002), 0}, peer.local_endpoint(), Period);
    Heartbeat::Endpoint sender;
    const auto receive = [&] {
        char bytes[16];
        pollfd wait{peer.native_handle(), POLLIN, 0};
        return std::string(bytes,
                           ::poll(&wait, 1, 10000) == 1 ? peer.receive_from(boost::asio::buffer(bytes), sender) : 0);
    };
    EXPECT_EQ(receive(), "\x96\xFF\xFF\xFF\xFF");
    EXPECT_GE(std::chrono::steady_clock::now() - built, Period);
    heartbeat.SetMasterHid(0x01028000);
    EXPECT_EQ(receive(), std::string("\x96\x00\x80\x02\x01", 5));
    EXPECT_EQ(sender.address().to_string(), "127.0.0.2");
    EXPECT_EQ(Joined(Heartbeat::UnitEndpoint(UNIT_MODULE)), "1.63.5.0:49157|");
    // The socket has no leave to broadcast.
    const Heartbeat failing({Loopback, 0}, {boost::asio::ip::address_v4::broadcast(), 9}, Period);
    EXPECT_TRUE(log.WaitFor("Heartbeat::Send FAILED\r\n"));
}
