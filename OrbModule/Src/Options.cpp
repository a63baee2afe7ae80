#include "OrbModule/Inc/Options.h"

#include "OrbModule/Inc/Version.h"

#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>

#include <cstddef>
#include <cstdint>
#include <iostream>
#include <limits>
#include <vector>

namespace po = boost::program_options;

namespace boost::asio::ip {

/// "[ip][:port]" of the telnet option. Found by argument-dependent look-up, so it must be in this namespace.
void validate(boost::any& value, const std::vector<std::string>& texts, tcp::endpoint*, int)
{
    po::validators::check_first_occurrence(value);
    const std::string& text = po::validators::get_single_string(texts);

    // By hand, since a std::regex over a text of any length may run out of stack.
    const std::size_t colon = text.find(':');
    const std::string host = text.substr(0, colon);
    const std::string number = colon == std::string::npos ? "2000" : text.substr(colon + 1);
    const bool isDecimal = number.find_first_not_of("0123456789") == std::string::npos;
    std::uint32_t port{};
    if (isDecimal && boost::conversion::try_lexical_convert(number, port) && port > 0 &&
        port <= std::numeric_limits<std::uint16_t>::max()) {
        boost::system::error_code error;
        const auto address = make_address(host.empty() ? "0.0.0.0" : host, error);
        if (!error) {
            value = tcp::endpoint(address, static_cast<std::uint16_t>(port));
            return;
        }
    }
    throw po::validation_error(po::validation_error::invalid_option_value, "telnet", text);
}

} // namespace boost::asio::ip

namespace {

/// Wide enough that no help text is broken over two lines.
constexpr unsigned HelpWidth = 120;

std::string FileName(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options)
{
    options.programName = FileName(argc > 0 ? argv[0] : "");

    po::options_description description("Available options", HelpWidth);
    // clang-format off
    description.add_options()
        ("help,?", "display help message")
        ("version", "version info")
        ("top", po::value<unsigned int>()->default_value(0), "set the hid for the module")
        ("telnet,t", po::value(&options.shellEndpoint)->default_value(options.shellEndpoint),
            "telnet address: [ip][:port]. Default: 0.0.0.0:2000")
        ("log,l", po::value(&options.logPath), "name, including path, of the log file to use")
        ("cqs", po::value<bool>()->default_value(false), "attempt connect to quillsync")
        ("sim", po::value<std::string>(), "name, including path, of the simulated box file to use");
    // clang-format on

    po::variables_map values;
    try {
        po::store(po::parse_command_line(argc, argv, description), values);
        po::notify(values);
    } catch (const po::error& error) {
        std::cerr << options.programName << ": " << error.what() << "; see --help" << std::endl;
        return 2;
    }
    if (values.count("help")) {
        std::cout << description << std::endl;
        return 1;
    }
    if (values.count("version")) {
        std::cout << "Sorn Module " << ORB_MODULE_VERSION << std::endl;
        return 1;
    }
    return std::nullopt;
}
