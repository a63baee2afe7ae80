#pragma once

#include <cstdint>

using CommandID = std::uint32_t;

/// Text of a command id of the network, also of those that this module only skips or forwards; "Unknown" if the id
/// has none.
const char* CommandIdToText(CommandID id);
