#include "Utilities/Watch/ShellSession.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace watch;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string Greeting = "\nOstrel command shell: OrbModule Wed Nov 25 09:43:38 2026\n"
                             "Type 'help' to see available commands.\n"
                             "Type 'cmd --help' to find out more about 'cmd'.\n";
const std::string Stamp = "[25/11/26 09:43:38] ";
const std::string Handshake = Greeting + Stamp + "CommandLine: Received tail false\r\ntrue\nOrbModule 1.0.2452\n" +
                              Stamp + "CommandLine: Sent tail Result\r\ntrue\n\r\n";

std::string Received(const std::string& command)
{
    return Stamp + "CommandLine: Received " + command + "\r\n";
}
std::string Sent(const std::string& command, const std::string& result)
{
    return Stamp + "CommandLine: Sent " + command + " Result\r\n" + result + "\r\n";
}
std::string Record(const std::string& hid)
{
    return Stamp + "KorvoHub " + hid +
           " \n\tPri Rem Address: 0.12.0.254Pri Link true\n\tSec Rem Address: 0.0.0.0 Sec Link "
           "false\n SR 48kHz:\n";
}

class Session : public testing::Test
{
protected:
    Session()
        : mSession({[this](const std::string& bytes) { mWritten += bytes; },
                    [this](const LogMessage& message) { mMessages.push_back(message.stamp + "|" + message.text); },
                    [this](const Reply& reply) { mReplies.push_back(reply); }, [this] { ++mReady; }})
    {}
    void Begin()
    {
        mSession.Feed(Handshake);
        mWritten.clear();
    }

    std::string mWritten;
    std::vector<std::string> mMessages;
    std::vector<Reply> mReplies;
    int mReady = 0;
    ShellSession mSession;
};

TEST_F(Session, LearnsTheVersionAndLeavesTheTailOn)
{
    mSession.Feed(Handshake);
    EXPECT_EQ(mWritten, "tail false\nversion\ntail true\n");
    EXPECT_EQ(mReady, 1);
    EXPECT_EQ(mSession.Version(), "OrbModule 1.0.2452");
    EXPECT_THAT(mMessages, IsEmpty());
}

/// Bytes come as they like; foreign lines in the middle of a listing belong to the log and not to the listing.
TEST_F(Session, ReadsAListingOutOfTheLog)
{
    Begin();
    mSession.Ask(ShellCommand::LocalAndRouting);
    EXPECT_EQ(mWritten, "sr\n");
    const std::string bytes = Record("0.1:8000") + Received("sr") + Stamp + "Local devices:\n" + Record("0.48:8000") +
                              Stamp + "A heartbeat send delay of 400ms has occurred on H0 \n" + Stamp +
                              "Remote devices:\n" + Sent("sr", "");
    for (const char byte : bytes)
        ASSERT_TRUE(mSession.Feed({&byte, 1}));
    ASSERT_EQ(mReplies.size(), 1u);
    EXPECT_FALSE(mReplies[0].cut);
    ASSERT_EQ(mReplies[0].records.size(), 3u);
    EXPECT_EQ(mReplies[0].records[1].substr(0, 18), "KorvoHub 0.48:8000");
    EXPECT_THAT(mMessages, ElementsAre("25/11/26 09:43:38|A heartbeat send delay of 400ms has occurred on H0"));
}

TEST_F(Session, ResultsInTheLogMayHoldEmptyLines)
{
    Begin();
    mSession.Ask(ShellCommand::Clocks);
    mSession.Feed(Received("clock/status") + Sent("clock/status", "Clock Ids: Internal (0)\n\n Id\n"));
    ASSERT_EQ(mReplies.size(), 1u);
    EXPECT_EQ(mReplies[0].result, "Clock Ids: Internal (0)\n\n Id\n\r\n");
}

/// The log holds 4095 bytes of a message and cuts off the rest, its line end included.
TEST_F(Session, AsksForALongResultPastTheLog)
{
    Begin();
    mSession.Ask(ShellCommand::Slots);
    const std::string cut = Sent("rs", "Link 0\n" + std::string(5000, 'x')).substr(0, 4095);
    mSession.Feed(Received("rs") + "*** KorvoAudit buffer overflow, message truncated ***" + cut);
    ASSERT_EQ(mReplies.size(), 1u);
    EXPECT_TRUE(mReplies[0].cut);

    mWritten.clear();
    mSession.AskWhole(ShellCommand::Slots);
    EXPECT_EQ(mWritten, "tail false\nrs\nversion\ntail true\n");
    // Another client turns its tail off meanwhile, and its reply in the log looks like ours.
    mSession.Feed(Received("tail false") + Sent("tail", "true\n") + Stamp + "Scanned\r\n" + Received("tail false") +
                  "true\nLink 0\n\tSlot 1\nOrbMod");
    mSession.Feed("ule 1.0.2452\n" + Sent("tail", "true\n") + Stamp + "Routers Disallowed\r\n");
    mSession.OnQuiet();
    ASSERT_EQ(mReplies.size(), 2u);
    EXPECT_EQ(mReplies[1].result, "Link 0\n\tSlot 1\n");
    EXPECT_THAT(mMessages, ElementsAre("25/11/26 09:43:38|Scanned", "25/11/26 09:43:38|Routers Disallowed"));
}

TEST_F(Session, DoesNotGrowWithoutEnd)
{
    Begin();
    mSession.AskWhole(ShellCommand::Slots);
    bool isSound = mSession.Feed("true\n");
    const std::string line(1024 * 1024, 'x');
    for (int i = 0; isSound && i < 100; ++i)
        isSound = mSession.Feed(line);
    EXPECT_FALSE(isSound);
}

} // namespace
