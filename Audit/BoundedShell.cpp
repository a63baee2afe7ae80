#include "Audit/BoundedShell.h"

#include <algorithm>
#include <csignal>
#include <mutex>
#include <optional>
#include <vector>

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

/// How often a child is polled where the kernel has no descriptor for it.
constexpr std::chrono::milliseconds LookAgain{10};

/// What could not be killed in time and has not been reaped yet.
class Unreaped
{
public:
    void Add(pid_t child)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mChildren.push_back(child);
    }
    void Reap()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto isGone = [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; };
        mChildren.erase(std::remove_if(mChildren.begin(), mChildren.end(), isGone), mChildren.end());
    }

private:
    std::mutex mMutex;
    std::vector<pid_t> mChildren;
} sUnreaped;

/// In its own process group, so that it can be killed with its children, and with only the standard descriptors: a tool
/// that was given up must not hold a socket, the log or the FPGA. -1 if it does not start.
pid_t Start(const std::string& line)
{
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return -1;
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawn_file_actions_t descriptors;
    if (posix_spawn_file_actions_init(&descriptors) != 0) {
        posix_spawnattr_destroy(&attributes);
        return -1;
    }
    posix_spawn_file_actions_addclosefrom_np(&descriptors, STDERR_FILENO + 1);
    std::string shell = "sh";
    std::string option = "-c";
    std::string command = line;
    char* const arguments[] = {&shell[0], &option[0], &command[0], nullptr};
    pid_t child{};
    const int error = posix_spawn(&child, "/bin/sh", &descriptors, &attributes, arguments, environ);
    posix_spawn_file_actions_destroy(&descriptors);
    posix_spawnattr_destroy(&attributes);
    return error == 0 ? child : -1;
}

/// A child and what polls readable at its end.
class Child
{
public:
    explicit Child(pid_t id) : mId(id), mEnd{static_cast<int>(::syscall(SYS_pidfd_open, id, 0)), POLLIN, 0} {}
    ~Child()
    {
        if (mEnd.fd != -1) ::close(mEnd.fd);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /// The status if it ends by then; -1 if it cannot be waited for.
    std::optional<int> WaitUntil(Clock::time_point moment)
    {
        for (;;) {
            int status{};
            const pid_t ended = waitpid(mId, &status, WNOHANG);
            if (ended != 0) return ended == mId ? status : -1;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(moment - Clock::now());
            if (left.count() <= 0) return std::nullopt;
            ::poll(&mEnd, 1, static_cast<int>((mEnd.fd == -1 ? std::min(left, LookAgain) : left).count()));
        }
    }

private:
    const pid_t mId;
    pollfd mEnd;
};

} // namespace

int RunShell(const std::string& line, const std::function<void()>& tell, const ShellPatience& patience)
{
    sUnreaped.Reap();
    const pid_t id = Start(line);
    if (id == -1) return -1;
    const auto start = Clock::now();
    const struct
    {
        std::chrono::milliseconds after;
        std::function<void()> act;
    } steps[] = {{patience.tell, tell},
                 {patience.terminate, [id] { ::kill(-id, SIGTERM); }},
                 {patience.kill, [id] { ::kill(-id, SIGKILL); }},
                 {patience.leave, [] {}}};
    Child child(id);
    for (const auto& step : steps) {
        if (const auto status = child.WaitUntil(start + std::min(step.after, patience.leave))) return *status;
        if (step.after < patience.leave) step.act();
    }
    sUnreaped.Add(id);
    return SIGKILL;
}
