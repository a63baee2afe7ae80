#include "Tests/Unit/Audit/LogFixture.h"

#include <regex>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

const std::string Overflow = "*** KorvoAudit buffer overflow, message truncated ***";
const std::string Stamp = "\\[[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\] ";

using FileLogTest = LogTest;

TEST_F(FileLogTest, EachOperationReachesFileTailAndConsoleInItsShape)
{
    RecordingAudit audit(Path());
    const std::tuple<std::function<void()>, std::string, bool> cases[] = {
        {[&] { audit.Write("a%d\n", 1); }, "a1\n", true},
        {[&] { audit.WriteTagged(0x10000000, "b\n"); }, "\\[10000000\\] b\n", true},
        {[&] { audit.WriteStamped(1, "c%s\n", "%d"); }, Stamp + "c%d\n", true},
        {[&] { audit.WriteStamped(2, "d\n"); }, "d\n", true},
        {[&] { audit.WriteStampedTagged(1, 0x40000002, "e\n"); }, Stamp + "\\[40000002\\] e\n", true},
        {[&] { audit.WriteStampedTagged(0, 0xAB, "f\n"); }, "\\[000000ab\\] f\n", true},
        {[&] { audit.WriteFileOnly(1, 5, "g\n"); }, Stamp + "\\[00000005\\] g\n", false},
    };
    std::string file;
    for (const auto& [write, shape, isOnConsole] : cases) {
        const std::string console = Console(write);
        const std::string line = audit.Lines().back();
        EXPECT_THAT(line, MatchesRegex(shape));
        EXPECT_EQ(console, isOnConsole ? line : "");
        file += line;
        EXPECT_EQ(Read(Path()), file);
    }
    EXPECT_EQ(Console([&] { audit.WriteConsole("only here\n"); }), "only here\n");
    EXPECT_EQ(Read(Path()), file);
    EXPECT_EQ(audit.Lines().size(), 7u);
}

TEST_F(FileLogTest, OverflowIsAQuestionOfTheMessageAlone)
{
    RecordingAudit audit(Path());
    // The stamp takes room, but only a message that is too long for the buffer says so.
    Console([&] { audit.WriteStamped(1, "%s", std::string(4096, 'x').c_str()); });
    ASSERT_EQ(audit.Lines().size(), 1u);
    EXPECT_EQ(audit.Lines().back().size(), 4095u);

    const std::string before = Read(Path());
    const std::string tooLong(5000, 'y');
    EXPECT_EQ(Console([&] { audit.Write("%s", tooLong.c_str()); }), Overflow + "\n" + std::string(4095, 'y'));
    EXPECT_EQ(Console([&] { audit.WriteFileOnly(0, 1, "%s", tooLong.c_str()); }), "");
    const std::string cut = "[00000001] " + std::string(4084, 'y');
    EXPECT_EQ(Read(Path()), before + Overflow + std::string(4095, 'y') + Overflow + cut);
    EXPECT_THAT(audit.Lines(), ElementsAre(testing::_, Overflow, std::string(4095, 'y'), Overflow, cut));
}

TEST_F(FileLogTest, WithoutAFileLinesStillReachConsoleAndTail)
{
    const std::string path = Path("missing/K2.log");
    std::unique_ptr<RecordingAudit> audit;
    EXPECT_EQ(Console([&] { audit = std::make_unique<RecordingAudit>(path); }),
              "Failed to open log file '" + path + "', output to console only\n");
    EXPECT_EQ(Console([&] { audit->Write("on\n"); }), "on\n");
    EXPECT_EQ(Console([&] { audit->Write("%s", std::string(5000, 'y').c_str()); }),
              Overflow + "\n" + std::string(4095, 'y'));
    EXPECT_THAT(audit->Lines(), ElementsAre("on\n", std::string(4095, 'y')));
}

TEST_F(FileLogTest, LogsFromManyThreadsStayWholeLines)
{
    RecordingAudit audit(Path());
    Console([&] {
        std::vector<std::thread> threads(4);
        for (std::thread& thread : threads)
            thread = std::thread([&audit] {
                for (int i = 0; i < 500; ++i)
                    audit.WriteStamped(1, "line %d of a thread\n", i);
            });
        for (std::thread& thread : threads)
            thread.join();
    });
    const std::regex shape(Stamp + "line [0-9]+ of a thread\n");
    std::string file;
    for (const std::string& line : audit.Lines()) {
        EXPECT_TRUE(std::regex_match(line, shape)) << line;
        file += line;
    }
    EXPECT_EQ(audit.Lines().size(), 2000u);
    EXPECT_EQ(Read(Path()), file);
}

} // namespace
