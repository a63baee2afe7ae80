#pragma once

/// Hands the terminal over to the module's shell, until the user ends the input or the module ends.
void HandOverToShell();
