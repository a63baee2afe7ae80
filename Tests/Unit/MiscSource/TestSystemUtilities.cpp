#include "MiscSource/SystemUtilities.h"

#include "Tests/Support/LogRecorder.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <unistd.h>

using testing::ElementsAre;

class SystemUtilitiesTest : public testing::Test
{
protected:
    ~SystemUtilitiesTest() override { std::remove(mErrors.c_str()); }

    const std::string mErrors = testing::TempDir() + "/SystemUtilities." + std::to_string(getpid()) + ".err";
    LogRecorder mLog;
};

TEST_F(SystemUtilitiesTest, SuccessLeavesNothingButTheCommandInTheLog)
{
    EXPECT_EQ(SystemWithStderr("(echo complaint >&2)", mErrors), 0);
    EXPECT_THAT(mLog.Lines(),
                ElementsAre("SystemWithStderr: command:(echo complaint >&2), err_file:" + mErrors + "\r\n"));
}

TEST_F(SystemUtilitiesTest, FailureIsLoggedWithTheStatusAndTheTextOfThisCallAlone)
{
    EXPECT_NE(SystemWithStderr("(echo a much longer complaint >&2; false)", mErrors), 0);
    EXPECT_EQ(SystemWithStderr("(echo no >&2; exit 1)", mErrors), 256);
    EXPECT_EQ(mLog.Lines().back(), "SystemWithStderr Error 256 StdErr no\n\r\n");
}

TEST_F(SystemUtilitiesTest, AHugeErrorFileIsNotTakenInWhole)
{
    EXPECT_EQ(SystemWithStderr("(head -c 10000000 /dev/zero | tr '\\0' x >&2; exit 3)", mErrors), 768);
    EXPECT_GT(mLog.Lines().back().size(), 4096u);
    EXPECT_LT(mLog.Lines().back().size(), 100000u);
}

TEST_F(SystemUtilitiesTest, ACommandThatTheShellWouldCutIsNotRun)
{
    EXPECT_EQ(SystemWithStderr(std::string("exit 1\0oops", 11), mErrors), -1);
}
