#include "Audit/DebugConfigure.h"
#include "Audit/KorvoAudit.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/Joined.h"

#include <boost/filesystem.hpp>
#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <thread>

#include <malloc.h>
#include <stdio_ext.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;

const std::string Overflow = "*** KorvoAudit buffer overflow, message truncated ***";
const std::string Stamp = "\\[[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\]";

/// A log whose lines for the tail are kept.
class RecordingAudit : public KorvoAudit
{
public:
    using KorvoAudit::FinishRotation;
    using KorvoAudit::KorvoAudit;
    ~RecordingAudit() override { FinishRotation(); }

    void OnLogLine(const std::string& line) override
    {
        // Another thread logs while the lines that were held back are written.
        if (line == "held 1\n") std::thread([this] { Write("late\n"); }).join();
        const std::lock_guard<std::mutex> lock(mLock);
        lines.push_back(line);
    }
    std::string Text()
    {
        const std::lock_guard<std::mutex> lock(mLock);
        std::string text;
        for (const std::string& line : lines)
            text += line;
        return text;
    }

    /// For when no other thread logs.
    std::vector<std::string> lines;

private:
    std::mutex mLock;
};

/// A directory of its own for the log of a test.
class LogTest : public testing::Test
{
protected:
    LogTest() { boost::filesystem::create_directories(mDirectory); }
    ~LogTest() override { boost::filesystem::remove_all(mDirectory); }

