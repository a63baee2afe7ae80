// What OrbWatch reads from the module's shell and log, byte for byte, and what it makes of that.

#include "Tests/Support/Joined.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Utilities/Watch/Picture.scenes.h"
#include "Tests/Unit/Utilities/Watch/Whole.scenes.h"
#include "Utilities/Watch/HttpRules.h"
#include "Utilities/Watch/LogFeatures.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/Picture.h"
#include "Utilities/Watch/StateJson.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <ctime>

#include <sys/resource.h>

using namespace watch;
using testing::AllOf;
using testing::HasSubstr;

namespace {

const std::string Box = "FixedFormat  0.32:1 \n\tPri Rem Address: 0.8.0.254Pri Link true\n"
                        "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:48kHz 96kHz\r\n";
const std::string Hub = "KorvoHub 0.48:8000 \n\tPri Rem Address: 0.0.0.0Pri Link false\n"
                        "\tSec Rem Address: 0.12.0.254 Sec Link true\n SR 48kHz:\n";
const std::string Beyond = "Hid: 0.48:2 , Type: Modular \n\tPri Rem GigE: ORB PORT  Pri Rem Address: 0.48.9.1 Link "
                           "true\n\tSec Rem GigE: UNKNOWN  Sec Rem Address: 0.48.9.2 Link true\n"
                           "\tOwning ROuter 0.48:8000  SR 44.1kHz:\n";
const std::string OrbRouter = "Hid: 0.18:1 , Type: OrbDsp \n\tPri Rem GigE: ORB PORT  Pri Rem Address: 1.63.1.0 Link "
                              "false\n\tSec Rem GigE: UNKNOWN  Sec Rem Address: 0.0.0.0 Link false\n"
                              "\tOwning ROuter 0.18:1  SR 48kHz:48kHz \n";
const std::string Offline = " \n\tPri Rem Address: 0.0.0.0Pri Link false\n\tSec Rem Address: 0.0.0.0 Sec Link false\n";

std::string Patch(const std::string& destination, const std::string& primary, const std::string& rest)
{
    return "PI  Src HID:2097153(0.32:1 ), Style:1(Input), Idx:3 \n\t\t\tDst HID:" + destination +
           " \n\t\t\tPri Patch " + primary + " \n\t\t\tSec Patch " + rest;
}
const std::string Reserved = Patch("18(0x12(18) ), Style:2(Output), Idx:5", "Reserved",
                                   "Success \n\t\t\tPri  GigE:TDM Pri Korvo 3 4 INVALID_TDM_SLOT 7 \n"
                                   "\t\t\tSec  GigE:TDM Sec Korvo 9 x 1 \n\t\t\tSwap GigE:TDM ORB PORT 0 \r\n");

std::string Replaced(std::string text, const std::string& part, const std::string& other)
{
    return text.replace(text.find(part), part.size(), other);
}
/// Without quotes, what stands for bytes that are no text, and the line ends that an indented line follows.
std::string Plain(const std::string& text)
{
    return std::regex_replace(text, std::regex("\"|\n +|\xEF\xBF\xBD|\x7F"), "");
}

constexpr Milliseconds Now = 1000000;

class Module : public testing::Test
{
protected:
    Module()
    {
        mPicture.OnContact(Contact::Connecting, Now - 9000);
        mPicture.OnContact(Contact::Live, Now - 5000);
        Changes();
    }
    void Reply(ShellCommand command, const std::string& result, const std::vector<std::string>& records = {})
    {
        mPicture.OnReply({command, result, records, false, 0});
    }
    std::string Log(const std::string& text)
    {
        mPicture.OnMessage({"25/11/26 09:43:38", text}, Now - 1);
        return Changes();
    }
    /// What differs in the state since the last call.
    std::string Changes()
    {
        auto now = nlohmann::json::parse(mPicture.Json(Now)).flatten();
        now.erase("/version");
        std::string text;
        for (const auto& [key, value] : now.items())
            if (mBefore.value(key, nlohmann::json()) != value) text += " " + key + "=" + value.dump();
        mBefore = now;
        return std::regex_replace(text, std::regex("\"|/links/"), "");
    }
    /// Something in each part of the state.
    void Fill()
    {
        mPicture.OnVersion("OrbModule 1.0.2452");
        Reply(ShellCommand::LocalAndIo, "",
              {"Local devices:\n", Box, Beyond, "Unknown(0) 0.97:1" + Offline + " SR 48kHz:\n",
               "AoIP 0.98:1" + Offline + " SR :\n"});
        Reply(ShellCommand::LocalAndRouting, "", {Hub, OrbRouter, Box});
        Reply(ShellCommand::Patches, "",
              {Reserved, "PI  Src HID:99999999999(0.32:1 )",
               Patch("18(0x12(18) ), Style:2(Output), Idx:4", "Not Sent", "Sent \n\t\t\tPri  GigE:TDM UNKNOWN 255 \n"),
               Patch("17(0x11(17) ), Style:2(Output), Idx:9", "Success", "Awaiting Reply \n"),
               Patch("19(0x13(19) ), Style:2(Output), Idx:0", "Retry Sent", "Not Sent \n")});
        Reply(ShellCommand::Slots,
              "\tSlot 9  Source0.9:9  Port 9ORB PORT 9\n\t\tDest 0.9:9  Port 9\nLink 0\n\t\tDest 0.9:9  Port 9\n"
              "\tSlot 0  Source0.32:1  Port 3Sec Korvo 3\n\t\tDest 0.18:1  Port 5\n"
              "\tSlot 1  Source0.32:1  Port 4Pri Korvo 4\n\t\tDest 0.18:1  Port 6\n\t\tDest 0.18:1  Port 7\n"
              "\tSlot  Source0.32:1  Port 4Pri Korvo 4\n\tSlot 2  Source0.32:1\n\tSlot 3  Source0.3:1  Port g\n"
              "Link 1\n\tSlot 511  Source0.18:1  Port fffUNKNOWN 9 8\n"
              "Link 2\nLink 3\n\tSlot 1  Source0.1:1  Port 1ORB PORT 1\n");
        Reply(ShellCommand::Routes,
              "Sources          Sinks\n0:    0       >> k0:   0-3    \nbulk: 9-10    >> k0:   4-5    \n"
              "0:    0       >> k0:   6-511  \n\nk1:   3-3     >> bulk: 0      \n"
              "0:    0       >> bulk: 1-511  \nError: >> : 3\n: 1 >> k0: 9-2\nk0: x >> k1: 3\nk0: 3 >> 3\n");
        Reply(ShellCommand::Clocks, "Clock Ids: bulk (4) k0 (1) Internal (0)\n\n Id Enabled Measure    State\n"
                                    "  4    true    1365   stable locked [selected, auto-select off]\n"
                                    "  1   false\t      0 unstable\n  0    true      17   stable locking\n 3 true\n"
                                    " 1 3 stable\n true 3 stable\n 99999999999 true 0 stable\n 2 true 5 other\n");
        Reply(ShellCommand::ActiveClock, "Internal\n");
        // What the network brings is shown as it is, and breaks neither JSON nor the metrics.
        Log("A heartbeat send delay of \xFF\x01<script>alert(1)</script>\"\\");
        Log("DeviceManager::OnDeviceChanged Hid 1.2:3 \"\\~\x7F\xFF\n\xFE Port Sec Korvo  Local IP 1.1.1.1 Rem IP "
            "1.1.1.2 Link Type Router");
        Log("OnKLVStreamChanged Port Sec Korvo  Stream LOCAL_LINK  Valid false");
        mPicture.OnRound(Now - 2500);
        mPicture.OnSparing(true);
        mPicture.OnLong(ShellCommand::Slots, true);
    }

