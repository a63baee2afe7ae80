#pragma once

#include <exception>

/// Reports why the module does not start: a Fault line and one line on standard error, with what an engineer can do
/// about it. Whoever throws says that in the text; the error of a missing FPGA block has a fixed text and gets
/// it here.
/// @return the exit code
int ReportStartupFailure(const std::exception& error);