    static void Log(KorvoAudit& audit, const std::string& text)
    {
        Console([&] { audit.Write("%s", text.c_str()); });
    }
    std::string Path(const std::string& name = "K2.log") const { return (mDirectory / name).string(); }
    static std::string Read(const std::string& path)
    {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    static void Fill(const std::string& path, const std::string& content)
    {
        std::ofstream(path, std::ios::binary) << content;
    }
    /// The content of a gzipped generation, unpacked by the real tool; "none" if it is not there.
    std::string Generation(int number) const
    {
        const std::string path = Path() + "." + std::to_string(number) + ".gz";
        if (!boost::filesystem::exists(path)) return "none";
        EXPECT_EQ(std::system(("gzip -dc " + path + " > " + Path("unpacked")).c_str()), 0);
        return Read(Path("unpacked"));
    }
    /// What the action prints on standard output.
    static std::string Console(const std::function<void()>& action)
    {
        testing::internal::CaptureStdout();
        action();
        return testing::internal::GetCapturedStdout();
    }

private:
    const boost::filesystem::path mDirectory =
        boost::filesystem::temp_directory_path() / boost::filesystem::unique_path("orb-log-%%%%-%%%%-%%%%");
};

TEST(Features, SevenAreOnFromTheStartAndNumbersOutsideTheTableAreOff)
{
    Audit audit;
    audit.SetEnabled(207, 1);
    audit.SetEnabled(0xFFFFFFFF, 1);
    std::string on;
    for (std::uint32_t id = 0; id <= 207; ++id)
        if (audit.IsEnabled(id)) on += std::to_string(id) + " ";
    EXPECT_EQ(on, "0 1 2 3 46 66 68 ");
    EXPECT_FALSE(audit.IsEnabled(0xFFFFFFFF));
}

TEST(Features, NamesAndNumbersBelongTogether)
{
    const std::pair<std::uint32_t, const char*> rows[] = {
        {0, "Assert"}, {87, "DownMix Debug"}, {122, "IODiscovery"}, {206, "OutputPatchReadDebug"}};
    for (const auto& [id, name] : rows) {
        EXPECT_EQ(GetFeatureName(id), name);
        EXPECT_EQ(GetFeatureId(name), static_cast<std::int32_t>(id));
    }
    EXPECT_EQ(GetFeatureName(0xFFFFFFFF), "MaxDebugLevels");
    for (const char* const unknown : {"MaxDebugLevels", "assert", "Asser", "Assert ", ""})
        EXPECT_EQ(GetFeatureId(unknown), -1) << unknown;
}

TEST_F(LogTest, StampIsDayFirstInUtcPlusTheOffset)
{
    Audit audit;
    const auto stampAt = [&](std::time_t time) {
        audit.SetTimeOffset(static_cast<std::int32_t>(time - std::time(nullptr)));
        return Console([&] { audit.WriteStamped(1, "x"); });
    };
    EXPECT_THAT(stampAt(1794906485), MatchesRegex("\\[17/11/26 09:08:0[5-9]\\]x"));
    EXPECT_THAT(stampAt(915148800), MatchesRegex("\\[01/01/99 00:00:0[0-4]\\]x")) << "the last century";
    EXPECT_THAT(stampAt(946684800), MatchesRegex("\\[01/01/00 00:00:0[0-4]\\]x")) << "its end";
}

TEST_F(LogTest, FailedAssertionIsWrittenAndItsMessageOnlyUnderItsFeature)
{
    Audit::SetInstance(std::make_unique<RecordingAudit>(Path()).release());
    const auto fail = [] { EXPECT_FALSE(AUDIT_ASSERT_MESSAGE(1 + 1 == 3, std::string("two\n"))); };
    const std::string failed = Stamp +
                               " \\[40000002\\] Assert failed in file [^.]*Tests/Unit/Audit/TestAudit.cpp at line "
                               "[0-9]+ - 1 \\+ 1 == 3\r\n";
    EXPECT_THAT(Console(fail), MatchesRegex(failed + Stamp + " two\n"));
    Audit::Instance()->SetEnabled(0, 0);
    EXPECT_THAT(Console(fail), MatchesRegex(failed));
    EXPECT_THAT(Console([] { AuditAssertFailed("../../Audit/Audit.h", 7, "c", "off\n"); }),
                MatchesRegex(Stamp + " \\[40000002\\] Assert failed in file Audit/Audit.h at line 7 - c\r\n"));
    const auto others = [] {
        EXPECT_TRUE(AUDIT_ASSERT(true));
        AUDIT_LOG(IODiscovery, "off\n");
        AUDIT_STREAM(IODiscovery, "off\n");
        AUDIT_STREAM(Information, "100% " << 5 << "\n");
    };
    EXPECT_THAT(Console(others), MatchesRegex(Stamp + " 100% 5\n"));
    Audit::SetInstance(nullptr);
}

TEST_F(LogTest, TheDebugFileSwitchesTheFeaturesThatItsWordsName)
{
    const std::string path = Path("debug.conf");
    const auto read = [&] { return Console([&] { DebugConfigure::Instance().ReadFile(path); }); };
    // What the file does is logged whatever features are on.
    Audit::SetInstance(nullptr);
    for (std::uint32_t id = 0; id < MaxDebugLevels; ++id)
        Audit::Instance()->SetEnabled(id, 0);
    EXPECT_EQ(read(), "DebugConfig : unable to access File '" + path + "'.\n");
    const std::string head = "DebugConfig : Reading File '" + path + "' ...\n";
    const std::string unknown = "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature ";
    const std::pair<const char*, std::string> cases[] = {
        {"\n \t \n\nInformation on IODiscovery\t 9\n",
         "Debug Feature Information (3) is Off\r\nDebug Feature IODiscovery (122) is On\r\n"
         "Debug Feature KLVDebug (9) is On\r\n"},
        {"on 0 off 1 on 000206\n3", "Debug Feature Assert (0) is On\r\nDebug Feature Invalid (1) is Off\r\n"
                                    "Debug Feature OutputPatchReadDebug (206) is On\r\n"
                                    "Debug Feature Information (3) is Off\r\n"},
        {"on 207", "DebugId 207 MaxDebugLevels 207 Assert 0\r\nFeature 207 is unknown \r\n"},
        {"on 12x 4294967296 1", "Debug: What does :12x mean?\r\nDebug: What does :4294967296 mean?\r\n"
                                "Debug Feature Invalid (1) is On\r\n"},
        {"# On -1", unknown + "# is unknown \r\n" + unknown + "On is unknown \r\n" + unknown + "-1 is unknown \r\n"},
    };
    for (const auto& [content, output] : cases) {
        Fill(path, content);
        EXPECT_EQ(read(), head + output) << content;
    }
    EXPECT_TRUE(Audit::IsOn(DebugFeature::IODiscovery) && !Audit::IsOn(DebugFeature::Information));
    // Of an endless word only the beginning is kept.
    Fill(path, std::string(3 << 20, 'a') + " 5");
    EXPECT_EQ(read(),
              head + unknown + std::string(1024, 'a') + " is unknown \r\nDebug Feature ResourceDebug (5) is Off\r\n");
    boost::filesystem::remove(path);
    boost::filesystem::create_directory(path);
    EXPECT_EQ(read(), head);
    Audit::SetInstance(nullptr);
}

TEST_F(LogTest, EachOperationReachesConsoleFileAndTailInItsShape)
{
    Audit plain;
    RecordingAudit withFile(Path());
    Audit* log = nullptr;
    const std::string format = "%d%s\n";
    // What it prints without a file, its line with one, and whether the console shows that.
    const std::tuple<std::function<void()>, std::string, std::string, bool> cases[] = {
        {[&] { log->Write("a%d\n", 1); }, "a1\n", "a1\n", true},
        {[&] { log->WriteTagged(0x10000000, "b%d\n", 2); }, "b2\n", "\\[10000000\\] b2\n", true},
        {[&] { log->WriteStamped(1, "c%s\n", "%d"); }, Stamp + "c%d\n", Stamp + " c%d\n", true},
        {[&] { log->WriteStamped(2, "d\n"); }, "d\n", "d\n", true},
        {[&] { log->WriteStampedTagged(1, 0x4000, "e\n"); }, Stamp + "e\n", Stamp + " \\[00004000\\] e\n", true},
        {[&] { log->WriteStampedTagged(0, 0xAB, "f\n"); }, "f\n", "\\[000000ab\\] f\n", true},
        {[&] { log->WriteFileOnly(1, 5, "g\n"); }, Stamp + "g\n", Stamp + " \\[00000005\\] g\n", false},
        {[&] { log->Write(format, 8, "i"); }, "8i\n", "8i\n", true},
        {[&] { log->WriteTagged(7, format, 8, "i"); }, "8i\n", "\\[00000007\\] 8i\n", true},
        {[&] { log->WriteStamped(0, format, 8, "i"); }, "8i\n", "8i\n", true},
        {[&] { log->WriteStampedTagged(0, 7, format, 8, "i"); }, "8i\n", "\\[00000007\\] 8i\n", true},
        {[&] { log->WriteFileOnly(0, 7, format, 8, "i"); }, "8i\n", "\\[00000007\\] 8i\n", false},
    };
    for (const auto& [write, printed, shape, isOnConsole] : cases) {
        log = &plain;
        EXPECT_THAT(Console(write), MatchesRegex(printed));
        log = &withFile;
        const std::string console = Console(write);
        const std::string line = withFile.lines.back();
        EXPECT_THAT(line, MatchesRegex(shape));
        EXPECT_EQ(console, isOnConsole ? line : "");
    }
    EXPECT_EQ(Console([&] { log->WriteConsole("only %s\n", "here"); }), "only here\n");
    EXPECT_EQ(Console([&] { log->WriteConsole(format, 8, "i"); }), "8i\n");
    EXPECT_EQ(withFile.lines.size(), std::size(cases));
    EXPECT_EQ(Read(Path()), withFile.Text());
}

TEST_F(LogTest, OverflowIsAQuestionOfTheMessageAlone)
{
    RecordingAudit audit(Path());
    // The stamp takes room, but only a message that is too long for the buffer says so.
    Console([&] { audit.WriteStamped(1, "%s", std::string(4096, 'x').c_str()); });
    EXPECT_EQ(audit.Text().size(), 4095u);
    const std::string tooLong(5000, 'y');
    EXPECT_EQ(Console([&] { audit.Write("%s", tooLong.c_str()); }), Overflow + "\n" + std::string(4095, 'y'));
    EXPECT_EQ(Console([&] { audit.WriteFileOnly(0, 1, "%s", tooLong.c_str()); }), "");
    EXPECT_THAT(audit.lines, ElementsAre(testing::_, Overflow, std::string(4095, 'y'), Overflow,
                                         "[00000001] " + std::string(4084, 'y')));
    EXPECT_EQ(Read(Path()), audit.Text());
}

TEST_F(LogTest, WithoutAFileLinesStillReachConsoleAndTail)
{
    const std::string path = Path("missing/K2.log");
    std::unique_ptr<RecordingAudit> audit;
    // What is not flushed is lost.
    EXPECT_EQ(Console([&] { audit = std::make_unique<RecordingAudit>(path), __fpurge(stdout); }),
              "Failed to open log file '" + path + "', output to console only\n");
    EXPECT_EQ(Console([&] { audit->Write("on\n"), __fpurge(stdout); }), "on\n");
    EXPECT_EQ(Console([&] { audit->Write("%s", std::string(5000, 'y').c_str()); }),
              Overflow + "\n" + std::string(4095, 'y'));
    EXPECT_THAT(audit->lines, ElementsAre("on\n", std::string(4095, 'y')));
}

TEST_F(LogTest, LogsFromManyThreadsStayWholeLines)
{
    RecordingAudit audit(Path());
    const auto log = [&audit] {
        for (int i = 0; i < 5000; ++i)
            audit.Write("a line of %s\n", "a thread");
    };
    Console([&] {
        std::thread other(log);
        log();
        other.join();
    });
    EXPECT_THAT(audit.lines, testing::AllOf(testing::SizeIs(10000), testing::Each("a line of a thread\n")));
    EXPECT_TRUE(Read(Path()) == audit.Text());
}

TEST_F(LogTest, AFullDiskCostsOnlyTheLinesThatFindItFull)
{
    RecordingAudit audit(Path());
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full{4, limit.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    audit.WriteFileOnly(0, 1, "lost\n");
    ::setrlimit(RLIMIT_FSIZE, &limit);
    Log(audit, "later\n");
    EXPECT_THAT(Read(Path()), EndsWith("later\n"));
}

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
            for (; size > 1000; size -= 1000)
                audit.Write("%s", std::string(1000, 'f').c_str());
            audit.Write("%s", std::string(size, 'f').c_str());
        });
    }
    void StartWith(const std::string& line)
    {
        RecordingAudit audit(Path());
        Log(audit, line);
    }
    void MakeGeneration(const std::string& number, const std::string& content)
    {
        ASSERT_EQ(std::system(("printf " + content + " | gzip > " + Path() + "." + number + ".gz").c_str()), 0);
    }

    const std::string mPath = std::getenv("PATH");
};