    Picture mPicture{"127.0.0.1:55555"};

private:
    nlohmann::json mBefore = nlohmann::json::object();
};

TEST_F(Module, TheWholeStateFollowsFromListingsAndLog)
{
    Fill();
    EXPECT_THAT(mPicture.Json(Now), HasSubstr("\"neighbour\":\"1.2:3 \\\"\\\\~\x7F\xEF\xBF\xBD\\n\xEF\xBF\xBD\","));
    EXPECT_THAT(mPicture.Json(Now), HasSubstr("\xEF\xBF\xBD\\u0001<script>alert(1)</script>\\\"\\\\\","));
    EXPECT_EQ(Plain(mPicture.Json(Now)), Plain(ScenesOf(WholeScenes).front().script));
    // Half a listing does not bring back what the other half once had.
    Reply(ShellCommand::LocalAndRouting, "", {Hub, OrbRouter, Box});
    EXPECT_THAT(mPicture.Json(Now), testing::Not(testing::ContainsRegex("\\{\"hid\":\"(0.98:1)?\"")));
}

TEST_F(Module, TheWholePageOfMetrics)
{
    EXPECT_THAT(MetricsText(Picture(""), {}, Now),
                AllOf(HasSubstr("orbmodule_up 0\n"), HasSubstr("age_seconds -1\n"), HasSubstr("orbwatch_sparing 0\n")));
    Fill();
    // Enough to be told from none.
    while (std::clock() < CLOCKS_PER_SEC / 5) {
    }
    const std::string page = MetricsText(mPicture, {2, 7, 1}, Now);
    std::string samples =
        std::regex_replace(page, std::regex("# HELP (\\w+) [^\n]{9,}\n# TYPE \\1 (\\w+)\n\\1(?=[ {])"), "$2 $1");
    samples = std::regex_replace(samples, std::regex("orbmodule_|\"|\norbmodule_[a-z_]+(?=\\{)"), "");
    const std::size_t own = samples.find("gauge process_");
    EXPECT_EQ(samples.substr(0, own), Plain(ScenesOf(WholeScenes).back().script));
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    double memory = 0;
    double cpu = 0;
    ASSERT_EQ(std::sscanf(samples.c_str() + own,
                          "gauge process_resident_memory_bytes %lf\ncounter process_cpu_seconds_total %lf\n", &memory,
                          &cpu),
              2);
    EXPECT_THAT(memory / 1024, AllOf(testing::Gt(2000), testing::Lt(usage.ru_maxrss * 2)));
    EXPECT_NEAR(cpu, static_cast<double>(std::clock()) / CLOCKS_PER_SEC, 0.1);
}

TEST(Patches, TheBetterOfTwoStatesAndWhetherAnAnswerIsDue)
{
    const std::string texts[] = {"Success", "Reserved", "Retry Sent", "Awaiting Reply", "Sent", "Not Sent", "x"};
    const char* const names[] = {"success", "reserved", "retry_sent", "awaiting_reply", "sent", "not_sent", "invalid"};
    const auto isDue = [](std::size_t state) { return state >= 2 && state <= 4; };
    for (std::size_t a = 0; a < std::size(texts); ++a)
        for (std::size_t b = 0; b < std::size(texts); ++b) {
            const auto patch = ParsePatch(Patch("1(0.1 ), Style:2(Output), Idx:5", texts[a], texts[b] + " \n"));
            ASSERT_TRUE(patch);
            EXPECT_EQ(PatchStateName(patch->Best()), names[std::min(a, b)]);
            EXPECT_EQ(patch->AwaitsAnswer(), isDue(a) || isDue(b)) << texts[a] << texts[b];
        }
}

/// A listing may be cut or garbled anywhere by the module's log. Of each part only the first character is changed.
TEST(Listings, ARecordWithABrokenPartIsNone)
{
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {Box, {"\tPri", "Link true", "true", "Sec Rem", "Link false", "false"}},
        {Beyond, {"Hid", ", Type", "Pri Rem Addr", "Link true", "Sec Rem Addr", "Owning", " SR"}},
        {Reserved,
         {"PI", "HID", "2097153", "(", "), S", "1(", "(Input", "), Idx", "3 ", "\tDst", "HID:18", "18(", "(0x12",
          "), Style:2", ":2(", "(Output", "), Idx:5", "5 "}}};
    const auto isNone = [](const std::string& text) { return !ParseDevice(text) && !ParsePatch(text); };
    for (const auto& [record, parts] : cases) {
        EXPECT_FALSE(isNone(record));
        for (const std::string& part : parts)
            EXPECT_TRUE(isNone(Replaced(record, part, "#" + part.substr(1)))) << part;
        EXPECT_TRUE(isNone(record.substr(0, record.find("Sec ") + 3)));
    }
}

