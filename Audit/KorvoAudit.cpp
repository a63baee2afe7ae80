#include "Audit/KorvoAudit.h"

#include "Audit/BoundedShell.h"

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cstdio>
#include <system_error>

namespace fs = boost::filesystem;

namespace {

constexpr char DefaultPath[] = "/var/log/K2.log";
constexpr char OverflowText[] = "*** KorvoAudit buffer overflow, message truncated ***";
constexpr std::streamoff SizeLimit = 0x100000;
constexpr int Generations = 5;
/// A rotation waits for gzip, and a gzip that hangs must not eat the memory.
constexpr std::size_t MaxPending = 10000;
/// What a thread that logs can spare, a heartbeat's among them.
constexpr std::chrono::milliseconds RotationMoment{50};

std::mutex sFileLock;

std::string Generation(const std::string& path, int number)
{
    return path + "." + std::to_string(number) + ".gz";
}

/// A device or a pipe must not be renamed, and renaming a link would not move its file.
bool CanRotate(const std::string& path)
{
    boost::system::error_code error;
    const fs::file_type type = fs::symlink_status(path, error).type();
    return type == fs::regular_file || type == fs::file_not_found;
}

/// Quoted as one word for the shell.
std::string Quoted(const std::string& path)
{
    std::string word = "'";
    for (const char character : path)
        word += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return word + "'";
}

} // namespace

KorvoAudit::KorvoAudit(const std::string& path)
    : mLogPath(path.empty() ? DefaultPath : path), mCanRotate(CanRotate(mLogPath))
{
    boost::system::error_code error;
    if (mCanRotate && fs::exists(mLogPath, error)) {
        const std::lock_guard<std::mutex> lock(sFileLock);
        mRotating = true;
        Rotate();
    } else {
        mFile.open(mLogPath, std::ios::app);
    }
    if (!mFile.is_open()) {
        std::printf("Failed to open log file '%s', output to console only\n", mLogPath.c_str());
        std::fflush(stdout);
    }
}

void KorvoAudit::FinishRotation()
{
    if (mRotation.joinable()) mRotation.join();
}

void KorvoAudit::WriteTagged(std::uint32_t tag, const char* format, MessageArgs args)
{
    Log({false, &tag, true}, format, args);
}

void KorvoAudit::WriteStamped(std::uint32_t flags, const char* format, MessageArgs args)
{
    Log({(flags & Stamp) != 0, nullptr, true}, format, args);
}

void KorvoAudit::WriteStampedTagged(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args)
{
    Log({(flags & Stamp) != 0, &tag, true}, format, args);
}

void KorvoAudit::WriteFileOnly(std::uint32_t flags, std::uint32_t tag, const char* format, MessageArgs args)
{
    Log({(flags & Stamp) != 0, &tag, false}, format, args);
}

void KorvoAudit::Log(const Shape& shape, const char* format, MessageArgs args)
{
    if (mRotating && HoldBack(shape, format, args)) return;

    const std::lock_guard<std::mutex> lock(sFileLock);
    if (IsFull()) RotateBeside();
    if (mRotating && HoldBack(shape, format, args)) return;
    if (Format(shape, mLine, format, args) && mFile.is_open()) Emit(OverflowText);
    Emit(mLine);
}

bool KorvoAudit::HoldBack(const Shape& shape, const char* format, MessageArgs args)
{
    const std::lock_guard<std::mutex> lock(mPendingLock);
    // The flush at the end of a rotation clears the flag under this lock: a later line is written in the usual way.
    if (!mRotating) return false;
    if (Format(shape, mPendingLine, format, args) && mPending.size() < MaxPending) mPending.emplace_back(OverflowText);
    if (mPending.size() < MaxPending) {
        mPending.emplace_back(mPendingLine);
    } else {
        ++mPendingLost;
    }
    return true;
}

