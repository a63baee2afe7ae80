// The simulated link driver as a program:
//   LinkDriverSim PATH     takes commands on a Unix stream socket at PATH
// One command a line (see LinkDriver.h, and "quit"); the answer's lines end with a line that holds a single ".".

#include "Simulation/LinkDriver/LinkDriver.h"

#include <boost/asio.hpp>
#include <csignal>
#include <iostream>
#include <istream>
#include <memory>

namespace {

using boost::asio::local::stream_protocol;

constexpr std::size_t LongestLine = 64 * 1024;

/// One client of the control socket; it lives as long as its reads and writes.
class Client : public std::enable_shared_from_this<Client>
{
public:
    Client(stream_protocol::socket socket, sim::LinkDriver& driver, boost::asio::io_service& service)
        : mSocket(std::move(socket)), mDriver(driver), mService(service)
    {}

    void ReadLine()
    {
        boost::asio::async_read_until(mSocket, mInput, '\n',
                                      [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
                                          if (!error) self->OnLine();
                                      });
    }

private:
    void OnLine()
    {
        std::istream in(&mInput);
        std::string line;
        std::getline(in, line);
        const bool quit = line == "quit";
        mAnswer = (quit ? std::string() : mDriver.Execute(line)) + ".\n";
        boost::asio::async_write(
            mSocket, boost::asio::buffer(mAnswer),
            [self = shared_from_this(), quit](const boost::system::error_code& error, std::size_t) {
                if (quit) {
                    self->mService.stop();
                } else if (!error) {
                    self->ReadLine();
                }
            });
    }

    stream_protocol::socket mSocket;
    sim::LinkDriver& mDriver;
    boost::asio::io_service& mService;
    boost::asio::streambuf mInput{LongestLine};
    std::string mAnswer;
};

void Accept(stream_protocol::acceptor& acceptor, sim::LinkDriver& driver, boost::asio::io_service& service)
{
    acceptor.async_accept([&](const boost::system::error_code& error, stream_protocol::socket socket) {
        if (error == boost::asio::error::operation_aborted) return;
        if (!error) std::make_shared<Client>(std::move(socket), driver, service)->ReadLine();
        Accept(acceptor, driver, service);
    });
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "Usage: LinkDriverSim PATH\n";
        return 2;
    }
    try {
        boost::asio::io_service service;
        boost::asio::signal_set signals(service, SIGINT, SIGTERM);
        signals.async_wait([&](const boost::system::error_code&, int) { service.stop(); });
        sim::LinkDriver driver;
        std::remove(argv[1]);
        stream_protocol::acceptor acceptor(service, stream_protocol::endpoint(argv[1]));
        Accept(acceptor, driver, service);
        std::cout << "LinkDriverSim ready" << std::endl;
        service.run();
        std::remove(argv[1]);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "LinkDriverSim: " << error.what() << "\n";
        return 1;
    }
}