class Events : public Module, public testing::WithParamInterface<Scene>
{
protected:
    Lines Play(const std::string& event)
    {
        const std::string verb = event.substr(0, event.find(' '));
        const std::string rest = event.substr(event.find(' ') + 1);
        for (const Contact contact : {Contact::Away, Contact::Silent, Contact::Live})
            if (event == ContactName(contact)) mPicture.OnContact(contact, ++mTime);
        if (verb == "information") mPicture.OnInformation(rest == "on");
        if (verb == "sparing") mPicture.OnSparing(rest == "on");
        if (verb == "long") mPicture.OnLong(ShellCommand::Routes, rest == "on");
        if (verb == "active") Reply(ShellCommand::ActiveClock, " " + rest + "\n");
        if (verb == "clock") Reply(ShellCommand::Clocks, "x\n " + rest + "\n");
        if (event == "version") return {std::to_string(mPicture.StateVersion())};
        if (event == "waits") return {mPicture.AwaitsAnswer() ? "yes" : "no"};
        const std::string changes = verb == "log" ? Log(rest) : Changes();
        return changes.empty() ? Lines() : Lines{changes.substr(1)};
    }

private:
    Milliseconds mTime = 0;
};

TEST_P(Events, ChangeTheState)
{
    ExpectTranscript(GetParam().script, [this](const std::string& event) { return Play(event); });
}
INSTANTIATE_TEST_SUITE_P(, Events, testing::ValuesIn(ScenesOf(PictureScenes)), NameOfScene);

