#pragma once

#include <boost/asio/ip/tcp.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace watch {

struct Options
{
    boost::asio::ip::tcp::endpoint shell;
    boost::asio::ip::tcp::endpoint listen;
    /// A listening socket that was handed in, instead of `listen`.
    std::optional<int> listenDescriptor;
    std::vector<std::string> hosts;
    std::chrono::seconds refresh{60};
};

/// @return an exit code if the program is to end at once: 0 after help and version, 2 for what it cannot understand.
std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options);

} // namespace watch