bool KorvoAudit::Format(const Shape& shape, char (&line)[LineSize], const char* format, MessageArgs args)
{
    std::size_t used = 0;
    const auto append = [&](const std::string& text) {
        std::copy(text.begin(), text.end(), line + used);
        used += text.size();
    };
    if (shape.stamp) append(TimeStamp() + ' ');
    if (shape.tag) {
        char tag[16];
        std::snprintf(tag, sizeof tag, "[%-8.8x] ", *shape.tag);
        append(tag);
    }
    line[used] = '\0';
    const int length = std::vsnprintf(line + used, LineSize - used, format, args.list);
    const bool overflow = length > static_cast<int>(LineSize);
    if (shape.console) {
        if (overflow) std::printf("%s\n", OverflowText);
        std::fputs(line, stdout);
        std::fflush(stdout);
    }
    return overflow;
}

void KorvoAudit::WriteToFile(const std::string& text)
{
    if (!mFile.is_open()) return;
    mFile << text << std::flush;
    // A full disk costs the lines that found it full, not the log.
    if (!mFile) mFile.clear();
}

void KorvoAudit::Emit(const std::string& line)
{
    WriteToFile(line);
    OnLogLine(line);
}

/// A closed file has no position (-1) and so never rotates.
bool KorvoAudit::IsFull()
{
    return mCanRotate && !mRotating && mFile.is_open() && static_cast<std::streamoff>(mFile.tellp()) > SizeLimit;
}

void KorvoAudit::RotateBeside()
{
    FinishRotation();
    mRotating = true;
    try {
        mRotation = std::thread([this] { Rotate(); });
    } catch (const std::system_error&) {
        // Then this thread waits for gzip: late lines are better than a log that grows without a bound.
        Rotate();
        return;
    }
    std::unique_lock<std::mutex> lock(mPendingLock);
    mRotated.wait_for(lock, RotationMoment, [this] { return !mRotating; });
}

/// While mRotating is set.
void KorvoAudit::Rotate()
{
    try {
        for (int number = Generations; number > 1; --number) {
            if (fs::exists(Generation(mLogPath, number - 1))) {
                fs::rename(Generation(mLogPath, number - 1), Generation(mLogPath, number));
            }
        }
        mFile.close();
        const std::string previous = mLogPath + ".1";
        fs::rename(mLogPath, previous);
        RunShell("gzip -- " + Quoted(previous), [this] { ReportSlowGzip(); });
        fs::remove(previous);
        mFile.open(mLogPath);
        FlushPending();
    } catch (const fs::filesystem_error& error) {
        HaltFile(error.what());
    }
}

void KorvoAudit::ReportSlowGzip()
{
    if (IsEnabled(static_cast<std::uint32_t>(DebugFeature::Fault))) {
        WriteStamped(Stamp, "gzip of the old log is still running\r\n");
    }
}

/// The lines held back are written first. The bulk is written while others can still add to the list; what they have
/// added then is written under the lock, so that the order of lines is kept.
void KorvoAudit::FlushPending()
{
    std::list<std::string> bulk;
    {
        const std::lock_guard<std::mutex> lock(mPendingLock);
        bulk.swap(mPending);
    }
    EmitAll(bulk);
    const std::lock_guard<std::mutex> lock(mPendingLock);
    EmitAll(mPending);
    mPending.clear();
    if (mPendingLost != 0) {
        Emit(TimeStamp() + " " + std::to_string(mPendingLost) + " log lines were lost while the log was rotated\r\n");
        mPendingLost = 0;
    }
    EndRotation();
}

void KorvoAudit::EmitAll(const std::list<std::string>& lines)
{
    if (!mFile.is_open()) return;
    for (const std::string& line : lines)
        Emit(line);
}

/// With mPendingLock held.
void KorvoAudit::EndRotation()
{
    mRotating = false;
    mRotated.notify_all();
}

void KorvoAudit::HaltFile(const std::string& reason)
{
    const std::string text = "Failed to rotate logs, logging to file halted: " + reason;
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);
    Emit(text + "\n");
    mFile.close();
    const std::lock_guard<std::mutex> lock(mPendingLock);
    // No later rotation would write them.
    mPending.clear();
    EndRotation();
}
