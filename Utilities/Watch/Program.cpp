#include "Utilities/Watch/Program.h"

#include <sstream>
#include <stdexcept>

#include <sys/socket.h>

namespace watch {

namespace {

using boost::asio::ip::tcp;

tcp::acceptor Listen(boost::asio::io_context& context, const Options& options)
{
    if (!options.listenDescriptor) return {context, options.listen};
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    const bool isSocket = getsockname(*options.listenDescriptor, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    if (!isSocket || (address.ss_family != AF_INET && address.ss_family != AF_INET6)) {
        throw std::runtime_error("--listen-fd is no listening TCP socket");
    }
    return {context, address.ss_family == AF_INET ? tcp::v4() : tcp::v6(), *options.listenDescriptor};
}

std::string Text(const tcp::endpoint& endpoint)
{
    std::ostringstream text;
    text << endpoint;
    return text.str();
}

} // namespace

Program::Program(boost::asio::io_context& context, const Options& options)
    : mPicture(Text(options.shell)),
      mPoller(context, options.shell, mPicture, {options.refresh}),
      mServer(context, Listen(context, options), mPicture, mPoller, options.hosts)
{
    mPoller.SetChanged([this] { mServer.OnChange(); });
    mServer.Start();
    mPoller.Start();
}

std::string Program::Greeting() const
{
    return "OrbWatch shows the module at " + mPicture.ShellAddress() + " on http://" + Text(mServer.Endpoint()) + "/";
}

} // namespace watch
