#pragma once

#include <boost/asio/io_service.hpp>

namespace cmd {
class CommandLine;
}

/// Runs the main service on this thread until somebody stops it. An exception aborts only the handler that threw it: it
/// is logged, and the service continues.
void RunUntilStopped(boost::asio::io_service& service, cmd::CommandLine& shell);
