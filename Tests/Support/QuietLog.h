#pragma once

#include "Audit/Audit.h"

#include <memory>

/// A log that writes nothing, for work whose lines would drown everything else.
class QuietLog : public Audit
{
public:
    /// Puts it in force, once.
    static void Install()
    {
        static const bool isInstalled = (Audit::SetInstance(std::make_unique<QuietLog>().release()), true);
        static_cast<void>(isInstalled);
    }

    using Audit::WriteStamped;
    using Audit::WriteStampedTagged;
    void WriteStamped(std::uint32_t, const char*, MessageArgs) override {}
    void WriteStampedTagged(std::uint32_t, std::uint32_t, const char*, MessageArgs) override {}
};