TEST_F(RotationTest, AGapClosesAsFilesMoveUpAndTheFifthIsTheLast)
{
    for (const char* const number : {"0", "1", "3", "4", "5"})
        MakeGeneration(number, number);
    Fill(Path(), "current");
    StartWith("next");
    EXPECT_EQ(Joined(Generation(1), Generation(2), Generation(3), Generation(4), Generation(5), Generation(6)),
              "current|1|none|3|4|none|");
}

TEST_F(RotationTest, OnlyAFileAboveTheLimitRotates)
{
    std::optional<KorvoAudit> audit(std::in_place, Path());
    FillTo(*audit, Limit);
    Log(*audit, "!");
    EXPECT_EQ(Generation(1), "none");
    Log(*audit, "above it\n");
    FillTo(*audit, Limit);
    Await([&] { return Generation(2) != "none"; }, [&] { Log(*audit, "!"); });
    audit.reset();
    EXPECT_THAT(Generation(2), EndsWith("f!"));
    EXPECT_THAT(Generation(1), StartsWith("above it\nf"));
}

TEST_F(RotationTest, OnlyARegularFileRotatesWhateverItsPathAndAFailingGzipCostsOnlyTheOldLog)
{
    Fill(Path("file"), "file");
    boost::filesystem::create_symlink(Path("file"), Path());
    StartWith(" and more");
    EXPECT_EQ(Read(Path("file")), "file and more");
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
    MakeGeneration("4", "four");
    boost::filesystem::create_directory(Path() + ".5.gz");
    FillTo(audit, Limit + 1);
    const std::size_t before = audit.Text().size();
    const std::string console = Console([&] {
        audit.Write("line\n");
        audit.FinishRotation();
        audit.Write("later\n");
    });
    const std::string halted = console.substr(0, console.find('\n') + 1);
    EXPECT_THAT(halted, StartsWith("Failed to rotate logs, logging to file halted: "));
    EXPECT_EQ(console, halted + "line\nlater\n");
    EXPECT_EQ(audit.Text().substr(before), console);
    EXPECT_EQ(Read(Path()).substr(before), halted);
}

