#include "OrbModule/Inc/LinkManager/Heartbeat.h"

#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <gmock/gmock.h>

using boost::asio::ip::udp;
using testing::ElementsAre;

namespace {

const auto Loopback = boost::asio::ip::address_v4::loopback();
constexpr std::chrono::milliseconds Period(50);

} // namespace

TEST(HeartbeatTest, SendsFiveBytesAPeriodWithTheMasterOfThatMoment)
{
    boost::asio::io_service service;
    udp::socket peer(service, udp::endpoint(Loopback, 0));
    const timeval patience{10, 0};
    setsockopt(peer.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const auto built = std::chrono::steady_clock::now();
    Heartbeat heartbeat(udp::endpoint(Loopback, 0), peer.local_endpoint(), Period);
    const auto receive = [&] {
        std::vector<std::uint8_t> bytes(16);
        const ssize_t size = recv(peer.native_handle(), bytes.data(), bytes.size(), 0);
        bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return bytes;
    };
    EXPECT_THAT(receive(), ElementsAre(0x96, 0xFF, 0xFF, 0xFF, 0xFF));
    EXPECT_GE(std::chrono::steady_clock::now() - built, Period);
    heartbeat.SetMasterHid(0x01028000);
    EXPECT_THAT(receive(), ElementsAre(0x96, 0x00, 0x80, 0x02, 0x01));
}

TEST(HeartbeatTest, AFailedSendIsTheLast)
{
    LogRecorder log;
    // The socket has no leave to broadcast.
    Heartbeat heartbeat(udp::endpoint(Loopback, 0), udp::endpoint(boost::asio::ip::address_v4::broadcast(), 9), Period);
    EXPECT_TRUE(log.WaitFor("Heartbeat::Send FAILED\r\n"));
}
