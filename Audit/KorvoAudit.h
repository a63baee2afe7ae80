#pragma once

#include "Audit/Audit.h"

#include <cstddef>
#include <fstream>
#include <list>
#include <mutex>
#include <string>
#include <string_view>

/// The log with its file: rotation by size and at every start into five gzipped generations, and a hook for
/// each line that was written.
///
/// Two locks guard it. The file lock, one for the process, is held while a line is formatted and written and
/// through a rotation. mPendingLock is held while a line is formatted into the held-back list, and while that list
/// is flushed; it is always the inner one. A thread that logs while another rotates does not wait for gzip.
class KorvoAudit : public Audit
{
public:
    /// An empty path means "/var/log/K2.log".
    explicit KorvoAudit(const std::string& path);
    ~KorvoAudit() override;

    using Audit::Write;
    using Audit::WriteFileOnly;
    using Audit::WriteStamped;
    using Audit::WriteStampedTagged;
    using Audit::WriteTagged;

    void Write(const char* format, MessageArgs args) override;
    void WriteTagged(std::uint32_t tag, const char* format, MessageArgs args) override;
    void WriteStamped(std::uint32_t flags, const char* format, MessageArgs args) override;
    void WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args) override;
    void WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args) override;

    /// Called with each line, on the thread that logs and with a log lock held: an override must not log.
    virtual void OnLogLine(const std::string& line);

private:
    static constexpr std::size_t LineSize = 4096;

    /// What of the outside of a line an operation asks for.
    struct Shape
    {
        bool stamp;
        const std::uint32_t* tag;
        bool console;
    };

    void Log(const Shape& shape, const char* format, MessageArgs args);
    bool HoldBack(const Shape& shape, const char* format, MessageArgs args);
    /// Builds the line in the buffer and prints it on the console. True if the message did not fit.
    bool Format(const Shape& shape, char (&line)[LineSize], const char* format, MessageArgs args);
    void WriteToFile(std::string_view text, bool flush);
    void Emit(const std::string& line);
    void Rotate();
    void FlushPending();
    void HaltFile(const std::string& reason);

    const std::string mLogPath;
    char mLine[LineSize] = {};
    char mPendingLine[LineSize] = {};
    std::ofstream mFile;
    std::atomic<bool> mRotating{false};
    std::mutex mPendingLock;
    std::list<std::string> mPending;
    std::size_t mPendingLost = 0;
};
