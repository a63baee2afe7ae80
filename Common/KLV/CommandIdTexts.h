#pragma once

#include <cstdint>

using CommandID = std::uint32_t;

/// Text of a command id of the network, also of one that is only skipped or forwarded; "Unknown" if it has none.
const char* CommandIdToText(CommandID id);
