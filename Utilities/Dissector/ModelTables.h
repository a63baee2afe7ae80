#pragma once

#include <iosfwd>

/// Writes what the dissector must know beside the fields of the commands: ports, limits, keys, texts, and how the short
/// datagrams are laid out.
void WriteModelTables(std::ostream& out);
