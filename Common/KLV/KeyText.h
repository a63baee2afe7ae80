#pragma once

#include <cstdint>
#include <string>
#include <utility>

/// "CMD:V0:I800" and its like, for any key.
std::string KeyToText(std::uint32_t key);

/// Where a panel event comes from: a location and a number.
using DeskLocation = std::pair<std::uint32_t, std::uint32_t>;
/// "MCS.1" and its like.
std::string LocationToText(const DeskLocation& location);
