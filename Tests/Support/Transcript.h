#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;

/// Plays a script: each line has events and, after an arrow, all that is done on them. A line that is indented
/// continues the one before. What is done on events in front of a bar, or without an arrow, is not looked at.
///
///     box leaves 1 -> drop 1[50]; slave 0.0.0.0 bitmap box
///     box comes 77 | box leaves 1 ->
inline void ExpectTranscript(const std::string& script, const std::function<Lines(const std::string& event)>& play)
{
    std::istringstream lines(std::regex_replace(script, std::regex("\n +"), " "));
    std::string expected;
    std::string seen;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        const std::string events = line.substr(0, line.find(" ->"));
        Lines done;
        for (std::size_t start = 0, end = 0; end != std::string::npos; start = events.find(' ', end + 1) + 1) {
            end = std::min(events.find("; ", start), events.find(" | ", start));
            const Lines next = play(events.substr(start, end - start));
            done.insert(done.end(), next.begin(), next.end());
            if (end != std::string::npos && events[end] == ' ') done.clear();
        }
        if (events == line) continue;
        expected += line + '\n';
        seen += events + " ->";
        for (std::size_t i = 0; i < done.size(); ++i)
            seen += (i == 0 ? " " : "; ") + done[i];
        seen += '\n';
    }
    EXPECT_EQ(seen, expected);
}

/// A test that is a text and no more.
struct Scene
{
    std::string name;
    std::string script;
};

/// What a test that has failed shows of it.
inline void PrintTo(const Scene& scene, std::ostream* out)
{
    *out << scene.name;
}

/// The scenes of a text, each after a line "== Name"; what comes before the first is for readers.
inline std::vector<Scene> ScenesOf(const std::string& text)
{
    std::vector<Scene> scenes;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("== ", 0) == 0) {
            scenes.push_back({line.substr(3), ""});
        } else if (!scenes.empty()) {
            scenes.back().script += line + '\n';
        }
    }
    return scenes;
}

inline std::string NameOfScene(const testing::TestParamInfo<Scene>& info)
{
    return info.param.name;
}
