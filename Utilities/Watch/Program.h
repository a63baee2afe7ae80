#pragma once

#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/Options.h"
#include "Utilities/Watch/Picture.h"
#include "Utilities/Watch/Poller.h"

#include <boost/asio/io_context.hpp>

#include <string>

namespace watch {

/// Reads the module, and serves what it has read; all that main adds is options and signals.
class Program
{
public:
    /// @throws std::runtime_error if it cannot listen.
    Program(boost::asio::io_context& context, const Options& options);

    /// Names the module's shell and the address of the page.
    std::string Greeting() const;

private:
    Picture mPicture;
    Poller mPoller;
    HttpServer mServer;
};

} // namespace watch
