#pragma once

#include <boost/asio/ip/address.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace watch {

/// Whether a request may be for this program: its Host names the address at which it came in, the machine itself when
/// it came from there, or a name from the command line. A foreign page whose name resolves to this machine carries that
/// name and gets nothing.
bool IsKnownHost(std::string_view host, const boost::asio::ip::address& local, const std::vector<std::string>& names);

/// The path of a request's target, without a query; empty if the target is not a path.
std::string_view PathOf(std::string_view target);

} // namespace watch
