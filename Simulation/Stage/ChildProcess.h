#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

namespace stage {

/// What to start, and where.
struct Command
{
    std::vector<std::string> arguments;
    /// Variables in addition to those of this process; an empty value removes one.
    std::map<std::string, std::string> environment{};
    /// Empty for the module's own.
    std::string networkNamespace{};
    /// Descriptors that the program inherits besides the standard ones, under the same numbers.
    std::vector<int> descriptors{};
};

/// How a program ended.
struct Ending
{
    /// Valid if signal is 0.
    int exitCode = 0;
    int signal = 0;

    std::string Text() const;
};

/// A child process in its own process group. Its output is collected by a thread as it comes,
/// so that it never waits for its reader. A process that still runs when the object is destroyed is killed.
class ChildProcess
{
public:
    /// @throws std::system_error if the program cannot be started.
    explicit ChildProcess(const Command& command);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Id() const { return mPid; }
    bool HasEnded() const { return mHasEnded; }
    /// Sends a signal to the program, not to its children.
    void Signal(int signal) const;
    /// Writes to its standard input.
    void Send(const std::string& text);

    /// Waits until the program has ended and all its output is here.
    Ending Wait(Milliseconds patience = Patience);
    /// Asks it by SIGTERM to end, and waits.
    Ending Stop(Milliseconds patience = Patience);

    /// Standard output and standard error so far.
    std::string Output() const;
    std::string Errors() const;
    /// Standard output since the last call, which is then forgotten: for a program that runs for hours.
    std::string TakeOutput();
    /// Waits until the text appears in standard output at or after the given position, and gives the position after it.
    std::size_t WaitForOutput(const std::string& text, std::size_t from = 0, Milliseconds patience = Patience);

private:
    void Start(const Command& command);
    void Collect();

    std::string mName;
    pid_t mPid = -1;
    bool mHasEnded = false;
    Ending mEnding;
    FileDescriptor mPidFd;
    FileDescriptor mInput;
    FileDescriptor mOutputPipe;
    FileDescriptor mErrorPipe;
    FileDescriptor mStopPipe[2];

    /// Guards the collected texts and mIsCollecting.
    mutable std::mutex mMutex;
    std::condition_variable mCollected;
    std::string mOutput;
    std::string mErrors;
    bool mIsCollecting = true;
    std::thread mCollector;
};

/// Path of a program that is built into the same directory as the running one.
std::string ProgramPath(const std::string& name);

} // namespace stage
