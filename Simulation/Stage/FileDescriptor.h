#pragma once

#include "Simulation/Stage/Deadline.h"

#include <string>
#include <utility>

namespace stage {

/// Owner of one descriptor.
class FileDescriptor
{
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : mFd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor() { Close(); }

    int Get() const { return mFd; }
    bool IsOpen() const { return mFd >= 0; }
    void Close();

    /// Waits until the descriptor is readable (or at its end); false if the deadline passes first.
    bool WaitReadable(const Deadline& deadline) const;

private:
    int mFd = -1;
};

/// Gives the result of a system call, or throws std::system_error with this text if it is negative.
int Checked(int result, const std::string& what);

} // namespace stage
