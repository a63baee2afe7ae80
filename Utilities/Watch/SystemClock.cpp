#include "Utilities/Watch/Clock.h"

namespace watch {

Clock::time_point Clock::now()
{
    return time_point(std::chrono::steady_clock::now().time_since_epoch());
}

Milliseconds NowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace watch
