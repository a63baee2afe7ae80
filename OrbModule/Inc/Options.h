#pragma once

#include "MiscSource/NetworkPorts.h"

#include <boost/asio/ip/tcp.hpp>

#include <optional>
#include <string>

/// What the command line says. "top", "cqs" and "sim" are accepted for old start scripts and have no effect.
struct Options
{
    /// argv[0] after its last '/'.
    std::string programName;
    std::string logPath;
    boost::asio::ip::tcp::endpoint shellEndpoint{boost::asio::ip::tcp::v4(), NetworkPorts::SHELL};
};

/// Parses the command line. Gives the exit code instead if the process shall end here: 1 after the help or the
/// version text on standard output, 2 after one line on standard error about a rejected option.
std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options);