TEST_F(Module, TheListingsTellWhatTheLogHasNot)
{
    const auto links = [this](const std::vector<std::string>& records) {
        Reply(ShellCommand::LocalAndRouting, "", records);
        return std::regex_replace(Changes(), std::regex(" /devices[^ ]*"), "");
    };
    // Of other Orb routers, and of what is none.
    EXPECT_EQ(links({Replaced(OrbRouter, "0.18:1", "0.19:1"), Replaced(OrbRouter, "OrbDsp", "Router"),
                     Replaced(OrbRouter, "1.63.1.0", "1.63.2.0")}),
              " primary/stream=no secondary/stream=no");
    EXPECT_EQ(links({Hub, OrbRouter, Beyond}),
              " orb/stream=yes secondary/beating=yes secondary/cable=yes secondary/check=yes secondary/described=yes "
              "secondary/neighbour=0.48:8000 secondary/remoteAddress=0.12.0.254 secondary/stream=yes "
              "secondary/type=KorvoHub /module/hid=0.18:1");
    Log("LinkManager::OnLocalHidChanged Hid Now Is 0.18:8000 ");
    Log("OnKLVStreamChanged Port ORB PORT  Stream LOCAL_LINK  Valid false");
    EXPECT_EQ(links({Replaced(Hub, "KorvoHub", "Router"), OrbRouter}),
              " secondary/check=not_needed secondary/type=Router");
}
/// The texts come from the module's sources: one that is no longer there, or under another feature, shows here.
TEST(LogFeatures, FollowFromTheText)
{
    const std::pair<const char*, const char*> cases[] = {
        {"A heartbeat send delay of 400ms has occurred on H0", "Fault 1"},
        {"DeviceManager::GetInputLinkSlot: Unknown port A9", "Fault 1"},
        {"[40000002] Assert failed in file X.cpp at line 3 - x", "Assert 1"},
        {"x40000002] Assert failed in file X.cpp at line 3 - x", "unknown 0"},
        {"[", "unknown 0"},
        {"Patcher::ProcessPatchUnpatch ", "RouterAudioRoute 0"}};
    for (const auto& [text, feature] : cases)
        EXPECT_EQ(std::string(FeatureOf(text)) + (IsFaultFeature(FeatureOf(text)) ? " 1" : " 0"), feature) << text;
    EXPECT_TRUE(IsFaultFeature("Invalid"));
}

