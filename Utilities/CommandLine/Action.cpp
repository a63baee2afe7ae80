#include "Utilities/CommandLine/Action.h"

#include <boost/algorithm/string/trim.hpp>

#include <iostream>

namespace cmd::action {

Action::Action(const std::string& id, const std::string& help, const std::string& usage)
    : mId(id), mHelp(MakeHelp(id, help, usage))
{}

Action::Help Action::MakeHelp(const std::string& id, const std::string& help, const std::string& usage)
{
    const std::size_t end = help.find_first_of(".\n");
    const std::string brief = help.substr(0, end);
    const std::string rest = end == std::string::npos ? std::string() : boost::trim_copy(help.substr(end + 1));

    std::string full;
    if (!brief.empty()) full += brief + "\n\n";
    full += "Usage: " + id;
    if (!usage.empty()) full += ' ' + usage;
    if (!rest.empty()) full += "\n\n" + rest;
    return {usage, brief, full};
}

std::string Action::Run(const std::string& arguments, const boost::any& context) const
{
    try {
        return Invoke(parser::Tokenise(boost::trim_copy(arguments)), context);
    } catch (const boost::bad_any_cast& error) {
        std::cerr << error.what() << std::endl;
        return {};
    } catch (const std::exception& error) {
        return "error: '" + mId + "' failed: " + error.what();
    }
}

std::string Action::CountError(std::size_t expected, std::size_t given) const
{
    return "error: '" + mId + "' expects " + std::to_string(expected) + " argument(s), " + std::to_string(given) +
           " provided";
}

} // namespace cmd::action
