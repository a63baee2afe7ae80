// Shows a module in a browser. It reads the module's shell as any client may, and changes nothing there.

#include "Utilities/Watch/Options.h"
#include "Utilities/Watch/Program.h"

#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <exception>
#include <iostream>

namespace {

int Run(const watch::Options& options)
{
    boost::asio::io_context context(1);
    boost::asio::signal_set signals(context, SIGINT, SIGTERM);
    signals.async_wait([&context](const boost::system::error_code&, int) { context.stop(); });
    const watch::Program program(context, options);
    std::cout << program.Greeting() << std::endl;
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
