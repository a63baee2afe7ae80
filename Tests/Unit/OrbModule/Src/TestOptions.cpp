#include "OrbModule/Inc/Options.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <vector>

using testing::HasSubstr;

namespace {

struct Parsed
{
    Options options;
    std::optional<int> exitCode;
    std::string endpoint, out, err;
};

/// @param line the arguments with blanks between them
Parsed Parse(const std::string& line)
{
    std::istringstream words("/opt/bin/OrbModule " + line);
    const std::vector<std::string> arguments{std::istream_iterator<std::string>(words), {}};
    std::vector<const char*> pointers;
    for (const std::string& argument : arguments)
        pointers.push_back(argument.c_str());
    Parsed parsed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    parsed.exitCode = ParseOptions(static_cast<int>(pointers.size()), pointers.data(), parsed.options);
    parsed.out = testing::internal::GetCapturedStdout();
    parsed.err = testing::internal::GetCapturedStderr();
    std::ostringstream endpoint;
    endpoint << parsed.options.shellEndpoint;
    parsed.endpoint = endpoint.str();
    return parsed;
}

} // namespace

TEST(Options, AreTakenAsTheyAreGiven)
{
    EXPECT_EQ(Parse("--telnet 10.0.0.1").endpoint, "10.0.0.1:2000");
    EXPECT_EQ(Parse("--telnet :7000").endpoint, "0.0.0.0:7000");
    EXPECT_EQ(Parse("--telnet 10.0.0.1:65535").endpoint, "10.0.0.1:65535");
    const Parsed parsed = Parse("-l /tmp/x.log --sim box --cqs true --top 5");
    EXPECT_FALSE(parsed.exitCode);
    EXPECT_EQ(parsed.endpoint, "0.0.0.0:55555");
    EXPECT_EQ(parsed.options.programName, "OrbModule");
    EXPECT_EQ(parsed.options.logPath, "/tmp/x.log");
}

TEST(Options, RejectedValuesEndWithOneLine)
{
    for (const std::string& line : std::vector<std::string>{
             "--telnet 10.0.0.1:0", "--telnet 10.0.0.1:", "--telnet :+7", "--telnet 10.0.0.1:65536",
             "--telnet :99999999999", "--telnet nowhere", "--telnet 1.2.3.4:5:6",
             "--telnet " + std::string(200000, 'a'), "-t :1 -t :2", "--top seven", "--unheard-of", "--cqs"}) {
        const Parsed parsed = Parse(line);
        EXPECT_EQ(parsed.exitCode, 2) << line;
        EXPECT_EQ(std::count(parsed.err.begin(), parsed.err.end(), '\n'), 1) << parsed.err;
        EXPECT_THAT(parsed.err, HasSubstr("OrbModule: "));
        EXPECT_EQ(parsed.out, "");
    }
}

TEST(Options, HelpWinsOverVersion)
{
    const Parsed help = Parse("--version -?");
    EXPECT_EQ(help.exitCode, 1);
    EXPECT_THAT(help.out, HasSubstr("Available options"));
    EXPECT_THAT(help.out, HasSubstr("telnet address: [ip][:port]. Default: 0.0.0.0:2000"));
    EXPECT_EQ(Parse("--version").out, "Sorn Module 1.0.2452\n");
}
