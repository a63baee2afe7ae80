#pragma once

#include "Simulation/Stage/ChildProcess.h"

#include <chrono>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

/// What tshark prints of a capture file, with the dissector of this build.
inline std::string Tshark(const std::string& capture, const std::vector<std::string>& options)
{
    constexpr auto Patience = std::chrono::minutes(2);
    std::vector<std::string> arguments = {"tshark", "-n",   "-X", std::string("lua_script:") + ORB_DISSECTOR_FILE,
                                          "-r",     capture};
    arguments.insert(arguments.end(), options.begin(), options.end());
    // Whatever the user has set up for himself is left alone.
    stage::ChildProcess process({arguments, {{"WIRESHARK_CONFIG_DIR", "/nonexistent"}, {"HOME", "/nonexistent"}}});
    EXPECT_EQ(process.Wait(Patience).Text(), "exit code 0")
        << "Is tshark there (Debian package tshark)? " << process.Errors();
    EXPECT_EQ(process.Errors().find("Lua"), std::string::npos) << process.Errors();
    return process.Output();
}

inline std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

/// The values of fields, packet by packet; a field that occurs several times in a packet gives its values parted by
/// commas.
inline std::vector<std::vector<std::string>> TsharkFields(const std::string& capture,
                                                          const std::vector<std::string>& fields)
{
    std::vector<std::string> options = {"-T", "fields"};
    for (const std::string& field : fields)
        options.insert(options.end(), {"-e", field});
    std::vector<std::vector<std::string>> packets;
    for (const std::string& line : Split(Tshark(capture, options), '\n')) {
        packets.push_back(Split(line, '\t'));
        packets.back().resize(fields.size());
    }
    return packets;
}
