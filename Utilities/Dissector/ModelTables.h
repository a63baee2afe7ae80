#pragma once

#include <iosfwd>

/// Writes what the dissector must know besides the fields of the commands: ports, limits, keys, texts, and how the
/// short datagrams are laid out.
void WriteModelTables(std::ostream& out);
