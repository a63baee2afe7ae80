#include "Utilities/Watch/HttpRules.h"

#include <boost/algorithm/string/predicate.hpp>

#include <algorithm>

namespace watch {

namespace {

/// The host without its port; an IPv6 address without its brackets.
std::string_view NameOf(std::string_view host)
{
    if (!host.empty() && host.front() == '[') {
        const std::size_t end = host.find(']');
        return end == std::string_view::npos ? std::string_view() : host.substr(1, end - 1);
    }
    return host.substr(0, host.find(':'));
}

} // namespace

bool IsKnownHost(std::string_view host, const boost::asio::ip::address& local, const std::vector<std::string>& names)
{
    const std::string_view name = NameOf(host);
    if (name.empty()) return false;
    if (local.is_loopback() && boost::iequals(name, "localhost")) return true;
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(std::string(name), error);
    if (!error && address == local) return true;
    return std::any_of(names.begin(), names.end(),
                       [name](const std::string& known) { return boost::iequals(name, known); });
}

std::string_view PathOf(std::string_view target)
{
    const std::string_view path = target.substr(0, target.find('?'));
    return !path.empty() && path.front() == '/' ? path : std::string_view();
}

} // namespace watch
