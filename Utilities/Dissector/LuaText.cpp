#include "Utilities/Dissector/LuaText.h"

#include <cstdio>

std::string LuaText(const std::string& text)
{
    std::string quoted = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            quoted += '\\';
            quoted += character;
        } else if (byte < 0x20 || byte == 0x7F) {
            char escape[5];
            std::snprintf(escape, sizeof escape, "\\%03u", static_cast<unsigned int>(byte));
            quoted += escape;
        } else {
            quoted += character;
        }
    }
    return quoted + '"';
}

std::string LuaKey(std::uint32_t number)
{
    return "[" + std::to_string(number) + "] = ";
}

std::string WithoutTrailingBlanks(const std::string& text)
{
    return text.substr(0, text.find_last_not_of(' ') + 1);
}
