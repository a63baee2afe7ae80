#include "Audit/Audit.h"
#include "Tests/Unit/Audit/LogFixture.h"

#include <ctime>
#include <set>

namespace {

using testing::MatchesRegex;

TEST(Features, SevenAreOnFromTheStartAndNumbersOutsideTheTableAreOff)
{
    const std::set<std::uint32_t> expected = {0, 1, 2, 3, 46, 66, 68};
    Audit audit;
    for (std::uint32_t id = 0; id < 207; ++id)
        EXPECT_EQ(audit.IsEnabled(id), expected.count(id) == 1) << id;
    audit.SetEnabled(207, 1);
    audit.SetEnabled(0xFFFFFFFF, 1);
    EXPECT_FALSE(audit.IsEnabled(207) || audit.IsEnabled(0xFFFFFFFF));
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

using ConsoleTest = LogTest;

TEST_F(ConsoleTest, EveryOperationPrintsAndOnlyTheStampedOnesStamp)
{
    Audit audit;
    const std::string stamp = "\\[[0-9]{2}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\]";
    EXPECT_EQ(Console([&] { audit.Write("a%d\n", 1); }), "a1\n");
    EXPECT_EQ(Console([&] { audit.WriteStamped(0, "d\n"); }), "d\n");
    EXPECT_THAT(Console([&] { audit.WriteStamped(1, "e%d\n", 5); }), MatchesRegex(stamp + "e5\n"));
    EXPECT_THAT(Console([&] { audit.WriteFileOnly(1, 7, "g\n"); }), MatchesRegex(stamp + "g\n"));
    EXPECT_EQ(Console([&] { audit.Write(std::string("h%d%s\n"), 8, "i"); }), "h8i\n");
}

TEST_F(ConsoleTest, StampIsDayFirstInUtcPlusTheOffset)
{
    Audit audit;
    // Whatever the time of the test: 17 November 2026, 09:08:0x, and a year of the last century.
    const std::pair<std::time_t, const char*> cases[] = {{1794906485, "\\[17/11/26 09:08:0[5-9]\\]x"},
                                                         {915148800, "\\[01/01/99 00:00:0[0-4]\\]x"}};
    for (const auto& [time, stamp] : cases) {
        audit.SetTimeOffset(static_cast<std::int32_t>(time - std::time(nullptr)));
        EXPECT_THAT(Console([&] { audit.WriteStamped(1, "x"); }), MatchesRegex(stamp));
    }
}

TEST_F(ConsoleTest, FailedAssertionIsWrittenAndItsMessageOnlyUnderItsFeature)
{
    Audit::SetInstance(nullptr);
    const auto fail = [] { EXPECT_FALSE(AUDIT_ASSERT_MESSAGE(1 + 1 == 3, std::string("two\n"))); };
    EXPECT_THAT(Console(fail), MatchesRegex("\\[.*\\]Assert failed in file Tests/Unit/Audit/TestAudit.cpp at line "
                                            "[0-9]+ - 1 \\+ 1 == 3\r\n\\[.*\\]two\n"));
    Audit::Instance()->SetEnabled(0, 0);
    EXPECT_THAT(Console(fail), MatchesRegex("\\[.*\\]Assert failed in file [^\n]*\n"));
    EXPECT_EQ(Console([] {
                  EXPECT_TRUE(AUDIT_ASSERT(true));
                  AUDIT_LOG(IODiscovery, "off\n");
                  AUDIT_STREAM(IODiscovery, "off\n");
              }),
              "");
    EXPECT_THAT(Console([] { AUDIT_STREAM(Information, "100% " << 5 << "\n"); }), MatchesRegex("\\[.*\\]100% 5\n"));
    Audit::SetInstance(nullptr);
}

} // namespace
