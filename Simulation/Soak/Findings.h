#pragma once

#include <chrono>
#include <mutex>
#include <set>
#include <string>

namespace soak {

/// The output of a soak: each step and each violation, with the time since the start. Any thread.
class Findings
{
public:
    void Tell(const std::string& text) { Print("      ", text); }
    /// Something that must never happen has happened.
    void Violation(const std::string& text);
    /// Each finding is reported once.
    void ViolationOnce(const std::string& text);
    unsigned int GetViolations() const;
    double GetSeconds() const;

private:
    void Print(const char* mark, const std::string& text);

    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    mutable std::mutex mMutex;
    unsigned int mViolations = 0;
    std::set<std::string> mTold;
};

} // namespace soak
