#include "Tests/Unit/Audit/LogFixture.h"

#include <malloc.h>
#include <sys/stat.h>

#include <cstdlib>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr std::size_t Limit = 0x100000;
const std::string Overflow = "*** KorvoAudit buffer overflow, message truncated ***";

class RotationTest : public LogTest
{
protected:
    ~RotationTest() override { ::setenv("PATH", mPath.c_str(), 1); }

    /// Puts a script in the place of gzip until the end of the test.
    void UseGzip(const std::string& script)
    {
        boost::filesystem::create_directory(Path("bin"));
        Fill(Path("bin/gzip"), "#!/bin/sh\n" + script);
        ::chmod(Path("bin/gzip").c_str(), 0755);
        ::setenv("PATH", (Path("bin") + ":" + mPath).c_str(), 1);
    }
    static void FillTo(KorvoAudit& audit, std::size_t size)
    {
        Console([&] {
            for (; size >= 1024; size -= 1024)
                audit.Write("%s\n", std::string(1023, 'f').c_str());
            if (size != 0) audit.Write("%s", std::string(size, 'r').c_str());
        });
    }
    void StartWith(const std::string& line)
    {
        RecordingAudit audit(Path());
        Log(audit, line);
    }
    void MakeGeneration(int number, const std::string& content)
    {
        const std::string path = Path() + "." + std::to_string(number);
        Fill(path, content);
        ASSERT_EQ(std::system(("gzip " + path).c_str()), 0);
    }

    const std::string mPath = std::getenv("PATH");
};

TEST_F(RotationTest, AGapClosesAsFilesMoveUpAndTheFifthIsTheLast)
{
    MakeGeneration(1, "one");
    MakeGeneration(3, "three");
    MakeGeneration(4, "four");
    MakeGeneration(5, "five");
    Fill(Path(), "current");
    StartWith("next");
    const char* const expected[] = {"current", "one", "none", "three", "four", "none"};
    for (int i = 1; i <= 6; ++i)
        EXPECT_EQ(Generation(i), expected[i - 1]) << i;
}

TEST_F(RotationTest, OnlyAFileAboveTheLimitRotates)
{
    RecordingAudit audit(Path());
    FillTo(audit, Limit);
    Log(audit, "at the limit\n");
    EXPECT_EQ(Generation(1), "none");
    Log(audit, "above it\n");
    audit.FinishRotation();
    EXPECT_EQ(Read(Path()), "above it\n");
    EXPECT_THAT(Generation(1), EndsWith("f\nat the limit\n"));
}

TEST_F(RotationTest, OnlyARegularFileRotatesWhateverItsPathAndAFailingGzipCostsOnlyTheOldLog)
{
    Fill(Path("file"), "file");
    boost::filesystem::create_symlink(Path("file"), Path());
    StartWith(" and more");
    EXPECT_EQ(Read(Path("file")), "file and more");
    EXPECT_TRUE(boost::filesystem::is_symlink(Path()));
    boost::filesystem::remove(Path());

    Fill(Path("it's my $log"), "old");
    const RecordingAudit audit(Path("it's my $log"));
    boost::filesystem::rename(Path("it's my $log.1.gz"), Path("K2.log.1.gz"));
    EXPECT_EQ(Generation(1), "old");
    boost::filesystem::remove(Path("K2.log.1.gz"));

    UseGzip("exit 1\n");
    Fill(Path(), "old");
    StartWith("new");
    EXPECT_EQ(Read(Path()), "new");
    EXPECT_EQ(Generation(1), "none");
    EXPECT_FALSE(boost::filesystem::exists(Path() + ".1"));
}

TEST_F(RotationTest, AFailedRotationHaltsTheFileButNotTheLog)
{
    RecordingAudit audit(Path());
    // A file cannot be renamed onto a directory.
    MakeGeneration(4, "four");
    boost::filesystem::create_directory(Path() + ".5.gz");
    FillTo(audit, Limit + 1);
    const std::size_t before = audit.Lines().size();
    Log(audit, "line\n");
    audit.FinishRotation();
    Log(audit, "later\n");
    auto lines = audit.Lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    ASSERT_THAT(lines, ElementsAre(AllOf(StartsWith("Failed to rotate logs, logging to file halted: "), EndsWith("\n")),
                                   "line\n", "later\n"));
    EXPECT_THAT(Read(Path()), EndsWith(lines[0]));
}