TEST(LogStore, KeepsTheLastLinesAndFaults)
{
    LogStore log;
    const auto json = [&](std::uint64_t from, std::size_t most) {
        return std::regex_replace(LogJson(log, from, most),
                                  std::regex(R"("feature":"unknown",|,"stamp":"s","text":"x")"), "");
    };
    for (int i = 1; i <= 2001; ++i)
        log.Add({"s", i <= 201 ? "Assert failed in file " : "x"}, i);
    EXPECT_EQ(Joined(log.Newest(), log.Entries().size(), log.Faults().size(), log.Faults().front().number),
              "2001|2000|200|2|");
    EXPECT_EQ(json(1, 1),
              R"({"lines":[{"feature":"Assert","number":2,"stamp":"s","text":"Assert failed in file ","time":2}],)"
              R"("missed":1})");
    EXPECT_EQ(json(1999, 2), R"({"lines":[{"number":1999,"time":1999},{"number":2000,"time":2000}],"missed":0})");
    EXPECT_EQ(json(2001, 2), R"({"lines":[{"number":2001,"time":2001}],"missed":0})");
    EXPECT_EQ(json(2002, 2), R"({"lines":[],"missed":0})");
    log.Add({"", std::string(512 * 1024 - 1, 'x')}, 1);
    EXPECT_EQ(log.Entries().size(), 2u);
    log.Add({"", "y"}, 1);
    EXPECT_EQ(log.Entries().size(), 2u);
    log.Add({"", ""}, 1);
    EXPECT_EQ(Joined(log.Entries().size(), log.Entries().front().number, log.Counts().at("unknown")), "3|2002|1803|");
}

TEST(HttpRules, OnlyHostsThatAreKnownAndThePathOfATarget)
{
    using boost::asio::ip::make_address;
    const auto loopback = make_address("127.0.0.1");
    const auto outside = make_address("10.0.0.7");
    const std::vector<std::string> names{"other", "console-7.lan"};
    for (const char* host : {"127.0.0.1:8055", "LocalHost:1", "Other"})
        EXPECT_TRUE(IsKnownHost(host, loopback, names)) << host;
    EXPECT_TRUE(IsKnownHost("[::1]:8055", make_address("::1"), names));
    EXPECT_TRUE(IsKnownHost("Console-7.lan:80", outside, names));
    for (const char* host : {"", ":8055", "evil.example", "127.0.0.1.evil.example", "localhost.evil.example",
                             "10.0.0.8", "[::1", "[", "127.1"})
        EXPECT_FALSE(IsKnownHost(host, loopback, names)) << host;
    EXPECT_FALSE(IsKnownHost("localhost", outside, names));
    EXPECT_EQ(Joined(PathOf("/a/b?c=/d"), PathOf("/"), PathOf("quit"), PathOf("?/a"), PathOf("")), "/a/b|/||||");
}

const std::string Stamp = "[25/11/26 09:43:38] ";
const std::string Overflow = "*** KorvoAudit buffer overflow, message truncated ***";

std::string Received(const std::string& command)
{
    return Stamp + "CommandLine: Received " + command + "\r\n";
}
std::string Sent(const std::string& command, const std::string& result)
{
    return Stamp + "CommandLine: Sent " + command + " Result\r\n" + result + "\r\n";
}

struct Session : testing::TestWithParam<std::size_t>
{
    /// What the session does on bytes that come in pieces of any size.
    std::string After(const std::string& bytes)
    {
        for (std::size_t at = 0; at < bytes.size(); at += GetParam())
            EXPECT_TRUE(session.Feed(bytes.substr(at, GetParam())));
        return std::exchange(seen, {});
    }

    std::string seen;
    ShellSession session{
        {[this](const std::string& bytes) { seen += "send " + bytes; },
         [this](const LogMessage& message) { seen += "log " + Joined(message.stamp, message.text) + "\n"; },
         [this](const Reply& reply) {
             seen += "reply " + Joined(TextOf(reply.command), reply.result, reply.cut, reply.loggedBytes);
             for (const std::string& record : reply.records)
                 seen += record.substr(0, record.find('\n')) + "|";
             seen += "\n";
         },
         [this] { seen += "ready " + session.Version() + "\n"; }}};
};

