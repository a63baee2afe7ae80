#include "Simulation/Stage/ChildProcess.h"

#include "Simulation/Stage/NetworkNamespace.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stage {

namespace {

constexpr std::size_t QuotedLength = 2000;

struct Pipe
{
    Pipe()
    {
        std::array<int, 2> ends{};
        Checked(pipe2(ends.data(), O_CLOEXEC), "pipe");
        read = FileDescriptor(ends[0]);
        write = FileDescriptor(ends[1]);
    }
    FileDescriptor read;
    FileDescriptor write;
};

std::vector<std::string> MergedEnvironment(const std::map<std::string, std::string>& changes)
{
    std::vector<std::string> merged;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!changes.count(text.substr(0, text.find('=')))) merged.push_back(text);
    }
    for (const auto& [name, value] : changes) {
        if (!value.empty()) merged.push_back(std::string(name).append("=").append(value));
    }
    return merged;
}

std::vector<char*> Pointers(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::string Tail(const std::string& text)
{
    return text.size() > QuotedLength ? text.substr(text.size() - QuotedLength) : text;
}

} // namespace

std::string Ending::Text() const
{
    return signal ? "killed by signal " + std::to_string(signal) : "exit code " + std::to_string(exitCode);
}

ChildProcess::ChildProcess(const Command& command) : mName(command.arguments.at(0))
{
    Start(command);
    mCollector = std::thread([this] { Collect(); });
}

void ChildProcess::Start(const Command& command)
{
    // Everything that allocates happens before the fork, since other threads may hold locks at that moment.
    std::vector<std::string> arguments = command.arguments;
    std::vector<std::string> environment = MergedEnvironment(command.environment);
    const std::vector<char*> argv = Pointers(arguments);
    const std::vector<char*> envp = Pointers(environment);
    FileDescriptor networkNamespace;
    if (!command.networkNamespace.empty()) networkNamespace = OpenNamespace(command.networkNamespace);
    Pipe input, output, errors, failure, stop;

    mPid = Checked(fork(), "fork");
    if (mPid == 0) {
        sigset_t none;
        sigemptyset(&none);
        const bool isReady = setpgid(0, 0) == 0 && sigprocmask(SIG_SETMASK, &none, nullptr) == 0 &&
                             std::signal(SIGINT, SIG_DFL) != SIG_ERR && std::signal(SIGPIPE, SIG_DFL) != SIG_ERR &&
                             dup2(input.read.Get(), STDIN_FILENO) >= 0 &&
                             dup2(output.write.Get(), STDOUT_FILENO) >= 0 &&
                             dup2(errors.write.Get(), STDERR_FILENO) >= 0 &&
                             (!networkNamespace.IsOpen() || setns(networkNamespace.Get(), CLONE_NEWNET) == 0);
        // A test's own sockets are not the child's: one that it kept would hold its address.
        bool isClosed = close_range(STDERR_FILENO + 1, ~0u, CLOSE_RANGE_CLOEXEC) == 0;
        for (const int descriptor : command.descriptors)
            isClosed = isClosed && fcntl(descriptor, F_SETFD, 0) == 0;
        if (isReady && isClosed) execvpe(argv[0], argv.data(), envp.data());
        const int error = errno;
        const ssize_t written = write(failure.write.Get(), &error, sizeof error);
        _exit(written == sizeof error ? 127 : 126);
    }

    failure.write.Close();
    int error = 0;
    if (read(failure.read.Get(), &error, sizeof error) == sizeof error) {
        waitpid(mPid, nullptr, 0);
        throw std::system_error(error, std::generic_category(), "start " + mName);
    }
    mPidFd = FileDescriptor(Checked(static_cast<int>(syscall(SYS_pidfd_open, mPid, 0)), "pidfd_open"));
    mInput = std::move(input.write);
    mOutputPipe = std::move(output.read);
    mErrorPipe = std::move(errors.read);
    mStopPipe[0] = std::move(stop.read);
    mStopPipe[1] = std::move(stop.write);
}

ChildProcess::~ChildProcess()
{
    // The whole group: a shell script's children too.
    kill(-mPid, SIGKILL);
    if (!mHasEnded) waitpid(mPid, nullptr, 0);
    mStopPipe[1].Close();
    mCollector.join();
}

void ChildProcess::Signal(int signal) const
{
    if (!mHasEnded) Checked(kill(mPid, signal), "signal to " + mName);
}

void ChildProcess::Send(const std::string& text)
{
    const ssize_t written = write(mInput.Get(), text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size())) throw std::runtime_error(mName + " does not read its input");
}

Ending ChildProcess::Wait(Milliseconds patience)
{
    if (mHasEnded) return mEnding;
    const Deadline deadline(patience);
    if (!mPidFd.WaitReadable(deadline)) {
        throw NotSeen(mName + " does not end; its output so far: '" + Tail(Output()) + "'");
    }
    siginfo_t info{};
    Checked(waitid(P_PIDFD, static_cast<id_t>(mPidFd.Get()), &info, WEXITED), "waitid");
    mHasEnded = true;
    (info.si_code == CLD_EXITED ? mEnding.exitCode : mEnding.signal) = info.si_status;

    std::unique_lock lock(mMutex);
    mCollected.wait_for(lock, deadline.Left(), [this] { return !mIsCollecting; });
    return mEnding;
}

Ending ChildProcess::Stop(Milliseconds patience)
{
    Signal(SIGTERM);
    return Wait(patience);
}

std::string ChildProcess::Output() const
{
    const std::lock_guard lock(mMutex);
    return mOutput;
}

std::string ChildProcess::TakeOutput()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mOutput, std::string());
}

std::string ChildProcess::Errors() const
{
    const std::lock_guard lock(mMutex);
    return mErrors;
}

std::size_t ChildProcess::WaitForOutput(const std::string& text, std::size_t from, Milliseconds patience)
{
    std::unique_lock lock(mMutex);
    std::size_t found = std::string::npos;
    const auto isThere = [&] {
        found = mOutput.find(text, from);
        return found != std::string::npos || !mIsCollecting;
    };
    mCollected.wait_for(lock, patience, isThere);
    if (found == std::string::npos) {
        throw NotSeen(mName + " did not print '" + text + "'; output so far: '" + Tail(mOutput) + "', errors: '" +
                      Tail(mErrors) + "'");
    }
    return found + text.size();
}

void ChildProcess::Collect()
{
    std::array<pollfd, 3> entries{
        {{mOutputPipe.Get(), POLLIN, 0}, {mErrorPipe.Get(), POLLIN, 0}, {mStopPipe[0].Get(), POLLIN, 0}}};
    std::array<char, 65536> block;
    while (entries[0].fd >= 0 || entries[1].fd >= 0) {
        if (poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) break;
        if (entries[2].revents) break;
        for (std::size_t i = 0; i < 2; ++i) {
            if (!entries[i].revents) continue;
            const ssize_t size = read(entries[i].fd, block.data(), block.size());
            if (size <= 0) {
                entries[i].fd = -1;
                continue;
            }
            const std::lock_guard lock(mMutex);
            (i == 0 ? mOutput : mErrors).append(block.data(), static_cast<std::size_t>(size));
            mCollected.notify_all();
        }
    }
    const std::lock_guard lock(mMutex);
    mIsCollecting = false;
    mCollected.notify_all();
}

std::string ProgramPath(const std::string& name)
{
    std::array<char, 4096> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    const std::string self(path.data(), static_cast<std::size_t>(Checked(static_cast<int>(length), "own path")));
    return self.substr(0, self.rfind('/') + 1) + name;
}

} // namespace stage
