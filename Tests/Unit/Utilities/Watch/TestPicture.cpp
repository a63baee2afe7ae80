#include "Tests/Support/Joined.h"
#include "Utilities/Watch/HttpRules.h"
#include "Utilities/Watch/LogFeatures.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/Picture.h"

#include <gmock/gmock.h>

#include <regex>
#include <sstream>
#include <utility>

using namespace watch;
using testing::HasSubstr;

namespace {

constexpr Milliseconds Now = 1000000;

class Module : public testing::Test
{
protected:
    Module() { mPicture.OnContact(Contact::Live, Now); }
    void Log(const std::string& text) { mPicture.OnMessage({"25/11/26 09:43:38", text}, Now); }
    /// Cable, beats, stream, check and description of the primary link, and who is there.
    std::string Link() const
    {
        const LinkFacts& link = mPicture.Links().Link(Port::Primary);
        return Joined(FactName(link.cable), FactName(link.beating), FactName(link.stream), FactName(link.check),
                      FactName(link.described), link.neighbour, link.type);
    }

    Picture mPicture{"127.0.0.1:55555"};
};

/// The lines of a box being plugged in and pulled out.
TEST_F(Module, ALinkIsFollowedThroughTheLog)
{
    EXPECT_EQ(Link(), "unknown|unknown|unknown|unknown|unknown|||");
    Log("LID: 0.18 LG:H0 RID: 0x40(64) RG:H0 LS 1");
    EXPECT_EQ(Link(), "yes|unknown|unknown|unknown|unknown|||");
    Log("DeviceManager::OnDeviceChanged Hid 0.32:1  Port Pri Korvo  Local IP 0.8.0.1 Rem IP 0.8.0.254 Link Type AoIP");
    EXPECT_EQ(Link(), "yes|yes|unknown|no|no|0.32:1|AoIP|");
    Log("OnKLVStreamChanged Port Pri Korvo  Stream LOCAL_LINK  Valid true");
    Log("Request Software check");
    EXPECT_EQ(Link(), "yes|yes|yes|underway|no|0.32:1|AoIP|");
    Log("Setting UDP timeout on Gige port H0  to 2000");
    EXPECT_EQ(Link(), "yes|yes|yes|yes|yes|0.32:1|AoIP|");
    EXPECT_EQ(mPicture.Links().Link(Port::Secondary).beating, Fact::Unknown);
    Log("LID: 0.18 LG:H0 RID: INVALID_HID RG:H0 LS 0");
    Log("DeviceManager::OnDeviceChanged Hid 0.32:1  Port Pri Korvo  Local IP 0.0.0.0 Rem IP 0.0.0.0 Link Type "
        "Unknown(0)");
    Log("OnKLVStreamChanged Port Pri Korvo  Stream LOCAL_LINK  Valid false");
    EXPECT_EQ(Link(), "no|no|no|no|no|||");
}

TEST_F(Module, AnUnchangedListingIsNoChange)
{
    Reply reply{ShellCommand::Slots, "Link 0\n\tSlot 0  Source0.32:1  Port 3Pri Korvo 3\n", {}, false, 0};
    mPicture.OnReply(reply);
    const std::uint64_t version = mPicture.Version(Section::Slots);
    mPicture.OnReply(reply);
    EXPECT_EQ(mPicture.Version(Section::Slots), version);
    reply.result = "Link 0\n";
    mPicture.OnReply(reply);
    EXPECT_EQ(mPicture.Version(Section::Slots), version + 1);
}

TEST_F(Module, KnowsWhetherAnAnswerIsDue)
{
    for (const auto& [state, awaits] : {std::pair("Patch Success", false), std::pair("Patch Sent", true),
                                        std::pair("Patch Awaiting Reply", true), std::pair("Patch Reserved", false)}) {
        const std::string patch = "PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n"
                                  "\t\t\tDst HID:18(0x12(18) ), Style:2(Output), Idx:5 \n\t\t\tPri Patch Success \n"
                                  "\t\t\tSec " +
                                  std::string(state) + " \n";
        mPicture.OnReply({ShellCommand::Patches, "", {patch}, false, 0});
        EXPECT_EQ(mPicture.AwaitsAnswer(), awaits) << state;
    }
    mPicture.OnReply({ShellCommand::Clocks, " Id Enabled Measure    State\n  2    true   48000   stable locking\n"});
    EXPECT_TRUE(mPicture.AwaitsAnswer());
}

/// The texts come from the module's sources: one that is no longer there, or under another feature, shows here.
TEST(LogFeatures, FollowFromTheText)
{
    EXPECT_EQ(FeatureOf("A heartbeat send delay of 400ms has occurred on H0"), "Fault");
    EXPECT_EQ(FeatureOf("DeviceManager::OnDeviceChanged Hid 0.32:1"), "Information");
    EXPECT_EQ(FeatureOf("DeviceManager::GetInputLinkSlot: Unknown port A9"), "Fault");
    EXPECT_EQ(FeatureOf("[40000002] Assert failed in file X.cpp at line 3 - x"), "Assert");
    EXPECT_EQ(FeatureOf("Patcher::ProcessPatchUnpatch "), "RouterAudioRoute");
    EXPECT_EQ(FeatureOf("no such text"), UnknownFeature);
}

/// What the network brings is shown as it is, and breaks neither JSON nor the metrics.
TEST_F(Module, TextsFromTheNetworkStayTexts)
{
    Log("A heartbeat send delay of \xFF\x01<script>alert(1)</script>\"\\");
    Log("DeviceManager::OnDeviceChanged Hid 1.2:3 \"\\\xFF Port Pri Korvo  Local IP 1.1.1.1 Rem IP 1.1.1.2 Link Type "
        "AoIP");
    EXPECT_THAT(mPicture.Json(Now), HasSubstr("\xEF\xBF\xBD\\u0001<script>"));
    const std::string metrics = MetricsText(mPicture, {}, Now);
    EXPECT_THAT(metrics, HasSubstr(R"(hid="1.2:3 \"\\?")"));
    EXPECT_THAT(metrics, HasSubstr("orbmodule_log_lines_total{feature=\"Fault\"} 1\n"));
}

/// Each family has its HELP and TYPE ahead of its samples, and each line has the form that scrapers read.
TEST_F(Module, MetricsAreWellFormed)
{
    const std::regex sample(R"(([a-z_:]+)(\{[a-z]+="[^"]*"(,[a-z]+="[^"]*")*\})? -?[0-9.e+]+)");
    std::istringstream lines(MetricsText(mPicture, {}, Now));
    std::string family;
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        const std::string name = line.substr(7, line.find(' ', 7) - 7);
        if (line.rfind("# HELP ", 0) == 0) {
            EXPECT_NE(name, std::exchange(family, name));
        } else if (line.rfind("# TYPE ", 0) == 0) {
            EXPECT_EQ(name, family);
            EXPECT_EQ(name.find("_total") != std::string::npos, line.find(" counter") != std::string::npos) << line;
        } else {
            ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
            EXPECT_EQ(match[1], family);
        }
    }
}

TEST(HttpRules, OnlyHostsThatAreKnown)
{
    using boost::asio::ip::make_address;
    const auto loopback = make_address("127.0.0.1");
    const auto outside = make_address("10.0.0.7");
    const std::vector<std::string> names{"console-7.lan"};
    EXPECT_TRUE(IsKnownHost("127.0.0.1:8055", loopback, {}));
    EXPECT_TRUE(IsKnownHost("LocalHost:1", loopback, {}));
    EXPECT_TRUE(IsKnownHost("[::1]:8055", make_address("::1"), {}));
    EXPECT_TRUE(IsKnownHost("10.0.0.7", outside, {}));
    EXPECT_TRUE(IsKnownHost("Console-7.lan:80", outside, names));
    for (const char* host : {"", ":8055", "evil.example", "127.0.0.1.evil.example", "localhost.evil.example",
                             "10.0.0.8", "[::1", "[", "127.1"})
        EXPECT_FALSE(IsKnownHost(host, loopback, names)) << host;
    EXPECT_FALSE(IsKnownHost("localhost", outside, {}));
}

} // namespace
