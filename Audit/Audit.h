#pragma once

#include "Audit/DebugFeatures.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>

/// The argument list of a message, as the virtual operations take it.
struct MessageArgs
{
    std::va_list& list;
};

/// The one log of the process. This class prints on standard output only; KorvoAudit adds the file, and
/// the shell's auditor the tailing clients.
///
/// Any thread may log at any time. Messages are printf formats. Callers use AUDIT_LOG, AUDIT_STREAM and
/// AUDIT_ASSERT below.
class Audit
{
public:
    /// Flag of the stamped operations: the line begins with the time stamp.
    static constexpr std::uint32_t Stamp = 1;
    static constexpr std::uint32_t AssertTag = 0x40000002;
    static constexpr std::uint32_t KlvDataTag = 0x10000000;

    /// Keeps the overloads for std::string from being chosen for a literal.
    template <class String>
    using IfString = std::enable_if_t<std::is_same_v<String, std::string>, int>;

    Audit();
    virtual ~Audit() = default;

    /// The object in force; a plain Audit is made on first use. Never null.
    static Audit* Instance();
    /// Destroys the object in force and installs this one, which the log then owns; null installs a new plain
    /// Audit. The caller ensures that no other thread logs at the same time.
    static void SetInstance(Audit* audit);
    /// The test that every log call makes: one relaxed load of a byte, from any thread.
    static bool IsOn(DebugFeature feature)
    {
        return Instance()->mFeatures[static_cast<std::uint32_t>(feature)].load(std::memory_order_relaxed) != 0;
    }

    /// A feature above 206 is off, and setting it does nothing.
    virtual bool IsEnabled(std::uint32_t feature) const;
    virtual void SetEnabled(std::uint32_t feature, std::uint8_t value);

    virtual void Write(const char* format, MessageArgs args) { std::vprintf(format, args.list); }
    virtual void WriteTagged(std::uint32_t /*tag*/, const char* format, MessageArgs args)
    {
        Audit::Write(format, args);
    }
    virtual void WriteStamped(std::uint32_t flags, const char* format, MessageArgs args);
    virtual void WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args);
    /// Reaches the file and the tailing clients only. Unused now, like WriteTagged and WriteConsole.
    virtual void WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args);
    /// Reaches the console only.
    virtual void WriteConsole(const char* format, MessageArgs args) { std::vprintf(format, args.list); }

    void Write(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void WriteTagged(std::uint32_t tag, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void WriteStamped(std::uint32_t flags, const char* format, ...) __attribute__((format(printf, 3, 4)));
    void WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    void WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, ...)
        __attribute__((format(printf, 4, 5)));
    void WriteConsole(const char* format, ...) __attribute__((format(printf, 2, 3)));

    /// The same for callers that have the format in a string; none does now. No compiler can check it against its
    /// arguments, so it is never a text from outside.
    template <class String, IfString<String> = 0, class... Args>
    void Write(const String& format, Args... args)
    {
        Forward([this](const char* text, MessageArgs list) { Write(text, list); }, format.c_str(), args...);
    }
    template <class String, IfString<String> = 0, class... Args>
    void WriteTagged(std::uint32_t tag, const String& format, Args... args)
    {
        Forward([=](const char* text, MessageArgs list) { WriteTagged(tag, text, list); }, format.c_str(), args...);
    }
    template <class String, IfString<String> = 0, class... Args>
    void WriteStamped(std::uint32_t flags, const String& format, Args... args)
    {
        Forward([=](const char* text, MessageArgs list) { WriteStamped(flags, text, list); }, format.c_str(), args...);
    }
    template <class String, IfString<String> = 0, class... Args>
    void WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const String& format, Args... args)
    {
        Forward([=](const char* text, MessageArgs list) { WriteStampedTagged(flags, tag, text, list); }, format.c_str(),
                args...);
    }
    template <class String, IfString<String> = 0, class... Args>
    void WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const String& format, Args... args)
    {
        Forward([=](const char* text, MessageArgs list) { WriteFileOnly(flags, tag, text, list); }, format.c_str(),
                args...);
    }
    template <class String, IfString<String> = 0, class... Args>
    void WriteConsole(const String& format, Args... args)
    {
        Forward([this](const char* text, MessageArgs list) { WriteConsole(text, list); }, format.c_str(), args...);
    }

    /// Seconds that are added to the system clock (UTC) when a stamp is made.
    std::int32_t GetTimeOffset() const { return mTimeOffset.load(std::memory_order_relaxed); }
    void SetTimeOffset(std::int32_t seconds) { mTimeOffset.store(seconds, std::memory_order_relaxed); }

protected:
    /// "[dd/mm/yy hh:mm:ss]", without a blank after it.
    std::string TimeStamp() const;

private:
    static void Forward(const std::function<void(const char*, MessageArgs)>& operation, const char* format, ...);

    std::atomic<std::int32_t> mTimeOffset{0};
    std::array<std::atomic<std::uint8_t>, MaxDebugLevels> mFeatures{};
};

/// Installs a plain Audit when it is destroyed, so that objects destroyed after the auditor can still log. Declared
/// right after the auditor.
class AuditGuard
{
public:
    AuditGuard() = default;
    ~AuditGuard() { Audit::SetInstance(nullptr); }
    AuditGuard(const AuditGuard&) = delete;
    AuditGuard& operator=(const AuditGuard&) = delete;
};

/// Writes "Assert failed in file ..." and, if the feature Assert is on, the message after it, and returns:
/// the caller has a guard for that case.
void AuditAssertFailed(const char* file, int line, const char* condition, const std::string& message = {});

/// AUDIT_LOG(Information, "Starting %s\n", name): a stamped line under a feature.
#define AUDIT_LOG(feature, ...)                                                                                        \
    do {                                                                                                               \
        if (::Audit::IsOn(::DebugFeature::feature)) ::Audit::Instance()->WriteStamped(::Audit::Stamp, __VA_ARGS__);    \
    } while (false)

/// AUDIT_STREAM(Information, "Hid " << hid << "\r\n"): the same, composed with a stream.
#define AUDIT_STREAM(feature, expression)                                                                              \
    do {                                                                                                               \
        if (::Audit::IsOn(::DebugFeature::feature)) {                                                                  \
            std::ostringstream auditLine;                                                                              \
            auditLine << expression;                                                                                   \
            ::Audit::Instance()->WriteStamped(::Audit::Stamp, "%s", auditLine.str().c_str());                          \
        }                                                                                                              \
    } while (false)

/// An assertion that logs and returns. Its value is that of the condition, so that the caller's guard can be
/// `if (!AUDIT_ASSERT(port < 3)) return;`.
#define AUDIT_ASSERT(condition)                                                                                        \
    (static_cast<bool>(condition) || (::AuditAssertFailed(__FILE__, __LINE__, #condition), false))

/// The same with a message, a std::string that is composed only on failure.
#define AUDIT_ASSERT_MESSAGE(condition, message)                                                                       \
    (static_cast<bool>(condition) || (::AuditAssertFailed(__FILE__, __LINE__, #condition, message), false))
