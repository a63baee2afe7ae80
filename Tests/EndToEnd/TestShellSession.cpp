#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stage;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char VersionReply[] = "OrbModuleSim 1.0.2452\n";

class ShellSession : public testing::Test
{
protected:
    Module mModule;
};

TEST_F(ShellSession, GreetsAndAnswers)
{
    ShellClient shell = mModule.OpenShell();
    EXPECT_THAT(shell.Greeting(), StartsWith("\nOstrel command shell: OrbModuleSim "));
    EXPECT_THAT(shell.Greeting(), EndsWith("\nType 'help' to see available commands.\n"
                                           "Type 'cmd --help' to find out more about 'cmd'.\n"));
    shell.StopTailing();

    struct Exchange
    {
        std::string line;
        std::string reply;
    };
    for (const Exchange& exchange : std::vector<Exchange>{
             {"version", VersionReply},
             {"", ""},
             {"nosuch/one 1", "unrecognised command 'nosuch/one'\n"},
             {"adma/mute perhaps", "error: arg 1: cannot convert 'perhaps' to type 'bool'\n"},
             {"patch 0 5", "error: 'patch' expects 4 argument(s), 2 provided\n"},
             {"quit --help", "Terminate the application\n\nUsage: quit\n"},
             {"adma/patch nosuch k0", "Error: Unknown or invalid source 'nosuch'\n"},
         }) {
        EXPECT_EQ(shell.Ask(exchange.line), exchange.reply) << exchange.line;
    }
    EXPECT_THAT(shell.Ask("help"), HasSubstr("adma/clear_all "));
}

TEST_F(ShellSession, TailsTheLogToEachClientThatWantsIt)
{
    ShellClient first = mModule.OpenShell();
    ShellClient second = mModule.OpenShell();
    ShellClient direct = mModule.OpenShell();
    direct.StopTailing();

    first.Type("version");
    for (ShellClient* client : {&first, &second}) {
        EXPECT_THAT(client->Stream().TakeThrough("CommandLine: Received version\r"), HasSubstr("] "));
        EXPECT_THAT(client->Stream().TakeThrough("CommandLine: Sent version Result\r\nOrbModuleSim 1.0.2452\n\r\n"),
                    Not(HasSubstr("Received")));
    }
    // Nothing of the log until it is wanted again; then the reply is a line of the log and comes once.
    direct.Type("tail true");
    EXPECT_THAT(direct.Stream().TakeThrough("CommandLine: Sent tail Result\r\ntrue\n\r\n"), Not(HasSubstr("Received")));
    first.Type("mark");
    EXPECT_THAT(direct.Stream().TakeThrough("CommandLine: Received mark\r"), Not(HasSubstr("true\n")));
}

TEST_F(ShellSession, CutsTheStreamIntoLines)
{
    ShellClient shell = mModule.OpenShell();
    shell.StopTailing();
    ShellClient other = mModule.OpenShell();
    other.StopTailing();

    shell.Stream().Send("ver");
    // Once the other client has its answer the module has seen the first piece too.
    EXPECT_EQ(other.Ask("version"), VersionReply);
    shell.Stream().Send("sion\r\n");
    EXPECT_EQ(shell.Stream().TakeThrough("\n"), VersionReply);

    shell.Stream().Send("version\r\nfirst\r\nsecond\n");
    EXPECT_EQ(shell.Stream().TakeThrough("'second'\n"),
              std::string(VersionReply) + "unrecognised command 'first'\nunrecognised command 'second'\n");
}

} // namespace
