#include "Simulation/Stage/LogFile.h"

#include <array>
#include <fstream>
#include <sstream>

#include <sys/inotify.h>
#include <unistd.h>

namespace stage {

LogFile::LogFile(std::string path)
    : mPath(std::move(path)),
      mDirectory(mPath.substr(0, mPath.rfind('/') + 1)),
      mWatch(Checked(inotify_init1(IN_CLOEXEC | IN_NONBLOCK), "inotify"))
{
    Checked(inotify_add_watch(mWatch.Get(), mDirectory.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE),
            "watch " + mDirectory);
}

std::string LogFile::Text() const
{
    std::ostringstream text;
    const std::ifstream file(mPath, std::ios::binary);
    if (file) text << file.rdbuf();
    return text.str();
}

template <class Condition>
bool LogFile::WaitUntil(Condition condition, Milliseconds patience)
{
    const Deadline deadline(patience);
    std::array<char, 65536> events;
    // What happens after the look is an event that the wait sees.
    while (!condition()) {
        if (!mWatch.WaitReadable(deadline)) return false;
        while (read(mWatch.Get(), events.data(), events.size()) > 0) {
        }
    }
    return true;
}

std::string LogFile::WaitForLine(const std::string& text, Milliseconds patience)
{
    std::string line;
    const auto isThere = [&] {
        const std::string log = Text();
        const std::size_t found = log.find(text);
        if (found == std::string::npos) return false;
        const std::size_t end = log.find('\n', found + text.size());
        const bool endsWithIt = !text.empty() && text.back() == '\n';
        if (end == std::string::npos && !endsWithIt) return false;
        const std::size_t begin = found == 0 ? 0 : log.rfind('\n', found - 1) + 1;
        line = log.substr(begin, (endsWithIt ? found + text.size() - 1 : end) - begin);
        return true;
    };
    if (!WaitUntil(isThere, patience)) throw NotSeen("no line with '" + text + "' in " + mPath);
    return line;
}

void LogFile::WaitForFile(const std::string& name, Milliseconds patience)
{
    const std::string path = mDirectory + name;
    if (!WaitUntil([&] { return access(path.c_str(), F_OK) == 0; }, patience)) throw NotSeen("no file " + path);
}

} // namespace stage
