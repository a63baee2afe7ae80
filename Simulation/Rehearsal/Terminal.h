#pragma once

namespace rehearsal {

/// Hands the terminal over to the module's shell, until the user ends the input or the module ends.
/// @return false if the module has closed the connection: it is ending, by "quit".
bool HandOverToShell();

} // namespace rehearsal
