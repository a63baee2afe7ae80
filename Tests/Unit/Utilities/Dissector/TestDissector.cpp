#include "Simulation/Stage/ChildProcess.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Utilities/Dissector/Captures.scenes.h"

#include <boost/algorithm/string/replace.hpp>
#include <gmock/gmock.h>

#include <fstream>
#include <random>
#include <sstream>

#include <unistd.h>

namespace {

using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;
using Row = std::vector<std::string>;

Row Split(const std::string& text, char separator)
{
    Row parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

/// A capture of datagrams and segments between two made-up hosts, and what tshark prints of it with the dissector of
/// this build.
class Dissector : public testing::Test
{
protected:
    Dissector()
    {
        constexpr std::uint32_t rawIp = 101;
        Write({0xA1B2C3D4, 0x00040002, 0, 0, 0xFFFF, rawIp});
    }
    ~Dissector() override { unlink(mPath.c_str()); }

    /// The next bytes of the stream between these ports. @param cut so many bytes at the end are not captured.
    void AddSegment(std::uint32_t port, const Bytes& payload, std::size_t cut = 0, std::uint32_t source = 40000)
    {
        std::uint32_t& sequence = mSequences[{source, port}];
        // Five words, ACK and PSH, and the largest window.
        AddPacket(6, {source << 16 | port, sequence + 1, 1, 0x5018FFFF, 0}, payload, cut);
        sequence += static_cast<std::uint32_t>(payload.size());
    }
    void AddDatagram(std::uint32_t port, const Bytes& payload)
    {
        AddPacket(17, {40000u << 16 | port, static_cast<std::uint32_t>(8 + payload.size()) << 16}, payload, 0);
    }

    std::string Tshark(const Row& options)
    {
        mFile.flush();
        Row arguments = {"tshark", "-n", "-X", std::string("lua_script:") + ORB_DISSECTOR_FILE, "-r", mPath};
        arguments.insert(arguments.end(), options.begin(), options.end());
        // Whatever the user has set up for himself is left alone.
        stage::ChildProcess process({arguments, {{"WIRESHARK_CONFIG_DIR", "/nonexistent"}, {"HOME", "/nonexistent"}}});
        EXPECT_EQ(process.Wait(std::chrono::minutes(2)).Text(), "exit code 0")
            << "Is tshark there (Debian package tshark)? " << process.Errors();
        EXPECT_EQ(process.Errors().find("Lua"), std::string::npos) << process.Errors();
        return process.Output();
    }
    /// The values of fields, packet by packet; commas part those of a field that comes several times in a packet.
    std::vector<Row> Fields(const Row& fields)
    {
        Row options = {"-T", "fields"};
        for (const std::string& field : fields)
            options.insert(options.end(), {"-e", field});
        std::vector<Row> packets;
        for (const std::string& line : Split(Tshark(options), '\n')) {
            packets.push_back(Split(line, '\t'));
            packets.back().resize(fields.size());
        }
        return packets;
    }

private:
    void Write(const std::vector<std::uint32_t>& words)
    {
        for (const std::uint32_t word : words)
            mFile.write(reinterpret_cast<const char*>(&word), sizeof word);
    }
    /// @param header the words of the transport's header.
    void AddPacket(std::uint32_t protocol, const std::vector<std::uint32_t>& header, const Bytes& payload,
                   std::size_t cut)
    {
        const auto size = static_cast<std::uint32_t>(20 + 4 * header.size() + payload.size());
        std::vector<std::uint32_t> words = {0x45000000 | size, 0, 64u << 24 | protocol << 16, 0x0A000001, 0x0A000002};
        words.insert(words.end(), header.begin(), header.end());
        Write({0, 0, static_cast<std::uint32_t>(size - std::min(cut, payload.size())), size});
        for (std::uint32_t& word : words)
            word = htonl(word);
        Write(words);
        mFile.write(reinterpret_cast<const char*>(payload.data()),
                    static_cast<std::streamsize>(payload.size() - std::min(cut, payload.size())));
    }

    const std::string mPath = testing::TempDir() + "orb-dissector-" + std::to_string(getpid()) + ".pcap";
    std::ofstream mFile{mPath, std::ios::binary | std::ios::trunc};
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> mSequences;
};

/// A capture as a text; the file says how it is read.
class CaptureScene : public Dissector, public testing::WithParamInterface<Scene>
{};

TEST_P(CaptureScene, IsShownAsWritten)
{
    std::istringstream lines(std::regex_replace(GetParam().script, std::regex("\n +"), " "));
    Row columns, expected, shown;
    for (std::string verb, rest; lines >> verb && std::getline(lines >> std::ws, rest);) {
        if (verb == "columns") {
            columns = Split(rest, ' ');
        } else if (verb == "shows") {
            shown.push_back(rest + "\n");
        } else {
            const auto port = static_cast<std::uint32_t>(std::stoul(rest));
            const std::size_t arrow = rest.find("->");
            const Bytes payload = HexBytes(rest.substr(rest.find(' '), arrow - rest.find(' ')));
            verb == "tcp" ? AddSegment(port, payload) : AddDatagram(port, payload);
            expected.push_back(rest.substr(std::min(arrow, rest.size() - 3) + 3));
        }
    }
    if (!shown.empty()) {
        const std::string tree = Tshark({"-V"});
        for (const std::string& line : shown)
            EXPECT_THAT(tree, HasSubstr(line));
        EXPECT_THAT(tree, testing::Not(HasSubstr("Expert Info")));
        return;
    }
    const auto packets = Fields(columns);
    ASSERT_EQ(packets.size(), expected.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        std::string seen;
        for (const std::string& value : packets[i])
            if (!value.empty()) seen += (seen.empty() ? "" : " | ") + value;
        EXPECT_EQ(expected[i].empty() ? "" : seen, expected[i]);
    }
}
INSTANTIATE_TEST_SUITE_P(, CaptureScene, testing::ValuesIn(ScenesOf(CapturesScenes)), NameOfScene);

/// Whatever comes, the dissector has its own answer, and never one of the interpreter.
TEST_F(Dissector, NothingRaisesALuaError)
{
    const auto commands = golden::AllCommands();
    for (const auto& command : commands) {
        // Cut at every byte, with a header that fits and with one that does not.
        for (std::size_t size = 8; size < command.bytes.size(); ++size) {
            Bytes item(command.bytes.begin(), command.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            AddSegment(55000, item, size % 3);
            item[4] = static_cast<std::uint8_t>(size - 8);
            AddSegment(55100, item, size % 3);
        }
        // And with more than its fields.
        Bytes item = command.bytes;
        item.insert(item.end(), {1, 2});
        item[4] = static_cast<std::uint8_t>(item[4] + 2);
        AddSegment(55100, item);
    }
    std::minstd_rand random(7);
    for (int i = 0; i < 300; ++i) {
        Bytes item = commands[random() % commands.size()].bytes;
        for (int changes = 0; changes < 3; ++changes)
            item[random() % item.size()] = static_cast<std::uint8_t>(random());
        // Each on a connection of its own, so that none is lost in what another has promised.
        AddSegment(49190, item, 0, static_cast<std::uint32_t>(61000 + i));
        item.resize(random() % 16);
        for (const std::uint32_t port : {60001u, 60002u, 49156u, 49157u})
            AddDatagram(port, item);
    }
    // As one stream, and each segment for itself, which is how an item comes whose end is not in the capture.
    for (const char* whole : {"TRUE", "FALSE"}) {
        const std::string tree = Tshark({"-V", "-o", std::string("tcp.desegment_tcp_streams:") + whole});
        for (const char* seen : {"bytes of its", "more bytes", "needs", "after the last field", "no item has"})
            EXPECT_NE(tree.find(seen), std::string::npos) << seen;
        for (const char* complaint : {"Lua Error", "Dissector bug", "Malformed Packet", "Exception occurred"})
            EXPECT_EQ(tree.find(complaint), std::string::npos) << tree.substr(tree.find(complaint) - 2000, 2500);
    }
}

TEST_F(Dissector, EveryCommandHasItsNameAndIsTakenApartToItsLastField)
{
    std::vector<Row> expected;
    for (const auto& command : golden::AllCommands()) {
        AddSegment(55000, command.bytes);
        expected.push_back({boost::replace_all_copy(command.name, "::", "."), CommandIdToText(command.id), "", ""});
        if (command.id == ForwardToActiveCmd::ID)
            expected.back() = {"ForwardToActiveCmd,RouterMcsUpdate", "FORWARD_TO_ACTIVE(ROUTER_MCS_UPDATE)", "", ""};
    }
    // A list without end is not shown to its end.
    MemoryStream stream;
    AoIPAddressesCmd(1, AoIPAddressesCmd::AddressList(6000, 0)).WriteTo(stream);
    AddSegment(55000, stream.bytes);
    expected.push_back({"AoIPAddressesCmd", CommandIdToText(AoIPAddressesCmd::ID),
                        "1000 more elements, and what follows them, are not shown", std::string(8000, '0')});
    EXPECT_EQ(Fields({"orbklv.class", "_ws.col.Info", "_ws.expert.message", "orbklv.value"}), expected);
}

} // namespace
