#include "OrbModule/Inc/Options.h"
#include "Tests/Support/Joined.h"
#include "Tests/Support/ParsedOptions.h"

namespace {

std::string Parse(const std::string& line)
{
    return ParsedOptions<Options>(line, ParseOptions, [](const Options& options) {
        return Joined(options.programName, options.logPath, options.shellEndpoint);
    });
}

TEST(Options, AreTakenAsTheyAreGiven)
{
    EXPECT_EQ(Parse(""), "Program||0.0.0.0:55555|");
    EXPECT_EQ(Parse("-l /tmp/x.log --sim box --cqs true --top 5"), "Program|/tmp/x.log|0.0.0.0:55555|");
    EXPECT_EQ(Parse("--telnet 10.0.0.1"), "Program||10.0.0.1:2000|");
    EXPECT_EQ(Parse("-t :65535"), "Program||0.0.0.0:65535|");
    const char* const none = nullptr;
    Options options{"x", {}, {}};
    EXPECT_FALSE(ParseOptions(0, &none, options));
    EXPECT_EQ(options.programName, "");
}

TEST(Options, RejectedValuesEndWithOneLine)
{
    const std::string values[] = {"10.0.0.1:0",   "10.0.0.1:", ":+7",         "10.0.0.1:65536",
                                  ":99999999999", "nowhere",   "1.2.3.4:5:6", std::string(200000, 'a')};
    for (const std::string& value : values)
        EXPECT_EQ(Parse("--telnet " + value), "2 Program: the argument for option '--telnet' is invalid; see --help\n");
    EXPECT_EQ(Parse("-t :1 -t :2"), "2 Program: option '--telnet' cannot be specified more than once; see --help\n");
    EXPECT_EQ(Parse("--top x"), "2 Program: the argument ('x') for option '--top' is invalid; see --help\n");
    EXPECT_EQ(Parse("--unheard-of"), "2 Program: unrecognised option '--unheard-of'; see --help\n");
    EXPECT_EQ(Parse("--cqs"), "2 Program: the required argument for option '--cqs' is missing; see --help\n");
}

TEST(Options, HelpWinsOverVersion)
{
    EXPECT_EQ(Parse("--version"), "1 Sorn Module 1.0.2452\n");
    EXPECT_EQ(Parse("--version -?"), R"(1 Available options:
  -? [ --help ]                        display help message
  --version                            version info
  --top arg (=0)                       set the hid for the module
  -t [ --telnet ] arg (=0.0.0.0:55555) telnet address: [ip][:port]. Default: 0.0.0.0:2000
  -l [ --log ] arg                     name, including path, of the log file to use
  --cqs arg (=0)                       attempt connect to quillsync
  --sim arg                            name, including path, of the simulated box file to use

)");
}

} // namespace
