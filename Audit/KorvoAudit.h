#pragma once

#include "Audit/Audit.h"

#include <condition_variable>
#include <cstddef>
#include <fstream>
#include <list>
#include <mutex>
#include <string>
#include <thread>

/// The log with its file: rotation by size and at every start into five gzipped generations, and a hook for
/// each line that was written. What is no regular file, such as /dev/null, is only written to.
///
/// A rotation runs on its own thread, and no thread waits for gzip: the thread whose line starts the rotation waits a
/// moment, which is usually enough, and then holds its line back like all others.
///
/// Two locks guard it. The file lock, one for the process, is held while a line is formatted and written; while
/// mRotating is set the file belongs to the rotation instead. mPendingLock is held while a line is formatted into the
/// held-back list, and while the end of that list is flushed; it is always the inner one.
class KorvoAudit : public Audit
{
public:
    /// An empty path means "/var/log/K2.log".
    explicit KorvoAudit(const std::string& path);
    ~KorvoAudit() override { FinishRotation(); }

    using Audit::Write;
    using Audit::WriteFileOnly;
    using Audit::WriteStamped;
    using Audit::WriteStampedTagged;
    using Audit::WriteTagged;

    void Write(const char* format, MessageArgs args) override { Log({false, nullptr, true}, format, args); }
    void WriteTagged(std::uint32_t tag, const char* format, MessageArgs args) override;
    void WriteStamped(std::uint32_t flags, const char* format, MessageArgs args) override;
    void WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args) override;
    void WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args) override;

    /// Called with each line, never on two threads at once. An override must not log: a log lock is held, or a rotation
    /// waits.
    virtual void OnLogLine(const std::string& /*line*/) {}

protected:
    /// Waits for the end of a rotation. For the destructor of classes that override OnLogLine.
    void FinishRotation();

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
    void WriteToFile(const std::string& text);
    void Emit(const std::string& line);
    bool IsFull();
    void RotateBeside();
    void Rotate();
    void ReportSlowGzip();
    void FlushPending();
    void EmitAll(const std::list<std::string>& lines);
    void EndRotation();
    void HaltFile(const std::string& reason);

    const std::string mLogPath;
    const bool mCanRotate;
    char mLine[LineSize] = {};
    char mPendingLine[LineSize] = {};
    std::ofstream mFile;
    std::atomic<bool> mRotating{false};
    std::thread mRotation;
    std::condition_variable mRotated;
    std::mutex mPendingLock;
    std::list<std::string> mPending;
    std::size_t mPendingLost = 0;
};
