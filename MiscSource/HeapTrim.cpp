#include "MiscSource/HeapTrim.h"

#include <malloc.h>

void HeapTrim::Start()
{
    mTimer.expires_after(mPeriod);
    mTimer.async_wait([this](const boost::system::error_code& error) {
        if (error) return;
        malloc_trim(0);
        Start();
    });
}
