#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <string>

namespace stage {

constexpr char LogPath[] = "/var/log/K2.log";

/// Reads a log file as it grows. The directory is watched, so that the file may be renamed, made anew or not be
/// there yet.
class LogFile
{
public:
    explicit LogFile(std::string path = LogPath);

    /// The whole file as it is now, empty if there is none.
    std::string Text() const;
    /// Waits until the file has a complete line with this text, and gives the line without its end.
    std::string WaitForLine(const std::string& text, Milliseconds patience = Patience);
    /// Waits until a file of this name exists in the same directory.
    void WaitForFile(const std::string& name, Milliseconds patience = Patience);

private:
    template <class Condition>
    bool WaitUntil(Condition condition, Milliseconds patience);

    std::string mPath;
    std::string mDirectory;
    FileDescriptor mWatch;
};

} // namespace stage