/// Foreign lines in the middle of a listing belong to the log and not to the listing. The log holds 4095 bytes of a
/// message and cuts off the rest, its line end included.
TEST_P(Session, ReadsListingsResultsAndLogOutOfOneStream)
{
    EXPECT_EQ(
        After("\nOstrel command shell: OrbModule Wed Nov 25 09:43:38 2026\nType 'help' to see available commands.\n"
              "Type 'cmd --help' to find out more about 'cmd'.\n"),
        "send tail false\nversion\ntail true\n");
    EXPECT_EQ(
        After(Stamp + "Scanned [" + Received("tail false") + "true\nOrbModule 1.0.2452\n" + Sent("tail", "true\n")),
        "log 25/11/26 09:43:38|Scanned [|\nready OrbModule 1.0.2452\n");

    session.Ask(ShellCommand::LocalAndRouting);
    const std::string before = Stamp + Box + Received("sr") + Stamp + "Local devices:\n" + Stamp + Hub;
    const std::string after = Stamp + "Remote devices:\n" + Received("ps") + Sent("ps", "") + Sent("sr", "");
    EXPECT_EQ(After(before + Stamp + "A heartbeat \nsend delay \t\r\n" + Received("patch 0 5 1 7") + Sent("patch", "") +
                    Stamp + Stamp + " \r\n" + after),
              "send sr\nlog 25/11/26 09:43:38|A heartbeat \nsend delay|\n"
              "log 25/11/26 09:43:38|CommandLine: Received patch 0 5 1 7|\n"
              "log 25/11/26 09:43:38|CommandLine: Sent patch Result|\n"
              "reply " +
                  Joined("sr", "\r\n", 0, before.size() + after.size()) +
                  "Local devices:|KorvoHub 0.48:8000 |Remote devices:|\n");

    // A result may hold empty lines and brackets.
    session.Ask(ShellCommand::Clocks);
    const std::string clocks = Received("clock/status") + Sent("clock/status", "Clock Ids: [x]\n\n Id\n");
    EXPECT_EQ(After(clocks), "send clock/status\nreply " +
                                 Joined("clock/status", "Clock Ids: [x]\n\n Id\n\r\n", 0, clocks.size()) + "\n");

    session.Ask(ShellCommand::Slots);
    const std::string cut = Sent("rs", "Link 0\n" + std::string(5000, 'x')).substr(0, 4095);
    EXPECT_EQ(
        After(Received("rs") + Overflow + cut + Stamp + "no stamp [25/11/26 09:43:3x] here\r\n"),
        "send rs\nreply " +
            Joined("rs", cut.substr(Sent("rs", "").size() - 2), 1, Received("rs").size() + Overflow.size() + 4095) +
            "\n");

    // Another client turns its tail off meanwhile, and its reply in the log looks like ours.
    session.AskWhole(ShellCommand::Slots);
    const std::string other = Received("rs") + Sent("rs", "") + Received("tail false") + Sent("tail", "true\n");
    const std::string direct = "Link 0\n" + std::string(5000, 'x') + "\nOrbModule 1.0.2452 too\n";
    EXPECT_EQ(After(other + Stamp + "true\nor not\r\n" + Received("tail false") + "true\n" + direct + "OrbMod"),
              "send tail false\nrs\nversion\ntail true\n"
              "log 25/11/26 09:43:38|no stamp [25/11/26 09:43:3x] here|\nlog 25/11/26 09:43:38|true\nor not|\n");
    EXPECT_EQ(After("ule 1.0.2452\n" + Sent("tail", "true\n") + Overflow + Stamp + "Routers Disallowed\r\n"),
              "reply " + Joined("rs", direct, 0, other.size() + Received("tail false").size() + 4095) + "\n");
    session.OnQuiet();
    EXPECT_EQ(After(""), "log 25/11/26 09:43:38|Routers Disallowed|\n");

    // A message is held back while a reply is due.
    session.Ask(ShellCommand::ActiveClock);
    EXPECT_EQ(After("-"), "send clock/active\n");
    session.OnQuiet();
    EXPECT_EQ(After(""), "");
    const std::string clock = Received("clock/active") + Sent("clock/active", "k0\n");
    EXPECT_EQ(After(clock), "log |-|\nreply " + Joined("clock/active", "k0\n\r\n", 0, clock.size()) + "\n");

    session.AskWhole(ShellCommand::Routes);
    EXPECT_EQ(After("true\nOrbModule 1.0.2452\n"),
              "send tail false\nadma/status\nversion\ntail true\nreply adma/status||0|0|\n");
}
INSTANTIATE_TEST_SUITE_P(Pieces, Session, testing::Values(1, 7, 100000));

TEST(Sessions, DoNotGrowWithoutEnd)
{
    ShellSession session({});
    EXPECT_TRUE(session.Feed(std::string(8 * 1024 * 1024, 'x')));
    EXPECT_FALSE(session.Feed("x"));
}

} // namespace
