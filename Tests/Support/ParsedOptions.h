#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

/// What a program makes of a line of arguments: its exit code and what it prints, or else its options in the form that
/// `show` gives them.
template <class Options, class Parse, class Show>
std::string ParsedOptions(const std::string& line, Parse parse, Show show)
{
    std::istringstream words("/opt/bin/Program " + line);
    const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
    std::vector<const char*> pointers(arguments.size());
    std::transform(arguments.begin(), arguments.end(), pointers.begin(),
                   [](const std::string& argument) { return argument.c_str(); });
    Options options;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto exitCode = parse(static_cast<int>(pointers.size()), pointers.data(), options);
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string errors = testing::internal::GetCapturedStderr();
    return exitCode ? std::to_string(*exitCode) + " " + output + errors : show(options);
}
