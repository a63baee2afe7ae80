#pragma once

#include <string>

/// Sets the debug features from a file at start. Used once on the main thread, before any other thread logs.
///
/// Each line of the file is a list of words between blanks and tabs: "on" and "off" set the state for the rest of the
/// line, which begins as off; any other word is a feature, by number or by exact name, that takes the state.
class DebugConfigure
{
public:
    virtual ~DebugConfigure() = default;

    static DebugConfigure& Instance();

    /// Says in the log, whatever features are on, what it did with each feature. A file that cannot be read changes
    /// nothing, and a wrong word costs only that word.
    void ReadFile(const std::string& path);
};
