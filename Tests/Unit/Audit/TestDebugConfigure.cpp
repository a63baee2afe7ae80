#include "Audit/DebugConfigure.h"
#include "Tests/Unit/Audit/LogFixture.h"

namespace {

class DebugFileTest : public LogTest
{
protected:
    DebugFileTest()
    {
        Audit::SetInstance(nullptr);
        // What the file does is logged whatever features are on.
        for (std::uint32_t id = 0; id < MaxDebugLevels; ++id)
            Audit::Instance()->SetEnabled(id, 0);
    }
    ~DebugFileTest() override { Audit::SetInstance(nullptr); }

    /// What reading a file of this content prints, after the line that names the file.
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
    const std::string unknown = "DebugId -1 MaxDebugLevels 207 Assert 0\r\nFeature ";
    const std::pair<const char*, std::string> cases[] = {
        {"\n \t \n\n", ""},
        {"Information on IODiscovery\t 60\n",
         "Debug Feature Information (3) is Off\r\nDebug Feature IODiscovery (122) is On\r\n"
         "Debug Feature CommsDebug (60) is On\r\n"},
        {"on 0 off 1 on 000206\n3", "Debug Feature Assert (0) is On\r\nDebug Feature Invalid (1) is Off\r\n"
                                    "Debug Feature OutputPatchReadDebug (206) is On\r\n"
                                    "Debug Feature Information (3) is Off\r\n"},
        {"on 207", "DebugId 207 MaxDebugLevels 207 Assert 0\r\nFeature 207 is unknown \r\n"},
        {"on 4294967295", unknown + "4294967295 is unknown \r\n"},
        {"on 4294967296 1", "Debug: What does :4294967296 mean?\r\nDebug Feature Invalid (1) is On\r\n"},
        {"on 12x", "Debug: What does :12x mean?\r\n"},
        {"on -1", unknown + "-1 is unknown \r\n"},
        {"# assert\n", unknown + "# is unknown \r\n" + unknown + "assert is unknown \r\n"},
        {"On", unknown + "On is unknown \r\n"},
    };
    for (const auto& [content, output] : cases)
        EXPECT_EQ(ReadContent(content), output) << content;
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
