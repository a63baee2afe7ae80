#include "Simulation/Stage/FileDescriptor.h"

#include <cerrno>
#include <system_error>

#include <poll.h>
#include <unistd.h>

namespace stage {

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept
{
    if (this != &other) {
        Close();
        mFd = std::exchange(other.mFd, -1);
    }
    return *this;
}

void FileDescriptor::Close()
{
    if (mFd >= 0) close(std::exchange(mFd, -1));
}

bool FileDescriptor::WaitReadable(const Deadline& deadline) const
{
    for (;;) {
        pollfd entry{mFd, POLLIN, 0};
        const int result = poll(&entry, 1, deadline.ForPoll());
        if (result > 0) return true;
        if (result == 0) return false;
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
    }
}

int Checked(int result, const std::string& what)
{
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

} // namespace stage
