#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Utilities/CommandLine/Shell.scenes.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <boost/algorithm/string/trim.hpp>
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
        add("calls", "Those of 'none'", [this] { return mCalls; });
        add("client", "", [](const std::shared_ptr<cmd::ClientConnection>&, int value) { return value; });
        add("throws", "", [](char, wchar_t, short, unsigned long) -> int { throw std::runtime_error("broken"); });
        const auto node = std::make_shared<cmd::Node>();
        const auto one = [] { return 1u; };
        node->Add("adma/deep/er", {MakeAction("x", one, "Line\nrest")});
        const auto status = [] { return "routes"; };
        node->Add("adma", {MakeAction("status", status, "Show routes. All of them.")});
        mShell.AddNode(node);
    }

    int mCalls = 0;
    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, {boost::asio::ip::address_v4::loopback(), 0}, ""};
};

class ShellScene : public ExecuteTest, public testing::WithParamInterface<Scene>
{};

TEST_P(ShellScene, AnswersAsWritten)
{
    ExpectTranscript(GetParam().script, [this](const std::string& line) {
        Lines answer;
        std::istringstream text(boost::trim_right_copy(mShell.Execute(line)));
        for (std::string part; std::getline(text, part);)
            answer.push_back(part);
        return answer;
    });
}
INSTANTIATE_TEST_SUITE_P(, ShellScene, testing::ValuesIn(ScenesOf(ShellScenes)), NameOfScene);

TEST_F(ExecuteTest, LinesAndResultsAreReportedAndQuitStopsTheService)
{
    std::string reported;
    mShell.SetReceivedCallback([&](const std::string& line) { reported += "<" + line; });
    mShell.SetSentCallback([&](const auto& name, const auto& result) { reported += ">" + name + "=" + result; });
    // A context of the wrong type gives nothing, and a line on standard error.
    testing::internal::CaptureStderr();
    for (const char* line : {" two a b \r", " ", "none", "client 5", "int 5\tx", "quit"})
        mShell.Execute(line);
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(reported, "< two a b \r>two=a|b\n<none>none=<client 5>client="
                        "<int 5\tx>int=error: arg 1: cannot convert '5\tx' to type 'int'\n<quit>quit=");
    EXPECT_EQ(mShell.Execute("client 5", std::shared_ptr<cmd::ClientConnection>()), "5\n");
    EXPECT_TRUE(mService.stopped());
    mShell.Stop();
}

using ExecuteDeathTest = ExecuteTest;

TEST_F(ExecuteDeathTest, FaultsOfWhoDeclaresCommandsAreFatal)
{
    const auto nothing = [] {};
    EXPECT_DEATH(mShell.AddAction("bool", nothing, ""), "Action names must be unique in a node");
    EXPECT_DEATH(mShell.AddAction("a b", nothing, ""), "Fatal: Action names cannot contain spaces \\(.*Node.cpp:[1-9]");
}

} // namespace
