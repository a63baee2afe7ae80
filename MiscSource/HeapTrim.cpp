#include "MiscSource/HeapTrim.h"

#include <chrono>

#include <malloc.h>

void HeapTrim::Start()
{
    constexpr std::chrono::seconds Period(10);
    mTimer.expires_after(Period);
    mTimer.async_wait([this](const boost::system::error_code& error) {
        if (error) return;
        malloc_trim(0);
        Start();
    });
}
