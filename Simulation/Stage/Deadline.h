#pragma once

#include <chrono>
#include <stdexcept>

namespace stage {

using Milliseconds = std::chrono::milliseconds;

/// How long a scene waits for something that ought to come at once. Long, since a loaded machine is slow; a scene
/// that succeeds never waits for it.
constexpr Milliseconds Patience{10000};

/// Thrown when what a scene waits for does not come. The text says what was awaited and what came instead.
class NotSeen : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A point in time up to which several waits in a row may last together.
class Deadline
{
public:
    explicit Deadline(Milliseconds fromNow) : mEnd(std::chrono::steady_clock::now() + fromNow) {}

    /// What is left, never negative.
    Milliseconds Left() const
    {
        const auto left = std::chrono::ceil<Milliseconds>(mEnd - std::chrono::steady_clock::now());
        return left > Milliseconds::zero() ? left : Milliseconds::zero();
    }
    /// What is left, in the form that poll takes.
    int ForPoll() const { return static_cast<int>(Left().count()); }
    bool HasPassed() const { return std::chrono::steady_clock::now() >= mEnd; }

private:
    std::chrono::steady_clock::time_point mEnd;
};

} // namespace stage
