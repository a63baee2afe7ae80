#pragma once

#include <chrono>

/// Repeats a step until it is so; false if that takes 20 s.
template <class Done, class Step>
bool Await(Done done, Step step)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        step();
    }
    return true;
}
