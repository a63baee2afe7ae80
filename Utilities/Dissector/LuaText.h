#pragma once

#include <cstdint>
#include <string>

/// A string constant of Lua. The text holds no line ends.
std::string LuaText(const std::string& text);
/// "[5] = "
std::string LuaKey(std::uint32_t number);
/// The text without the blanks that follow it in log lines.
std::string WithoutTrailingBlanks(const std::string& text);
