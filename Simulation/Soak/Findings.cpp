#include "Simulation/Soak/Findings.h"

#include <cstdio>

namespace soak {

void Findings::Violation(const std::string& text)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mViolations;
    }
    Print("WRONG ", text);
}

void Findings::ViolationOnce(const std::string& text)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (!mTold.insert(text).second) return;
    }
    Violation(text);
}

unsigned int Findings::GetViolations() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mViolations;
}

double Findings::GetSeconds() const
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - mStart).count();
}

void Findings::Print(const char* mark, const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    std::printf("%8.1f s %s%s\n", GetSeconds(), mark, text.c_str());
    std::fflush(stdout);
}

} // namespace soak
