#include "Audit/BoundedShell.h"

#include <algorithm>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

// A tool takes a millisecond or two, and a wait must not double that.
constexpr std::chrono::microseconds ShortestSleep{200};
constexpr std::chrono::microseconds LongestSleep{10000};

/// What could not be killed in time and has not been buried yet.
class LeftBehind
{
public:
    void Add(pid_t child)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mChildren.push_back(child);
    }
    void Bury()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto isGone = [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; };
        mChildren.erase(std::remove_if(mChildren.begin(), mChildren.end(), isGone), mChildren.end());
    }

private:
    std::mutex mMutex;
    std::vector<pid_t> mChildren;
} sLeftBehind;

/// In a process group of its own, so that what the shell has started can be ended with it. -1 if it does not start.
pid_t Start(const std::string& line)
{
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return -1;
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    std::string shell = "sh";
    std::string option = "-c";
    std::string command = line;
    char* const arguments[] = {&shell[0], &option[0], &command[0], nullptr};
    pid_t child = -1;
    const int error = posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    return error == 0 ? child : -1;
}

} // namespace

int RunShell(const std::string& line, const std::function<void()>& tell, const ShellPatience& patience)
{
    sLeftBehind.Bury();
    const pid_t child = Start(line);
    if (child == -1) return -1;
    const auto start = Clock::now();
    const auto isPast = [start](std::chrono::milliseconds limit) { return Clock::now() - start >= limit; };
    bool told = false;
    bool terminated = false;
    bool killed = false;
    auto sleep = ShortestSleep;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) return status;
        if (ended == -1) return -1;
        if (!told && isPast(patience.tell)) {
            told = true;
            tell();
        }
        if (!terminated && isPast(patience.terminate)) {
            terminated = true;
            ::kill(-child, SIGTERM);
        }
        if (!killed && isPast(patience.kill)) {
            killed = true;
            ::kill(-child, SIGKILL);
        }
        if (isPast(patience.leave)) {
            sLeftBehind.Add(child);
            return SIGKILL;
        }
        std::this_thread::sleep_for(sleep);
        sleep = std::min(sleep * 2, LongestSleep);
    }
}
