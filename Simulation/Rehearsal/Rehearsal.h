#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace rehearsal {

/// One thing that the rehearsal shows. It plays it, waits until it has seen its effect, and gives in words what it
/// has seen; what does not come is an exception.
struct Step
{
    std::string name;
    std::function<std::string()> play;
};

/// Plays steps one after the other and prints each as it happens.
class Rehearsal
{
public:
    /// @param waitForEnter ask for a line on standard input before each step, so that there is time to look around.
    /// @param pace time that passes after each step, so that an eye can follow.
    explicit Rehearsal(bool waitForEnter, std::chrono::milliseconds pace = {})
        : mWaitForEnter(waitForEnter), mPace(pace)
    {}

    void Add(Step step) { mSteps.push_back(std::move(step)); }
    void Add(std::vector<Step> steps);
    /// True if every step was seen. The first one that was not ends it, with an error that names the step.
    bool Play();

private:
    bool mWaitForEnter;
    std::chrono::milliseconds mPace;
    std::vector<Step> mSteps;
};

} // namespace rehearsal
