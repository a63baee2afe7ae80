#pragma once

#include <iosfwd>

/// Writes the Lua table of all command classes, model.commands: by number the name of the class, and its fields in wire
/// order with name and kind, as the classes themselves list them.
/// @throws std::logic_error if something is defined here for a field that does not exist.
void WriteCommandTables(std::ostream& out);
