#include "Simulation/Peers/Peers.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
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
using boost::asio::ip::udp;

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
    static Place InUnit()
    {
        Place place;
        place.own = OwnAddress();
        place.module = OwnAddress() + 1;
        return place;
    }

    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
    boost::asio::io_service mTestService;
    std::unique_ptr<Node> mNode;
    std::thread mThread;
};

} // namespace

TEST_F(PeerTest, ModularBoxTellsItsRatesFirstAndMarksTheEnd)
{
    Start(std::make_unique<Box>(mService, Place(), OnLoopback(), 0x00200001, BoxKind::Modular),
          {"card 2 Mic in=0-1 out=300", "rate 1 0,1", "appear"});
    tcp::socket socket = Connect(55000);
    Send(socket, "20 03 00 28 00 00 00 00");
    Expect(socket, "6a 03 00 28 14 00 00 00 01 00 20 00 01 00 00 00 02 00 00 00 00 00 00 00 01 00 00 00");
    Expect(socket, "2b 03 00 28 1e 00 00 00 01 00 20 00 02 03 00 00 00 4d 69 63 02 00 00 00 00 00 01 00 "
                   "01 00 00 00 2c 01 00 00 00 00");
    Expect(socket, "2b 03 00 28 15 00 00 00 01 00 20 00 ff 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

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

TEST_F(PeerTest, UpdateServiceAnswersEachDeviceByItsOwnResult)
{
    Start(std::make_unique<UpdateService>(mService, InUnit()),
          {"result 3", "result-of 1.63.5.0 0", "result-of 9.9.9.9 never", "appear"});
    tcp::socket socket = Connect(49190);
    const std::string tail = " 00 00 00 00 01 01 0a 03 ff ff ff ff ";
    Send(socket, "70 17 40 28 4e 00 00 00 00 00 00 00 03 00 00 00 07 00 00 00 39 2e 39 2e 39 2e 39" + tail +
                     "08 00 00 00 31 2e 36 33 2e 35 2e 30" + tail + "07 00 00 00 31 2e 32 2e 33 2e 34" + tail);
    Expect(socket, "71 17 00 28 0d 00 00 00 08 00 00 00 31 2e 36 33 2e 35 2e 30 00");
    Expect(socket, "71 17 00 28 0c 00 00 00 07 00 00 00 31 2e 32 2e 33 2e 34 03");
}

TEST_F(PeerTest, OrbRouterSendsThePatchThatItIsTold)
{
    Start(std::make_unique<OrbRouter>(mService, InUnit(), 0x00128000, 0x00120001), {"appear"});
    tcp::socket socket = Connect(55000);
    EXPECT_EQ(Tell("wait-stream local 5000"), "");
    EXPECT_EQ(Tell("patch src=0x00200001:1:5 link=0 slots=7,9 dest=0x00120001:2:3"), "");
    Expect(socket, "76 03 00 28 27 00 00 00 01 00 20 00 05 10 00 00 00 02 00 00 00 07 00 00 00 09 00 00 00 "
                   "01 00 12 00 03 20 00 00 01 01 00 20 00 05 10 00 00 00");
    EXPECT_EQ(Tell("command 808 u32:0x00200001 u16:3 u32:0xfffffffb"), "");
    Expect(socket, "28 03 00 28 0a 00 00 00 01 00 20 00 03 00 fb ff ff ff");
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

TEST_F(PeerTest, VanishResetsStreamsAndAppearTakesThemAgain)
{
    Start(std::make_unique<Box>(mService, Place(), OnLoopback(), 0x00200001, BoxKind::Fixed), {"appear"});
    tcp::socket socket = Connect(55000);
    EXPECT_EQ(Tell("wait-stream local 5000"), "");
    EXPECT_EQ(Tell("reboot 20"), "");
    std::uint8_t byte = 0;
    boost::system::error_code error;
    boost::asio::read(socket, boost::asio::buffer(&byte, 1), error);
    EXPECT_EQ(error, boost::asio::error::connection_reset);
    while (Tell("state") != "present")
        std::this_thread::yield();
    tcp::socket again = Connect(55000);
    EXPECT_EQ(Tell("wait-stream local 5000"), "");
}

TEST_F(PeerTest, MasterRouterBeatsWithItsMasterAndOpensBothStreams)
{
    // The module's end of the cable: heartbeats, the local and the master port.
    const auto module = boost::asio::ip::address_v4(OwnAddress() + 1);
    udp::socket heartbeats(mTestService, udp::endpoint(module, 60002));
    tcp::acceptor local(mTestService, tcp::endpoint(module, 55000));
    tcp::acceptor master(mTestService, tcp::endpoint(module, 55100));
    Cable cable = OnLoopback();
    cable.moduleRack = 1;
    cable.rack = 0x0102;
    Start(std::make_unique<MasterRouter>(mService, Place(), cable, 0x01028000), {"master 0x0102 3 2", "appear"});
    Bytes beat(64);
    udp::endpoint router;
    beat.resize(heartbeats.receive_from(boost::asio::buffer(beat), router));
    EXPECT_EQ(ToHex(beat), "00 80 02 01 01 00 00 00 23 00 02 01");
    // It opens them once it has heard the module for a while.
    local.non_blocking(true);
    boost::system::error_code notYet;
    tcp::socket localStream = local.accept(notYet);
    EXPECT_TRUE(notYet);
    for (; notYet; localStream = local.accept(notYet)) {
        heartbeats.send_to(boost::asio::buffer(beat), router);
        heartbeats.receive(boost::asio::buffer(beat));
    }
    tcp::socket masterStream = master.accept();
    EXPECT_EQ(Tell("wait-stream data 5000"), "");
    EXPECT_EQ(Tell("raw 4e 03 00 28 00 00 00 00 on=data"), "");
    Expect(masterStream, "4e 03 00 28 00 00 00 00");
}
