// What OrbWatch reads from the module's shell and log, byte for byte, and what it makes of that.

#include "Tests/Support/Joined.h"
#include "Utilities/Watch/HttpRules.h"
#include "Utilities/Watch/LogFeatures.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/Picture.h"

#include <gmock/gmock.h>

#include <regex>

using namespace watch;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

TEST(Listings, DevicesOnALinkAndBeyondIt)
{
    const auto text = [](const char* listing) {
        const auto device = ParseDevice(listing);
        if (!device) return std::string("none");
        return Joined(device->local ? "local" : "remote", device->hid, device->owner, device->type, device->rate,
                      testing::PrintToString(device->rates), device->primary.online, device->primary.address,
                      device->secondary.online);
    };
    EXPECT_EQ(text("FixedFormat  0.32:1 \n\tPri Rem Address: 0.8.0.254Pri Link true\n"
                   "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:48kHz 96kHz \n"),
              R"(local|0.32:1||FixedFormat|48kHz|{ "48kHz", "96kHz" }|1|0.8.0.254|0|)");
    EXPECT_EQ(text("Hid: 0.48:2 , Type: FixedFormat \n\tPri Rem GigE: ORB PORT  Pri Rem Address: "
                   "0.48.9.1 Link true\n\tSec Rem GigE: UNKNOWN  Sec Rem Address: 0.0.0.0 Link "
                   "false\n\tOwning ROuter 0.48:8000  SR 44.1kHz:\n"),
              "remote|0.48:2|0.48:8000|FixedFormat|44.1kHz|{}|1|0.48.9.1|0|");
    // A listing may be cut anywhere by the module's log.
    for (const char* const cut :
         {"Hid changed", "DeviceManager::OnDeviceChanged Hid 0.32:1  Port Pri Korvo ",
          "Hid: 0.48:2 , Type: Modular \n\tPri Rem GigE: ORB PORT  Pri Rem Address: 0.48.9.1 Li"})
        EXPECT_EQ(text(cut), "none") << cut;
}

TEST(Listings, APatchWithItsTwoLinks)
{
    const auto patch = ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n"
                                  "\t\t\tDst HID:18(0x12(18) ), Style:2(Output), Idx:5 \n\t\t\tPri Patch Reserved \n"
                                  "\t\t\tSec Patch Success \n\t\t\tPri  GigE:TDM Pri Korvo 3 4 INVALID_TDM_SLOT 7 \n"
                                  "\t\t\tSec  GigE:TDM UNKNOWN 255 \n\t\t\tSwap GigE:TDM ORB PORT 0 \r\n");
    ASSERT_TRUE(patch);
    EXPECT_EQ(Joined(patch->source.hid, patch->source.index, patch->destination.hid, patch->destination.style),
              "0.32:1|3|0x12(18)|Output|");
    EXPECT_EQ(patch->primary, PatchState::Reserved);
    EXPECT_EQ(patch->secondary, PatchState::Success);
    EXPECT_EQ(patch->Best(), PatchState::Success);
    EXPECT_EQ(patch->primaryLink.port, Port::Primary);
    EXPECT_THAT(patch->primaryLink.slots, ElementsAre(3, 4, 7));
    EXPECT_EQ(patch->secondaryLink.port, Port::Unknown);
    EXPECT_THAT(patch->secondaryLink.slots, IsEmpty());
    EXPECT_THAT(patch->swap.slots, ElementsAre(0));
    EXPECT_FALSE(ParsePatch("PI  Src HID:99999999999(0.32:1 ), Style:1(Input), Idx:3 \n"));
    EXPECT_FALSE(ParsePatch("PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n\t\t\tDst HID:1(0.1:1 )"));
}

TEST(Listings, SlotsInUse)
{
    const SlotTable table =
        ParseSlots("Link 0\n\tSlot 0  Source0.32:1  Port 3Sec Korvo 3\n\t\tDest 0.18:1  Port 5\n"
                   "\t\tDest 0.18:1  Port 6\nLink 1\n\tSlot 511  Source0.18:1  Port fffORB PORT 9\n"
                   "\t\tDest 0.32:1  Port 4\nLink 2\nLink 3\n\tSlot 1  Source0.1:1  Port 1ORB PORT 1\n");
    ASSERT_TRUE(table[0].size() == 1 && table[1].size() == 1 && table[2].empty());
    EXPECT_EQ(Joined(table[0][0].sourceHid, table[0][0].destinations, table[1][0].number, table[1][0].sourcePort),
              "0.32:1|2|511|4095|");
    EXPECT_EQ(table[0][0].from.port, Port::Secondary);
    EXPECT_THAT(table[1][0].from.slots, ElementsAre(9));
}

TEST(Listings, RoutesOfTheFpga)
{
    std::string routes;
    for (const auto& sink :
         ParseRoutes("Sources          Sinks\n0:    0       >> k0:   0-3    \nbulk: 9-10    >> k0:   4-5    \n"
                     "0:    0       >> k0:   6-511  \n\nk1:   3       >> bulk: 0      \n"
                     "0:    0       >> bulk: 1-511  \n"))
        for (const auto& run : sink.runs)
            routes += run.IsSilence() ? Joined(sink.name, "silence", run.Length())
                                      : Joined(sink.name, run.source, run.sourceFirst, run.sourceLast, run.Length());
    EXPECT_EQ(routes, "bulk|k1|3|3|1|bulk|silence|511|k0|silence|4|k0|bulk|9|10|2|k0|silence|506|");
    EXPECT_THAT(ParseRoutes("Error: >> : \n: 1 >> k0: 9-2\nk0: x >> k1: 3\n"), IsEmpty());
}

