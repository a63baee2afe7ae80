#include "FSI/Audio/ExternalClockSource.h"

#include "MiscSource/FatalAssert.h"

namespace audio {

ExternalClockSource::ExternalClockSource(Id id) : mId(id)
{
    FATAL_ASSERT(id > 0, "External reference 0 is reserved.");
}

} // namespace audio
