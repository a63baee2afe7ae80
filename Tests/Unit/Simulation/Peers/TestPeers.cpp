#include "Simulation/Peers/Peers.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace peers;
using boost::asio::ip::tcp;

namespace {

/// An address of loopback that only this test program uses, so that the network's own ports are free on it.
std::uint32_t OwnAddress()
{
    return 0x7F400001u + (static_cast<std::uint32_t>(::getpid()) & 0x3FFFF) * 16;
}

/// A peer on its own thread, with the control channel's function called as the channel would.
class PeerTest : public ::testing::Test
{
protected:
    ~PeerTest() override
    {
        mService.stop();
        if (mThread.joinable()) mThread.join();
    }

    void Start(std::unique_ptr<Node> node, const std::vector<std::string>& lines)
    {
        mNode = std::move(node);
        mThread = std::thread([this] { mService.run(); });
        for (const std::string& line : lines)
            EXPECT_EQ(Tell(line), "") << line;
    }
    std::string Tell(const std::string& line)
    {
        std::promise<std::string> answer;
        boost::asio::post(mService,
                          [&] { mNode->Handle(line, [&answer](const std::string& text) { answer.set_value(text); }); });
        return answer.get_future().get();
    }
    tcp::socket Connect(std::uint16_t port)
    {
        tcp::socket socket(mTestService);
        socket.connect({boost::asio::ip::address_v4(OwnAddress()), port});
        return socket;
    }
    static void Send(tcp::socket& socket, const std::string& bytes)
    {
        boost::asio::write(socket, boost::asio::buffer(*FromHex(bytes)));
    }
    /// As many bytes as are expected, written by hand.
    static void Expect(tcp::socket& socket, const std::string& expected)
    {
        Bytes answer(FromHex(expected)->size());
        boost::asio::read(socket, boost::asio::buffer(answer));
        EXPECT_EQ(ToHex(answer), expected);
    }
    static Cable OnLoopback()
    {
        Cable cable;
        cable.ownAddress = OwnAddress();
        cable.moduleAddress = OwnAddress() + 1;
        return cable;
    }

    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
    boost::asio::io_service mTestService;
    std::unique_ptr<Node> mNode;
    std::thread mThread;
};

} // namespace

TEST_F(PeerTest, HubReportsWhatIsBehindItAndDescribesItOnTheDataLink)
{
    Start(std::make_unique<Hub>(mService, Place(), OnLoopback(), 0x00308000),
          {"device 0x00300005 fixed 10.20.30.40", "of 0x00300005 card 1 QV1410", "appear"});
    tcp::socket local = Connect(55000);
    Send(local, "3d 03 00 28 00 00 00 00");
    Expect(local, "39 03 40 28 11 00 00 00 00 80 30 00 05 00 02 00 00 00 02 00 00 00 00 00 00");
    Expect(local, "3a 03 00 28 15 00 00 00 01 05 00 30 00 28 1e 14 0a 00 80 30 00 00 00 00 00 00 00 00 00");
    tcp::socket data = Connect(55100);
    Send(data, "2e 03 00 28 04 00 00 00 05 00 30 00");
    Expect(data, "21 03 00 28 1f 00 00 00 05 00 30 00 00 00 00 00 00 06 00 00 00 51 56 31 34 31 30 "
                 "00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(Tell("device-gone 0x00300005"), "");
    Expect(local, "3a 03 00 28 15 00 00 00 01 05 00 30 00 00 00 00 00 00 80 30 00 00 00 00 00 00 00 00 00");
}

TEST_F(PeerTest, AnswersAreWithheldLateOrSpoiledByOrder)
{
    Start(std::make_unique<Box>(mService, Place(), OnLoopback(), 0x00200001, BoxKind::Module),
          {"ports 8 4", "answer 800 never", "appear"});
    const std::string name = "06 00 00 00 4d 6f 64 75 6c 65 00 00 00 00 00 00 00 00";
    tcp::socket socket = Connect(55000);
    Send(socket, "20 03 00 28 00 00 00 00");
    EXPECT_EQ(Tell("wait 800 5000"), "1 local 800 20 03 00 28 00 00 00 00");
    EXPECT_EQ(Tell("answer 800 late 50"), "");
    Send(socket, "20 03 00 28 00 00 00 00");
    Expect(socket, "36 03 00 28 1e 00 00 00 01 00 20 00 08 00 00 00 04 00 00 00 " + name);
    EXPECT_EQ(Tell("answer 800 wrong"), "");
    Send(socket, "20 03 00 28 00 00 00 00");
    Expect(socket, "36 03 00 28 1e 00 00 00 01 00 20 01 08 00 00 00 04 00 00 00 " + name);
    EXPECT_EQ(Tell("answer 800 short"), "");
    Send(socket, "20 03 00 28 00 00 00 00");
    Expect(socket, "36 03 00 28 0f 00 00 00 01 00 20 00 08 00 00 00 04 00 00 00 06 00 00");
}