TEST_F(RotationTest, WhatAFailedRotationHeldBackIsDropped)
{
    // The file that is to be removed at the end becomes a directory that is not empty.
    UseGzip("until [ -e " + Path("end") + " ]; do sleep 0.01; done\nrm \"$2\"\nmkdir -p \"$2/full\"\n");
    RecordingAudit audit(Path());
    FillTo(audit, Limit + 1);
    const std::size_t before = audit.Text().size();
    const std::size_t memory = ::mallinfo2().uordblks;
    for (int i = 0; i < 5000; ++i)
        Log(audit, std::string(1023, 'h') + "\n");
    EXPECT_EQ(audit.Text().size(), before);
    Fill(Path("end"), "");
    audit.FinishRotation();
    EXPECT_LT(::mallinfo2().uordblks, memory + 2000000);
    Log(audit, "later\n");
    EXPECT_THAT(audit.Text().substr(before), MatchesRegex("Failed to rotate logs, .*\nlater\n"));
}

TEST_F(RotationTest, LinesHeldBackWhileARotationRunsComeFirstInTheNewFileUpToALimit)
{
    // A gzip that says when it has begun and ends on request.
    ::mkfifo(Path("begun").c_str(), 0600);
    ::mkfifo(Path("end").c_str(), 0600);
    UseGzip("echo begun > " + Path("begun") + "\nread line < " + Path("end") + "\nPATH=" + mPath +
            "\nexec gzip \"$@\"\n");
    RecordingAudit audit(Path());
    // On a slow machine a line about gzip would come between.
    audit.SetEnabled(static_cast<std::uint32_t>(DebugFeature::Fault), 0);
    const std::string tooLong(4095, 'y');
    const std::string held = "trigger\nheld 1\n[00000001] held 2\n" + Overflow + tooLong;
    for (const bool isFlooded : {true, false}) {
        FillTo(audit, Limit + 1 - Read(Path()).size());
        std::size_t tailed = 0;
        const std::string console = Console([&] {
            std::thread gzip([&] { EXPECT_EQ(Read(Path("begun")), "begun\n"); });
            // The line that sets the rotation off comes back although gzip does not.
            audit.Write("trigger\n");
            gzip.join();
            tailed = audit.Text().size();
            audit.Write("held 1\n");
            audit.WriteFileOnly(0, 1, "held 2\n");
            audit.Write("%s", std::string(5000, 'y').c_str());
            for (int i = 0; isFlooded && i < 9996; ++i)
                audit.Write("\n%*d", i == 9995 ? 5000 : 1, i);
            EXPECT_EQ(audit.Text().size(), tailed);
            Fill(Path("end"), "now\n");
            audit.FinishRotation();
        });
        EXPECT_TRUE(Read(Path()) == audit.Text().substr(tailed));
        if (isFlooded) {
            EXPECT_THAT(Read(Path()), StartsWith(held + "\n0\n1\n2\n"));
            EXPECT_THAT(Read(Path()), testing::ContainsRegex(
                                          "9994late\n\\[.*\\] 1 log lines were lost while the log was rotated\r\n$"));
        } else {
            // On the console at once, and once only.
            EXPECT_THAT(console, EndsWith("trigger\nheld 1\n" + Overflow + "\n" + tooLong + "late\n"));
            EXPECT_EQ(Read(Path()), held + "late\n");
        }
    }
    Log(audit, "after\n");
    EXPECT_EQ(Read(Path()), held + "late\nafter\n");
}

} // namespace
