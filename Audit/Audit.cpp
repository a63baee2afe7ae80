#include "Audit/Audit.h"

#include <cstring>
#include <ctime>
#include <mutex>

namespace {

std::atomic<Audit*> sInstance{nullptr};
std::mutex sInstanceLock;

/// Frees the current object at the end of the process.
struct InstanceOwner
{
    ~InstanceOwner() { delete sInstance.exchange(nullptr); }
} sOwner;

Audit* MakeInstance()
{
    const std::lock_guard<std::mutex> lock(sInstanceLock);
    if (!sInstance.load()) sInstance.store(new Audit);
    return sInstance.load();
}

constexpr DebugFeature OnAtStart[] = {DebugFeature::Assert,         DebugFeature::Invalid,     DebugFeature::Fault,
                                      DebugFeature::Information,    DebugFeature::MemoryDebug, DebugFeature::SyncDebug,
                                      DebugFeature::RouterIoManager};

} // namespace

Audit::Audit()
{
    for (const DebugFeature feature : OnAtStart)
        mFeatures[static_cast<std::uint32_t>(feature)].store(1);
}

Audit* Audit::Instance()
{
    Audit* const audit = sInstance.load(std::memory_order_acquire);
    return audit ? audit : MakeInstance();
}

void Audit::SetInstance(Audit* audit)
{
    delete sInstance.exchange(audit ? audit : new Audit);
}

bool Audit::IsEnabled(std::uint32_t feature) const
{
    return feature < MaxDebugLevels && mFeatures[feature].load(std::memory_order_relaxed) != 0;
}

void Audit::SetEnabled(std::uint32_t feature, std::uint8_t value)
{
    if (feature < MaxDebugLevels) mFeatures[feature].store(value, std::memory_order_relaxed);
}

std::string Audit::TimeStamp() const
{
    const std::time_t now = std::time(nullptr) + GetTimeOffset();
    std::tm utc{};
    gmtime_r(&now, &utc);
    const int year = utc.tm_year > 99 ? utc.tm_year - 100 : utc.tm_year;
    char text[96];
    std::snprintf(text, sizeof text, "[%-2.2d/%-2.2d/%-2.2d %-2.2d:%-2.2d:%-2.2d]", utc.tm_mday, utc.tm_mon + 1, year,
                  utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

void Audit::WriteStamped(std::uint32_t flags, const char* format, MessageArgs args)
{
    if (flags & Stamp) std::fputs(TimeStamp().c_str(), stdout);
    std::vprintf(format, args.list);
}

void Audit::WriteStampedTagged(std::uint32_t flags, std::uint32_t, const char* format, MessageArgs args)
{
    Audit::WriteStamped(flags, format, args);
}

void Audit::WriteFileOnly(std::uint32_t flags, std::uint32_t, const char* format, MessageArgs args)
{
    Audit::WriteStamped(flags, format, args);
}

void Audit::Write(const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    Write(format, MessageArgs{list});
    va_end(list);
}

void Audit::WriteTagged(std::uint32_t tag, const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    WriteTagged(tag, format, MessageArgs{list});
    va_end(list);
}

void Audit::WriteStamped(std::uint32_t flags, const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    WriteStamped(flags, format, MessageArgs{list});
    va_end(list);
}

void Audit::WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    WriteStampedTagged(flags, tag, format, MessageArgs{list});
    va_end(list);
}

void Audit::WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    WriteFileOnly(flags, tag, format, MessageArgs{list});
    va_end(list);
}

void Audit::WriteConsole(const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    WriteConsole(format, MessageArgs{list});
    va_end(list);
}

void Audit::Forward(const std::function<void(const char*, MessageArgs)>& operation, const char* format, ...)
{
    std::va_list list;
    va_start(list, format);
    operation(format, MessageArgs{list});
    va_end(list);
}

namespace {

/// A build through the compiler's cache names its files as seen from the build directory.
const char* FromRoot(const char* file)
{
    while (std::strncmp(file, "../", 3) == 0)
        file += 3;
    return file;
}

} // namespace

void AuditAssertFailed(const char* file, int line, const char* condition, const std::string& message)
{
    Audit* const audit = Audit::Instance();
    audit->WriteStampedTagged(Audit::Stamp, Audit::AssertTag, "Assert failed in file %s at line %d - %s\r\n",
                              FromRoot(file), line, condition);
    if (!message.empty()) AUDIT_LOG(Assert, "%s", message.c_str());
}
