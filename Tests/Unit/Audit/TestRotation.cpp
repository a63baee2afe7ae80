#include "Tests/Unit/Audit/LogFixture.h"

#include <sys/stat.h>

#include <cstdlib>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::StartsWith;

constexpr std::size_t Limit = 0x100000;

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
    static void Log(KorvoAudit& audit, const std::string& line)
    {
        Console([&] { audit.Write("%s", line.c_str()); });
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

TEST_F(RotationTest, AGapClosesAsFilesMoveUp)
{
    MakeGeneration(1, "one");
    MakeGeneration(3, "three");
    MakeGeneration(4, "four");
    Fill(Path(), "current");
    StartWith("next");
    EXPECT_EQ(Generation(1), "current");
    EXPECT_EQ(Generation(2), "one");
    EXPECT_EQ(Generation(3), "none");
    EXPECT_EQ(Generation(4), "three");
    EXPECT_EQ(Generation(5), "four");
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

TEST_F(RotationTest, OnlyARegularFileRotates)
{
    Fill(Path("file"), "file");
    boost::filesystem::create_symlink(Path("file"), Path());
    StartWith(" and more");
    EXPECT_EQ(Read(Path("file")), "file and more");
    EXPECT_TRUE(boost::filesystem::is_symlink(Path()));
}

TEST_F(RotationTest, AnyPathReachesGzip)
{
    Fill(Path("it's my $log"), "old");
    {
        RecordingAudit audit(Path("it's my $log"));
    }
    boost::filesystem::rename(Path("it's my $log.1.gz"), Path("K2.log.1.gz"));
    EXPECT_EQ(Generation(1), "old");
}

TEST_F(RotationTest, AFailingGzipCostsOnlyTheOldLog)
{
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

/// A gzip that says when it has begun and ends when it is told to.
class SlowGzipTest : public RotationTest
{
protected:
    SlowGzipTest()
    {
        ::mkfifo(Path("begun").c_str(), 0600);
        ::mkfifo(Path("end").c_str(), 0600);
        UseGzip("echo begun > " + Path("begun") + "\nread line < " + Path("end") + "\nPATH=" + mPath +
                "\nexec gzip \"$@\"\n");
    }

    /// Does this while a rotation runs. The line that sets it off must come back although gzip does not.
    void WhileRotating(RecordingAudit& audit, const std::function<void()>& action)
    {
        std::thread gzip([&] { EXPECT_EQ(Read(Path("begun")), "begun\n"); });
        audit.Write("trigger\n");
        gzip.join();
        action();
        Fill(Path("end"), "now\n");
        audit.FinishRotation();
    }
};

TEST_F(SlowGzipTest, LinesHeldBackWhileARotationRunsComeFirstInTheNewFile)
{
    RecordingAudit audit(Path());
    FillTo(audit, Limit + 1);
    std::size_t tailed = 0;
    const std::string all = Console([&] {
        WhileRotating(audit, [&] {
            tailed = audit.Lines().size();
            audit.Write("held 1\n");
            audit.WriteFileOnly(0, 1, "held 2\n");
            audit.Write("%s", std::string(5000, 'y').c_str());
            EXPECT_EQ(audit.Lines().size(), tailed);
        });
    });
    const std::string overflow = "*** KorvoAudit buffer overflow, message truncated ***";
    const std::string cut(4095, 'y');
    // On the console at once, and once only.
    EXPECT_THAT(all, EndsWith("trigger\nheld 1\n" + overflow + "\n" + cut));
    EXPECT_EQ(Read(Path()), "trigger\nheld 1\n[00000001] held 2\n" + overflow + cut);
    const std::vector<std::string> lines = audit.Lines();
    EXPECT_THAT(std::vector<std::string>(lines.begin() + static_cast<std::ptrdiff_t>(tailed), lines.end()),
                ElementsAre("trigger\n", "held 1\n", "[00000001] held 2\n", overflow, cut));
}

TEST_F(SlowGzipTest, AHungGzipDoesNotEatTheMemory)
{
    RecordingAudit audit(Path());
    FillTo(audit, Limit + 1);
    Console([&] {
        WhileRotating(audit, [&] {
            for (int i = 0; i < 10002; ++i)
                audit.Write("%d\n", i);
        });
    });
    const std::string file = Read(Path());
    EXPECT_THAT(file, StartsWith("trigger\n0\n1\n2\n"));
    EXPECT_THAT(file,
                testing::ContainsRegex("\n9998\n\\[[^\n]*\\] 3 log lines were lost while the log was rotated\r\n$"));
    Log(audit, "after\n");
    EXPECT_THAT(Read(Path()), EndsWith("rotated\r\nafter\n"));
}

} // namespace
