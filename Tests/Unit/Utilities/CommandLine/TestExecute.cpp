#include "Utilities/CommandLine/CommandLine.h"

#include <gmock/gmock.h>

namespace {

using cmd::action::MakeAction;

class ExecuteTest : public testing::Test
{
protected:
    ExecuteTest()
    {
        const auto add = [this](const char* name, const char* help, auto action) {
            mShell.AddAction(name, action, help);
        };
        add("two", "Join two texts", [](const std::string& a, const std::string& b) { return a + "|" + b; });
        add("int", "", [](int value) { return value; });
        add("long", "", [](long value) { return value; });
        add("ushort", "", [](unsigned short value) { return value; });
        add("unsigned", "", [](const unsigned& value) { return value; });
        add("bool", "", [](bool value) { return !value; });
        add("none", "Does nothing. Really.\nNothing\n", [this] { ++mCalls; });
        add("mixed", ".No brief",
            [](unsigned a, const std::string& b, bool c) { return std::to_string(a) + b + (c ? "+" : "-"); });
        add("client", "", [](const std::shared_ptr<cmd::ClientConnection>&, int value) { return value; });
        add("throws", "", []() -> int { throw std::runtime_error("broken"); });
        const auto node = std::make_shared<cmd::Node>();
        const auto status = [] { return "routes"; };
        node->Add("adma", {MakeAction("status", status, "Show routes. All of them.")});
        const auto one = [] { return 1u; };
        node->Add("adma/deep/er", {MakeAction("x", one, "Line\nrest")});
        mShell.AddNode(node);
    }

    int mCalls = 0;
    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, {boost::asio::ip::address_v4::loopback(), 0}, ""};
};

TEST_F(ExecuteTest, WhatIsTypedAndWhatIsAnswered)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"none", ""},
        {"none 5", "error: 'none' expects 0 argument(s), 1 provided\n"},
        {"  two a   b\r", "a|b\n"},
        {"two \"a b\" c", "a b|c\n"},
        {"two {a b} \"c  d\"", "a b|c  d\n"},
        {"two {a \"b} c} d", "a b c|d\n"},
        {"two a", "error: 'two' expects 2 argument(s), 1 provided\n"},
        {"two \"\" b", "error: 'two' expects 2 argument(s), 1 provided\n"},
        {"two a\\n b", "a\\n|b\n"},
        {"int +5", "5\n"},
        {"int -2147483648", "-2147483648\n"},
        {"int 000000000000000000007", "7\n"},
        {"ushort 70000", "4464\n"},
        {"unsigned 4294967295", "4294967295\n"},
        {"bool true", "false\n"},
        {"bool 0", "true\n"},
        {"mixed 1 b 1", "1b+\n"},
        {"mixed 1 b x", "error: arg 3: cannot convert 'x' to type 'bool'\n"},
        {"throws", "error: 'throws' failed: broken\n"},
        {"adma/status", "routes\n"},
        {"adma/deep/er/x", "1\n"},
        {"adma/deep/x", "unrecognised command 'adma/deep/x'\n"},
        {"adma", "unrecognised command 'adma'\n"},
        {"adma/", "unrecognised command 'adma/'\n"},
        {"/none", "unrecognised command '/none'\n"},
        {"nothing/of this", "unrecognised command 'nothing/of'\n"},
        {"nothing --help", "unrecognised command 'nothing'\n"},
        {"adma/status --help extra", "Show routes\n\nUsage: status\n\nAll of them.\n"},
        {"none --help", "Does nothing\n\nUsage: none\n\nReally.\nNothing\n"},
        {"mixed --help", "Usage: mixed 'unsigned' 'string' 'bool'\n\nNo brief\n"},
        {"adma/deep/er/x --help", "Line\n\nUsage: x\n\nrest\n"},
    };
    for (const auto& [line, result] : cases)
        EXPECT_EQ(mShell.Execute(line), result) << line;
    EXPECT_EQ(mCalls, 1);
    const std::string digits(70000, '9');
    const std::pair<const char*, std::vector<std::string>> wrong[] = {
        {"int", {"2147483648", "-2147483649", "+-5", "--5", "-", "+", "0x5", "5\tx", digits}},
        {"long", {"-2147483649"}},
        {"bool", {"True", "2"}},
        {"unsigned", {"4294967296", "-5", "+5"}},
    };
    for (const auto& [type, tokens] : wrong)
        for (const std::string& token : tokens)
            EXPECT_EQ(mShell.Execute(std::string(type) + " " + token),
                      "error: arg 1: cannot convert '" + token + "' to type '" + type + "'\n");
    // "adma/deep/er/x" is as long as any name of this process.
    EXPECT_EQ(mShell.Execute("help"), "bool           \n"
                                      "client         \n"
                                      "help           List available actions\n"
                                      "int            \n"
                                      "long           \n"
                                      "mixed          \n"
                                      "none           Does nothing\n"
                                      "quit           Terminate the application\n"
                                      "throws         \n"
                                      "two            Join two texts\n"
                                      "unsigned       \n"
                                      "ushort         \n"
                                      "adma/status    Show routes\n"
                                      "adma/deep/er/x Line\n\n");
}

TEST_F(ExecuteTest, LinesAndResultsAreReportedAndQuitStopsTheService)
{
    std::string reported;
    mShell.SetReceivedCallback([&](const std::string& line) { reported += "<" + line; });
    mShell.SetSentCallback([&](const auto& name, const auto& result) { reported += ">" + name + "=" + result; });
    // A context of the wrong type gives nothing, and a line on standard error.
    testing::internal::CaptureStderr();
    for (const char* line : {" two a b ", " ", "none", "client 5", "quit"})
        mShell.Execute(line);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(reported, "< two a b >two=a|b\n<none>none=<client 5>client=<quit>quit=");
    EXPECT_EQ(mShell.Execute("client 5", std::shared_ptr<cmd::ClientConnection>()), "5\n");
    EXPECT_TRUE(mService.stopped());
    mShell.Stop();
}

using ExecuteDeathTest = ExecuteTest;

TEST_F(ExecuteDeathTest, FaultsOfWhoDeclaresCommandsAreFatal)
{
    const auto nothing = [] {};
    EXPECT_DEATH(mShell.AddAction("bool", nothing, ""), "Action names must be unique in a node");
    EXPECT_DEATH(mShell.AddAction("a b", nothing, ""), "Action names cannot contain spaces");
}

} // namespace
