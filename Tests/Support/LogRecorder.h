#pragma once

#include "Audit/Audit.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

/// The process's log while a test runs: keeps every line, without its stamp, from any thread. The usual features are
/// on, and those that the test names.
class LogRecorder
{
public:
    explicit LogRecorder(std::initializer_list<DebugFeature> features = {}) : mSink(new Sink(*this))
    {
        for (const DebugFeature feature : features)
            mSink->SetEnabled(static_cast<std::uint32_t>(feature), 1);
        Audit::SetInstance(mSink);
    }
    ~LogRecorder() { Audit::SetInstance(nullptr); }
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    std::vector<std::string> Lines() const
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mLines;
    }
    std::size_t Count(const std::string& line) const
    {
        const auto lines = Lines();
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
    }
    bool Has(const std::string& line) const { return Count(line) != 0; }
    /// True if a line begins like this.
    bool HasStart(const std::string& start) const
    {
        const auto lines = Lines();
        return std::any_of(lines.begin(), lines.end(), [&](const auto& line) { return line.rfind(start, 0) == 0; });
    }
    /// Waits until a line that contains this has come that many times; false if it does not.
    bool WaitFor(const std::string& part, std::ptrdiff_t times = 1) const
    {
        const auto contains = [&](const std::string& line) { return line.find(part) != std::string::npos; };
        std::unique_lock<std::mutex> lock(mMutex);
        return mCame.wait_for(lock, std::chrono::seconds(10),
                              [&] { return std::count_if(mLines.begin(), mLines.end(), contains) >= times; });
    }
    /// From now on a thread that logs this line waits until Release.
    void Hold(const std::string& line)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHeld = line;
    }
    void Release()
    {
        Hold({});
        mCame.notify_all();
    }

private:
    struct Sink : Audit
    {
        explicit Sink(LogRecorder& recorder) : mRecorder(recorder) {}
        using Audit::Write;
        using Audit::WriteStamped;
        using Audit::WriteStampedTagged;
        void Write(const char* format, MessageArgs args) override { mRecorder.Keep(format, args); }
        void WriteStamped(std::uint32_t, const char* format, MessageArgs args) override { Write(format, args); }
        void WriteStampedTagged(std::uint32_t, std::uint32_t, const char* format, MessageArgs args) override
        {
            Write(format, args);
        }

        LogRecorder& mRecorder;
    };

    void Keep(const char* format, MessageArgs args)
    {
        char line[1 << 17];
        std::vsnprintf(line, sizeof line, format, args.list);
        std::unique_lock<std::mutex> lock(mMutex);
        mLines.push_back(line);
        mCame.notify_all();
        mCame.wait(lock, [&] { return mHeld.empty() || mHeld != line; });
    }

    mutable std::mutex mMutex;
    mutable std::condition_variable mCame;
    std::vector<std::string> mLines;
    std::string mHeld;
    Sink* const mSink;
};
