#include "OrbModule/Inc/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <vector>

using testing::HasSubstr;

namespace {

struct Parsed
{
    Options options;
    std::optional<int> exitCode;
    std::string out;
    std::string err;
};

Parsed Parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "/opt/bin/OrbModule");
    Parsed parsed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    parsed.exitCode = ParseOptions(static_cast<int>(arguments.size()), arguments.data(), parsed.options);
    parsed.out = testing::internal::GetCapturedStdout();
    parsed.err = testing::internal::GetCapturedStderr();
    return parsed;
}

std::string Endpoint(const Parsed& parsed)
{
    std::ostringstream text;
    text << parsed.options.shellEndpoint;
    return text.str();
}

} // namespace

TEST(Options, AreTakenAsTheyAreGiven)
{
    for (const auto& [value, endpoint] :
         {std::pair("10.0.0.1", "10.0.0.1:2000"), {":7000", "0.0.0.0:7000"}, {"10.0.0.1:65535", "10.0.0.1:65535"}})
        EXPECT_EQ(Endpoint(Parse({"--telnet", value})), endpoint);
    const Parsed parsed = Parse({"-l", "/tmp/x.log", "--sim", "box", "--cqs", "true", "--top", "5"});
    EXPECT_FALSE(parsed.exitCode);
    EXPECT_EQ(Endpoint(parsed), "0.0.0.0:55555");
    EXPECT_EQ(parsed.options.programName, "OrbModule");
    EXPECT_EQ(parsed.options.logPath, "/tmp/x.log");
}

TEST(Options, RejectedValuesEndWithOneLine)
{
    const std::string endless(200000, 'a');
    const std::vector<std::vector<const char*>> cases = {{"--telnet", "10.0.0.1:0"},
                                                         {"--telnet", "10.0.0.1:"},
                                                         {"--telnet", ":+7"},
                                                         {"--telnet", "10.0.0.1:65536"},
                                                         {"--telnet", ":99999999999"},
                                                         {"--telnet", "nowhere"},
                                                         {"--telnet", "1.2.3.4:5:6"},
                                                         {"--telnet", endless.c_str()},
                                                         {"-t", ":1", "-t", ":2"},
                                                         {"--top", "seven"},
                                                         {"--unheard-of"},
                                                         {"--cqs"}};
    for (const auto& arguments : cases) {
        const Parsed parsed = Parse(arguments);
        EXPECT_EQ(parsed.exitCode, 2) << arguments.back();
        EXPECT_EQ(std::count(parsed.err.begin(), parsed.err.end(), '\n'), 1) << parsed.err;
        EXPECT_THAT(parsed.err, HasSubstr("OrbModule: "));
        EXPECT_EQ(parsed.out, "");
    }
}

TEST(Options, HelpWinsOverVersion)
{
    const Parsed help = Parse({"--version", "-?"});
    EXPECT_EQ(help.exitCode, 1);
    EXPECT_THAT(help.out, HasSubstr("Available options"));
    EXPECT_THAT(help.out, HasSubstr("telnet address: [ip][:port]. Default: 0.0.0.0:2000"));

    EXPECT_EQ(Parse({"--version"}).out, "Sorn Module 1.0.2452\n");
}