TEST_F(RotationTest, WhatAFailedRotationHeldBackIsDropped)
{
    // The file that is to be removed at the end becomes a directory that is not empty.
    UseGzip("until [ -e " + Path("end") + " ]; do sleep 0.01; done\nrm \"$2\"\nmkdir -p \"$2/full\"\n");
    RecordingAudit audit(Path());
    FillTo(audit, Limit + 1);
    const std::size_t before = audit.Lines().size();
    const std::size_t memory = ::mallinfo2().uordblks;
    for (int i = 0; i < 5000; ++i)
        Log(audit, std::string(1023, 'h') + "\n");
    EXPECT_EQ(audit.Lines().size(), before);
    Fill(Path("end"), "");
    audit.FinishRotation();
    EXPECT_LT(::mallinfo2().uordblks, memory + 2000000);
    Log(audit, "later\n");
    const auto lines = audit.Lines();
    ASSERT_EQ(lines.size(), before + 2);
    EXPECT_THAT(lines[before], StartsWith("Failed to rotate logs, "));
    EXPECT_EQ(lines[before + 1], "later\n");
}

TEST_F(RotationTest, LinesHeldBackWhileARotationRunsComeFirstInTheNewFileUpToALimit)
{
    // A gzip that says when it has begun and ends on request.
    ::mkfifo(Path("begun").c_str(), 0600);
    ::mkfifo(Path("end").c_str(), 0600);
    UseGzip("echo begun > " + Path("begun") + "\nread line < " + Path("end") + "\nPATH=" + mPath +
            "\nexec gzip \"$@\"\n");
    for (const bool isFlooded : {false, true}) {
        RecordingAudit audit(Path());
        FillTo(audit, Limit + 1);
        std::size_t tailed = 0;
        const std::string console = Console([&] {
            std::thread gzip([&] { EXPECT_EQ(Read(Path("begun")), "begun\n"); });
            // The line that sets the rotation off comes back although gzip does not.
            audit.Write("trigger\n");
            gzip.join();
            tailed = audit.Lines().size();
            audit.Write("held 1\n");
            audit.WriteFileOnly(0, 1, "held 2\n");
            audit.Write("%s", std::string(5000, 'y').c_str());
            for (int i = 0; isFlooded && i < 10000; ++i)
                audit.Write("\n%d", i);
            EXPECT_EQ(audit.Lines().size(), tailed);
            Fill(Path("end"), "now\n");
            audit.FinishRotation();
        });
        const std::vector<std::string> held = {"trigger\n", "held 1\n", "[00000001] held 2\n", Overflow,
                                               std::string(4095, 'y')};
        const std::string text = held[0] + held[1] + held[2] + held[3] + held[4];
        const std::vector<std::string> lines = audit.Lines();
        EXPECT_TRUE(std::equal(held.begin(), held.end(), lines.begin() + static_cast<std::ptrdiff_t>(tailed)));
        if (isFlooded) {
            EXPECT_THAT(Read(Path()), StartsWith(text + "\n0\n1\n2\n"));
            EXPECT_THAT(Read(Path()), testing::ContainsRegex(
                                          "\n9994\\[[^\n]*\\] 5 log lines were lost while the log was rotated\r\n$"));
        } else {
            // On the console at once, and once only.
            EXPECT_THAT(console, EndsWith("trigger\nheld 1\n" + Overflow + "\n" + held[4]));
            EXPECT_EQ(Read(Path()), text);
            EXPECT_EQ(lines.size(), tailed + held.size());
        }
        Log(audit, "after\n");
        EXPECT_THAT(Read(Path()), EndsWith("after\n"));
        boost::filesystem::remove(Path());
    }
}

} // namespace
