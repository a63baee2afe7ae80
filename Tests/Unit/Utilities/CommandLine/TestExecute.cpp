#include "Utilities/CommandLine/CommandLine.h"

#include <gmock/gmock.h>

namespace {

using cmd::action::MakeAction;

class ExecuteTest : public testing::Test
{
protected:
    ExecuteTest()
    {
        const auto add = [this](const char* name, auto action, const char* help = "") {
            mShell.AddAction(name, action, help);
        };
        add(
            "two", [](const std::string& a, const std::string& b) { return a + "|" + b; }, "Join two texts");
        add("int", [](int value) { return value; });
        add("long", [](long value) { return value; });
        add("ushort", [](unsigned short value) { return value; });
        add("ulong", [](const unsigned long& value) { return value; });
        add("bool", [](bool value) { return !value; });
        add(
            "none", [this] { ++mCalls; }, "Does nothing. Really.\nNothing\n");
        add(
            "mixed", [](unsigned a, const std::string& b, bool c) { return std::to_string(a) + b + (c ? "+" : "-"); },
            ".No brief");
        add("client", [](const std::shared_ptr<cmd::ClientConnection>&, int value) { return value; });
        add("throws", []() -> int { throw std::runtime_error("broken"); });
        const auto node = std::make_shared<cmd::Node>();
        node->Add("adma", {MakeAction(
                              "status", [] { return "routes"; }, "Show routes. All of them.")});
        node->Add("adma/deep/er", {MakeAction(
                                      "x", [] { return 1u; }, "Line\nrest")});
        mShell.AddNode(node);
    }

    int mCalls = 0;
    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, {boost::asio::ip::address_v4::loopback(), 0}, ""};
};

TEST_F(ExecuteTest, WhatIsTypedAndWhatIsAnswered)
{
    const std::string digits(70000, '9');
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
        {"int 2147483648", "error: arg 1: cannot convert '2147483648' to type 'int'\n"},
        {"long -2147483649", "error: arg 1: cannot convert '-2147483649' to type 'long'\n"},
        {"int +-5", "error: arg 1: cannot convert '+-5' to type 'int'\n"},
        {"int 0x5", "error: arg 1: cannot convert '0x5' to type 'int'\n"},
        {"int 5\tx", "error: arg 1: cannot convert '5\tx' to type 'int'\n"},
        {"int " + digits, "error: arg 1: cannot convert '" + digits + "' to type 'int'\n"},
        {"int 000000000000000000007", "7\n"},
        {"ushort 70000", "4464\n"},
        {"ulong 4294967295", "4294967295\n"},
        {"ulong 4294967296", "error: arg 1: cannot convert '4294967296' to type 'unsigned long'\n"},
        {"ulong -5", "error: arg 1: cannot convert '-5' to type 'unsigned long'\n"},
        {"ulong +5", "error: arg 1: cannot convert '+5' to type 'unsigned long'\n"},
        {"bool true", "false\n"},
        {"bool 0", "true\n"},
        {"mixed 1 b 1", "1b+\n"},
        {"mixed 1 b True", "error: arg 3: cannot convert 'True' to type 'bool'\n"},
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
        EXPECT_EQ(mShell.Execute(line), result) << line.substr(0, 80);
    EXPECT_EQ(mCalls, 1);
}

TEST_F(ExecuteTest, ListingOfTheWholeTree)
{
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
                                      "ulong          \n"
                                      "ushort         \n"
                                      "adma/status    Show routes\n"
                                      "adma/deep/er/x Line\n\n");
}

TEST_F(ExecuteTest, AContextOfTheWrongTypeGivesNothingAndSaysSoOnStandardError)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(mShell.Execute("client 5"), "");
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(mShell.Execute("client 5", std::shared_ptr<cmd::ClientConnection>()), "5\n");
}

TEST(TreeDeathTest, FaultsOfWhoDeclaresCommandsAreFatal)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const auto action = [](const std::string& id) {
        return MakeAction(
            id, [] {}, "");
    };
    cmd::Node node;
    node.Add("adma", {action("a")});
    node.Add("adma/child", {action("a")});
    cmd::NodeManager manager;
    manager.GetRoot().AddNode(std::make_shared<cmd::Node>());
    const std::pair<std::function<void()>, const char*> cases[] = {
        {[&] { node.Add("", {}); }, "Nodes must have a name"},
        {[&] { node.Add("other", {}); }, "Child nodes must have same root"},
        {[&] { node.Add("adma/child", {}); }, "Child node names must be unique"},
        {[&] { node.Add("adma", {action("a")}); }, "Action names must be unique in a node"},
        {[&] { node.Add("adma", {action("b/c")}); }, "Action ids cannot contain the path separator"},
        {[&] { manager.GetRoot().AddNode(std::make_shared<cmd::Node>()); }, "Top level node names must be unique"},
        {[] { cmd::Node::ValidateActionName("a b"); }, "Action names cannot contain spaces"},
        {[] { cmd::Node::ValidateActionName("  "); }, "CommandLine actions must have a non-empty identifier\\."},
    };
    for (const auto& [fault, text] : cases)
        EXPECT_DEATH(fault(), text);
}

} // namespace
