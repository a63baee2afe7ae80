#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process over a fault between classes of this process, with the text on standard error.
/// What comes from the network, the shell, the driver or a file must never reach one.
[[noreturn]] inline void FatalFault(const char* file, int line, const char* text)
{
    std::fprintf(stderr, "Fatal: %s (%s:%d)\n", text, file, line);
    std::abort();
}

#define FATAL_ASSERT(condition, text)                                                                                  \
    do {                                                                                                               \
        if (!(condition)) ::FatalFault(__FILE__, __LINE__, text);                                                      \
    } while (false)
