#include "MiscSource/SystemUtilities.h"

#include "Tests/Support/LogRecorder.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

TEST(SystemUtilities, AFailureIsLoggedWithTheStatusAndTheErrorsOfThisCallAlone)
{
    const LogRecorder log;
    const std::string errors = testing::TempDir() + "/SystemUtilities." + std::to_string(getpid()) + ".err";
    EXPECT_EQ(SystemWithStderr("(echo a much longer complaint >&2)", errors), 0);
    EXPECT_EQ(log.Lines().back(),
              "SystemWithStderr: command:(echo a much longer complaint >&2), err_file:" + errors + "\r\n");
    EXPECT_EQ(SystemWithStderr("(echo no >&2; exit 1)", errors), 256);
    EXPECT_EQ(log.Lines().back(), "SystemWithStderr Error 256 StdErr no\n\r\n");
    EXPECT_EQ(SystemWithStderr("(head -c 10000000 /dev/zero | tr '\\0' x >&2; exit 3)", errors), 768);
    EXPECT_EQ(log.Lines().back(), "SystemWithStderr Error 768 StdErr " + std::string(65536, 'x') + "\r\n");
    EXPECT_EQ(SystemWithStderr(std::string("exit 1\0oops", 11), errors), -1) << "the shell would cut it";
    std::remove(errors.c_str());
}
