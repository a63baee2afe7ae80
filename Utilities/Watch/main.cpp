// Shows a module in a browser. It reads the module's shell as any client may, and changes nothing there.

#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/Options.h"
#include "Utilities/Watch/Picture.h"
#include "Utilities/Watch/Poller.h"

#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <iostream>
#include <sstream>

#include <sys/socket.h>

namespace {

using boost::asio::ip::tcp;

tcp::acceptor Listen(boost::asio::io_context& context, const watch::Options& options)
{
    tcp::acceptor acceptor(context);
    if (options.listenDescriptor) {
        sockaddr_storage address{};
        socklen_t length = sizeof address;
        const bool isSocket =
            getsockname(*options.listenDescriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
        if (!isSocket || (address.ss_family != AF_INET && address.ss_family != AF_INET6)) {
            throw std::runtime_error("--listen-fd is no listening TCP socket");
        }
        acceptor.assign(address.ss_family == AF_INET ? tcp::v4() : tcp::v6(), *options.listenDescriptor);
        return acceptor;
    }
    acceptor.open(options.listen.protocol());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    acceptor.bind(options.listen);
    acceptor.listen();
    return acceptor;
}

std::string Text(const tcp::endpoint& endpoint)
{
    std::ostringstream text;
    text << endpoint;
    return text.str();
}

int Run(const watch::Options& options)
{
    boost::asio::io_context context(1);
    boost::asio::signal_set signals(context, SIGINT, SIGTERM);
    signals.async_wait([&context](const boost::system::error_code&, int) { context.stop(); });

    watch::Picture picture(Text(options.shell));
    watch::Poller::Settings settings;
    settings.refresh = options.refresh;
    watch::Poller poller(context, options.shell, picture, settings);
    tcp::acceptor acceptor = Listen(context, options);
    const std::string page = "http://" + Text(acceptor.local_endpoint()) + "/";
    watch::HttpServer server(context, std::move(acceptor), picture, poller, options.hosts);
    poller.SetChanged([&server] { server.OnChange(); });
    server.Start();
    poller.Start();
    std::cout << "OrbWatch shows the module at " << options.shell << " on " << page << std::endl;
    context.run();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    watch::Options options;
    if (const auto exitCode = watch::ParseOptions(argc, argv, options)) return *exitCode;
    try {
        return Run(options);
    } catch (const std::exception& error) {
        std::cerr << "OrbWatch cannot run: " << error.what() << std::endl;
        return 3;
    }
}
