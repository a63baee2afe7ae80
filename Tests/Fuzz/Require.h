#pragma once

#include <cstdlib>

/// What a fuzz target holds true of any input.
inline void Require(bool condition)
{
    if (!condition) std::abort();
}
