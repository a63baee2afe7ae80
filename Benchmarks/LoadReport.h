#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <time.h>

/// By CLOCK_MONOTONIC, as the simulated FPGA tells its times.
inline double NowMicroseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

/// Figures of one kind.
class Samples
{
public:
    void Add(double value) { mValues.push_back(value); }
    std::size_t Count() const { return mValues.size(); }
    /// @param part from 0 to 1; the median is at 0.5.
    double At(double part) const
    {
        if (mValues.empty()) return 0;
        std::vector<double> sorted = mValues;
        std::sort(sorted.begin(), sorted.end());
        return sorted[static_cast<std::size_t>(std::lround(part * static_cast<double>(sorted.size() - 1)))];
    }
    double Worst() const { return At(1); }

private:
    std::vector<double> mValues;
};

/// What is asked of a figure: at most so much, or at least.
struct Target
{
    std::string text;
    bool isMet;
};

/// A table of figures, each with its baseline from the same run. A row is printed as soon as it is known.
class Report
{
public:
    Report()
    {
        std::printf("%-52s %14s %14s %8s   %s\n", "figure", "seen", "baseline", "ratio", "target");
        std::fflush(stdout);
    }
    void Row(const std::string& figure, double seen, double baseline, const std::string& unit,
             const std::optional<Target>& target = std::nullopt) const
    {
        const std::string verdict = target ? target->text + (target->isMet ? ": met" : ": MISSED") : "-";
        std::printf("%-52s %14s %14s %8.2f   %s\n", figure.c_str(), Text(seen, unit).c_str(),
                    Text(baseline, unit).c_str(), baseline > 0 ? seen / baseline : 0, verdict.c_str());
        std::fflush(stdout);
    }

private:
    static std::string Text(double value, const std::string& unit)
    {
        char text[48];
        std::snprintf(text, sizeof text,
                      value < 10     ? "%.3f %s"
                      : value < 1000 ? "%.1f %s"
                                     : "%.0f %s",
                      value, unit.c_str());
        return text;
    }
};