TEST(Listings, ClockSources)
{
    const ClockTable table = ParseClocks("Clock Ids: bulk (4) k0 (1) Internal (0)\n\n Id Enabled Measure    State\n"
                                         "  4    true    1365   stable locked [selected, auto-select off]\n"
                                         "  1   false       0 unstable\n  0    true       0   stable locking\n");
    std::string sources;
    for (const auto& source : table.sources)
        sources += Joined(source.name, source.measure, source.enabled, source.stable, source.selected, source.lock);
    EXPECT_EQ(sources, "bulk|1365|1|1|1|locked|k0|0|0|0|0||Internal|0|1|1|0|locking|");
    EXPECT_TRUE(table.autoSelectOff);
    EXPECT_THAT(ParseClocks("Clock Ids: \n 1 maybe 3 stable\n 99999999999 true 0 stable\n").sources, IsEmpty());
}

const std::string Stamp = "[25/11/26 09:43:38] ";
const std::string Handshake = "\nOstrel command shell: OrbModule Wed Nov 25 09:43:38 2026\n"
                              "Type 'help' to see available commands.\n"
                              "Type 'cmd --help' to find out more about 'cmd'.\n" +
                              Stamp + "CommandLine: Received tail false\r\ntrue\nOrbModule 1.0.2452\n" + Stamp +
                              "CommandLine: Sent tail Result\r\ntrue\n\r\n";

std::string Received(const std::string& command)
{
    return Stamp + "CommandLine: Received " + command + "\r\n";
}
std::string Sent(const std::string& command, const std::string& result)
{
    return Stamp + "CommandLine: Sent " + command + " Result\r\n" + result + "\r\n";
}
std::string Record(const std::string& hid)
{
    return Stamp + "KorvoHub " + hid +
           " \n\tPri Rem Address: 0.12.0.254Pri Link true\n\tSec Rem Address: 0.0.0.0 Sec Link "
           "false\n SR 48kHz:\n";
}

struct Session : testing::Test
{
    Session() { session.Feed(Handshake); }

    std::string written;
    std::vector<std::string> messages;
    std::vector<Reply> replies;
    int ready = 0;
    ShellSession session{{[this](const std::string& bytes) { written += bytes; },
                          [this](const LogMessage& message) { messages.push_back(message.stamp + "|" + message.text); },
                          [this](const Reply& reply) { replies.push_back(reply); }, [this] { ++ready; }}};
};

/// Bytes come as they like; foreign lines in the middle of a listing belong to the log and not to the listing.
TEST_F(Session, LearnsTheVersionAndReadsListingsAndResultsOutOfTheLog)
{
    EXPECT_EQ(session.Version(), "OrbModule 1.0.2452");
    EXPECT_EQ(ready, 1);
    EXPECT_THAT(messages, IsEmpty());
    session.Ask(ShellCommand::LocalAndRouting);
    EXPECT_EQ(written, "tail false\nversion\ntail true\nsr\n");
    const std::string bytes = Record("0.1:8000") + Received("sr") + Stamp + "Local devices:\n" + Record("0.48:8000") +
                              Stamp + "A heartbeat send delay of 400ms has occurred on H0 \n" + Stamp +
                              "Remote devices:\n" + Sent("sr", "");
    for (const char byte : bytes)
        ASSERT_TRUE(session.Feed({&byte, 1}));
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_FALSE(replies[0].cut);
    ASSERT_EQ(replies[0].records.size(), 3u);
    EXPECT_EQ(replies[0].records[1].substr(0, 18), "KorvoHub 0.48:8000");
    EXPECT_THAT(messages, ElementsAre("25/11/26 09:43:38|A heartbeat send delay of 400ms has occurred on H0"));

    // A result may hold empty lines.
    session.Ask(ShellCommand::Clocks);
    session.Feed(Received("clock/status") + Sent("clock/status", "Clock Ids: Internal (0)\n\n Id\n"));
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1].result, "Clock Ids: Internal (0)\n\n Id\n\r\n");
}

/// The log holds 4095 bytes of a message and cuts off the rest, its line end included.
TEST_F(Session, AsksForALongResultPastTheLog)
{
    session.Ask(ShellCommand::Slots);
    const std::string cut = Sent("rs", "Link 0\n" + std::string(5000, 'x')).substr(0, 4095);
    session.Feed(Received("rs") + "*** KorvoAudit buffer overflow, message truncated ***" + cut);
    ASSERT_EQ(replies.size(), 1u);
    EXPECT_TRUE(replies[0].cut);

    written.clear();
    session.AskWhole(ShellCommand::Slots);
    EXPECT_EQ(written, "tail false\nrs\nversion\ntail true\n");
    // Another client turns its tail off meanwhile, and its reply in the log looks like ours.
    session.Feed(Received("tail false") + Sent("tail", "true\n") + Stamp + "Scanned\r\n" + Received("tail false") +
                 "true\nLink 0\n\tSlot 1\nOrbMod");
    session.Feed("ule 1.0.2452\n" + Sent("tail", "true\n") + Stamp + "Routers Disallowed\r\n");
    session.OnQuiet();
    ASSERT_EQ(replies.size(), 2u);
    EXPECT_EQ(replies[1].result, "Link 0\n\tSlot 1\n");
    EXPECT_THAT(messages, ElementsAre("25/11/26 09:43:38|Scanned", "25/11/26 09:43:38|Routers Disallowed"));
}

TEST_F(Session, DoesNotGrowWithoutEnd)
{
    session.AskWhole(ShellCommand::Slots);
    bool isSound = session.Feed("true\n");
    const std::string line(1024 * 1024, 'x');
    for (int i = 0; isSound && i < 100; ++i)
        isSound = session.Feed(line);
    EXPECT_FALSE(isSound);
}

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
