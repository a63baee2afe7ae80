#include "Audit/DebugConfigure.h"
#include "Tests/Unit/Audit/LogFixture.h"

namespace {

class DebugFileTest : public LogTest
{
protected:
    DebugFileTest()
    {
        Audit::SetInstance(nullptr);
        // What the file does is told whatever features are on.
        for (std::uint32_t id = 0; id < MaxDebugLevels; ++id)
            Audit::Instance()->SetEnabled(id, 0);
    }
    ~DebugFileTest() override { Audit::SetInstance(nullptr); }

    /// What reading a file of this content prints, behind the line that names the file.
    std::string ReadContent(const std::string& content)
    {
        Fill(Path("debug.conf"), content);
        const std::string text = Console([&] { DebugConfigure::Instance().ReadFile(Path("debug.conf")); });
        const std::string head = "DebugConfig : Reading File '" + Path("debug.conf") + "' ...\n";
        EXPECT_EQ(text.substr(0, head.size()), head);
        return text.substr(std::min(head.size(), text.size()));
    }
};

TEST_F(DebugFileTest, EveryKindOfWord)
{
    const struct
    {
        const char* content;
        const char* output;
    } cases[] = {
        {"", ""},
        {"\n \t \n\n", ""},
        {"on IODiscovery\t RouterDiscovery 60\n",
         "Debug Feature IODiscovery (122) is On\r\nDebug Feature RouterDiscovery (125) is On\r\n"
         "Debug Feature CommsDebug (60) is On\r\n"},
        {"Information", "Debug Feature Information (3) is Off\r\n"},
        {"on 0 off 1 on 2\n3",
         "Debug Feature Assert (0) is On\r\nDebug Feature Invalid (1) is Off\r\nDebug Feature Fault (2) is On\r\n"
         "Debug Feature Information (3) is Off\r\n"},
        {"Assert on\n", "Debug Feature Assert (0) is Off\r\n"},
        {"on 000206", "Debug Feature OutputPatchReadDebug (206) is On\r\n"},
        {"on 207", "DebugId 207 MaxDebugLevels 207 Assert 0\r\nFeature 207 is unknown \r\n"},
        {"on 4294967295", "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature 4294967295 is unknown \r\n"},
        {"on 4294967296 1", "Debug: What does :4294967296 mean?\r\nDebug Feature Invalid (1) is On\r\n"},
        {"on 12x", "Debug: What does :12x mean?\r\n"},
        {"on -1", "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature -1 is unknown \r\n"},
        {"# assert\n", "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature # is unknown \r\n"
                       "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature assert is unknown \r\n"},
        {"on MaxDebugLevels", "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature MaxDebugLevels is unknown \r\n"},
        {"On", "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature On is unknown \r\n"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(ReadContent(row.content), row.output) << row.content;
}

TEST_F(DebugFileTest, FeaturesAreReallySet)
{
    Audit::Instance()->SetEnabled(3, 1);
    ReadContent("off Information\non 5 Fault\nFault");
    EXPECT_FALSE(Audit::IsOn(DebugFeature::Information));
    EXPECT_TRUE(Audit::Instance()->IsEnabled(5));
    EXPECT_FALSE(Audit::IsOn(DebugFeature::Fault));
}

TEST_F(DebugFileTest, WhatCannotBeReadChangesNothing)
{
    const std::string missing = Path("missing.conf");
    EXPECT_EQ(Console([&] { DebugConfigure::Instance().ReadFile(missing); }),
              "DebugConfig : unable to access File '" + missing + "'.\n");
    boost::filesystem::create_directory(Path("directory"));
    EXPECT_NO_THROW(Console([&] { DebugConfigure::Instance().ReadFile(Path("directory")); }));
}

TEST_F(DebugFileTest, OfAnEndlessWordOnlyTheBeginningIsKept)
{
    const std::string output = ReadContent(std::string(3 << 20, 'a') + " 5");
    EXPECT_LT(output.size(), 2000u);
    EXPECT_THAT(output, testing::HasSubstr("Feature aaa"));
    EXPECT_THAT(output, testing::EndsWith("Debug Feature ResourceDebug (5) is Off\r\n"));
}

} // namespace
