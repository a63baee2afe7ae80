#pragma once

#include <sstream>
#include <string>

/// The texts of some values, a bar after each.
template <class... Values>
std::string Joined(const Values&... values)
{
    std::ostringstream text;
    ((text << values << '|'), ...);
    return text.str();
}
