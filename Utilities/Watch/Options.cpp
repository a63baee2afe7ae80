#include "Utilities/Watch/Options.h"

#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>

#include <cstdint>
#include <iostream>
#include <stdexcept>

namespace po = boost::program_options;

namespace watch {

namespace {

constexpr unsigned HelpWidth = 120;

/// "127.0.0.1:8055", "[::1]:8055".
boost::asio::ip::tcp::endpoint EndpointOf(const std::string& option, const std::string& text)
{
    const std::size_t colon = text.rfind(':');
    std::uint16_t port{};
    boost::system::error_code error;
    std::string host = text.substr(0, colon);
    if (!host.empty() && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    const auto address = boost::asio::ip::make_address(host, error);
    if (error || colon == std::string::npos || !boost::conversion::try_lexical_convert(text.substr(colon + 1), port)) {
        throw po::error("--" + option + " takes ADDRESS:PORT, not '" + text + "'");
    }
    return {address, port};
}

} // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options)
{
    std::string shell;
    std::string listen;
    unsigned refresh{};
    po::options_description description("Shows an OrbModule in a browser, from what its shell says", HelpWidth);
    // clang-format off
    description.add_options()
        ("help", "this text")
        ("version", "the version")
        ("shell", po::value(&shell)->default_value("127.0.0.1:55555"), "the module's shell, ADDRESS:PORT")
        ("listen", po::value(&listen)->default_value("127.0.0.1:8055"), "where the page is served, ADDRESS:PORT")
        ("listen-fd", po::value<int>(), "a listening socket that was opened before, instead of --listen")
        ("host", po::value(&options.hosts), "a further name under which the page may be asked for; may be repeated")
        ("refresh", po::value(&refresh)->default_value(60),
            "seconds between two pictures while the log says nothing, 1 to 3600");
    // clang-format on
    try {
        po::variables_map values;
        po::store(po::parse_command_line(argc, argv, description), values);
        po::notify(values);
        if (values.count("help")) {
            std::cout << description;
            return 0;
        }
        if (values.count("version")) {
            std::cout << "OrbWatch " ORB_WATCH_VERSION << std::endl;
            return 0;
        }
        options.shell = EndpointOf("shell", shell);
        options.listen = EndpointOf("listen", listen);
        if (values.count("listen-fd")) options.listenDescriptor = values["listen-fd"].as<int>();
        if (refresh < 1 || refresh > 3600) throw po::error("--refresh takes 1 to 3600 seconds");
        options.refresh = std::chrono::seconds(refresh);
    } catch (const po::error& error) {
        std::cerr << "OrbWatch: " << error.what() << "; see --help" << std::endl;
        return 2;
    }
    return std::nullopt;
}

} // namespace watch
