#include "Simulation/Stage/LogFile.h"
#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

using namespace stage;
using testing::HasSubstr;

namespace {

constexpr int Generations = 5;

std::string OldLog(int generation)
{
    return "K2.log." + std::to_string(generation) + ".gz";
}

bool HasOldLog(int generation)
{
    return access(("/var/log/" + OldLog(generation)).c_str(), F_OK) == 0;
}

std::string ReadOldLog(int generation)
{
    ChildProcess zcat({{"zcat", "/var/log/" + OldLog(generation)}});
    EXPECT_EQ(zcat.Wait().Text(), "exit code 0");
    return zcat.Output();
}

class LogRotation : public testing::Test
{
protected:
    void SetUp() override
    {
        unlink(LogPath);
        for (int i = 1; i <= Generations; ++i)
            unlink(("/var/log/" + OldLog(i)).c_str());
    }
};

TEST_F(LogRotation, EveryStartBeginsANewFile)
{
    for (int run = 1; run <= Generations + 2; ++run) {
        Module module;
        ShellClient shell = module.OpenShell();
        shell.Type("run-" + std::to_string(run));
        LogFile().WaitForLine("CommandLine: Received run-" + std::to_string(run));
        EXPECT_EQ(HasOldLog(run - 1), run > 1 && run - 1 <= Generations);
        EXPECT_EQ(module.Stop().Text(), "exit code 0");
    }
    for (int generation = 1; generation <= Generations; ++generation) {
        EXPECT_THAT(ReadOldLog(generation), HasSubstr("run-" + std::to_string(Generations + 2 - generation) + "\r"));
    }
    EXPECT_FALSE(HasOldLog(Generations + 1));
}

TEST_F(LogRotation, AFullFileIsPutAwayAndNoLineIsLost)
{
    constexpr int Lines = 1500;
    const std::string filling(1000, '.');
    Module module;
    ShellClient shell = module.OpenShell();
    shell.StopTailing();
    for (int i = 0; i < Lines; ++i) {
        shell.Type("line-" + std::to_string(i) + "-" + filling);
        shell.Stream().TakeThrough("'\n");
    }
    LogFile().WaitForLine("Sent line-" + std::to_string(Lines - 1));

    std::string all;
    int files = 0;
    while (files < Generations && HasOldLog(files + 1))
        ++files;
    ASSERT_GE(files, 2);
    ASSERT_LT(files, Generations) << "too much was logged for this test to see all of it";
    for (int generation = files; generation >= 1; --generation) {
        const std::string old = ReadOldLog(generation);
        // The line that passes the limit is the last one.
        EXPECT_GT(old.size(), 0x100000u);
        EXPECT_LT(old.size(), 0x100000u + 5000);
        all += old;
    }
    all += LogFile().Text();

    std::size_t position = 0;
    for (int i = 0; i < Lines; ++i) {
        for (const std::string direction : {"Received line-", "Sent line-"}) {
            position = all.find("CommandLine: " + direction, position);
            ASSERT_NE(position, std::string::npos) << direction << i;
            const std::string expected = "CommandLine: " + direction + std::to_string(i) + "-.";
            ASSERT_EQ(all.substr(position, expected.size()), expected);
            position += expected.size();
        }
    }
}

} // namespace
