#include "Simulation/Rehearsal/Rehearsal.h"

#include <exception>
#include <iostream>
#include <thread>

namespace rehearsal {

void Rehearsal::Add(std::vector<Step> steps)
{
    for (Step& step : steps)
        mSteps.push_back(std::move(step));
}

bool Rehearsal::Play()
{
    std::size_t number = 0;
    for (const Step& step : mSteps) {
        ++number;
        if (mWaitForEnter) {
            std::cout << "press Enter for: " << step.name << std::endl;
            std::string line;
            std::getline(std::cin, line);
        }
        std::cout << number << "/" << mSteps.size() << " " << step.name << std::endl;
        try {
            std::cout << "    " << step.play() << std::endl;
        } catch (const std::exception& error) {
            std::cerr << "rehearsal: step '" << step.name << "' was not seen: " << error.what() << std::endl;
            return false;
        }
        std::this_thread::sleep_for(mPace);
    }
    return true;
}

} // namespace rehearsal
