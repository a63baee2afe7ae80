#include "Simulation/Peers/Peers.h"

#include <boost/asio.hpp>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <unistd.h>

using boost::asio::ip::tcp;

namespace {

TEST(Peers, AnswersAreWithheldLateOrSpoiledByOrder)
{
    // An address of loopback that only this test program uses, so that the network's own ports are free on it.
    peers::Cable cable;
    cable.ownAddress = 0x7F400001u + (static_cast<std::uint32_t>(::getpid()) & 0x3FFFF) * 16;
    cable.moduleAddress = cable.ownAddress + 1;
    boost::asio::io_service service;
    const boost::asio::io_service::work work(service);
    peers::Box box(service, peers::Place(), cable, 0x00200001, peers::BoxKind::Module);
    std::thread thread([&service] { service.run(); });
    const auto tell = [&](const std::string& line) {
        std::promise<std::string> answer;
        boost::asio::post(service,
                          [&] { box.Handle(line, [&answer](const std::string& text) { answer.set_value(text); }); });
        return answer.get_future().get();
    };
    for (const char* const line : {"ports 8 4", "answer 800 never", "appear"})
        EXPECT_EQ(tell(line), "") << line;

    boost::asio::io_service ownService;
    tcp::socket socket(ownService);
    socket.connect({boost::asio::ip::address_v4(cable.ownAddress), 55000});
    const auto ask = [&] {
        boost::asio::write(socket, boost::asio::buffer(*peers::FromHex("20 03 00 28 00 00 00 00")));
    };
    ask();
    EXPECT_EQ(tell("wait 800 5000"), "1 local 800 20 03 00 28 00 00 00 00");
    const std::string name = "06 00 00 00 4d 6f 64 75 6c 65 00 00 00 00 00 00 00 00";
    for (const auto& [order, expected] :
         {std::make_pair("late 50", "36 03 00 28 1e 00 00 00 01 00 20 00 08 00 00 00 04 00 00 00 " + name),
          std::make_pair("wrong", "36 03 00 28 1e 00 00 00 01 00 20 01 08 00 00 00 04 00 00 00 " + name),
          std::make_pair("short",
                         std::string("36 03 00 28 0f 00 00 00 01 00 20 00 08 00 00 00 04 00 00 00 06 00 00"))}) {
        EXPECT_EQ(tell(std::string("answer 800 ") + order), "");
        ask();
        peers::Bytes answer(peers::FromHex(expected)->size());
        boost::asio::read(socket, boost::asio::buffer(answer));
        EXPECT_EQ(peers::ToHex(answer), expected) << order;
    }
    service.stop();
    thread.join();
}

} // namespace
