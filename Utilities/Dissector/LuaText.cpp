#include "Utilities/Dissector/LuaText.h"

#include <iomanip>
#include <sstream>

std::string LuaText(const std::string& text)
{
    std::ostringstream quoted;
    quoted << std::quoted(text);
    return quoted.str();
}

std::string LuaKey(std::uint32_t number)
{
    return "[" + std::to_string(number) + "] = ";
}

std::string WithoutTrailingBlanks(const std::string& text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}
