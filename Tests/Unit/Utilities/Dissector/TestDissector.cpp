#include "Simulation/Stage/ChildProcess.h"
#include "Tests/Support/GoldenCommands.h"

#include <gmock/gmock.h>

#include <fstream>
#include <random>
#include <sstream>

#include <unistd.h>

namespace {

using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;
using Row = std::vector<std::string>;

Bytes Joined(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

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

TEST_F(Dissector, TheTreeShowsTextsOfValues)
{
    AddSegment(55000, HexBytes("3A030028 1D000000 07 0201AB00 0100000A FFFFFFFF 01000000 02000000 00000000 09000000"
                               "71170028 09000000 04000000 312E322E 02 6D1B0028 01000000 05"
                               "22030028 13000000 00000000 0403 FEFFFFFF 01 00 FEFF 0200 0380 FF"
                               "70174028 19000000 00000000 01000000 01000000 61 00000000 00 01 0B 02 FE0F0000"
                               "6B030028 09000000 01 FF0F0000 30750000 49030028 08000000 0102DEC0 07800000"
                               "70030028 16000000 FFFF 7F000001 0C000000 3F030028 04000000 00013F01"
                               "76030028 27000000 0180AB00 14000000 02 02000000 14000000 FF010000 0102DEC0"
                               "07200000 01 0201AB00 05100000 00"
                               "2F030028 1B000000 0201AB00 00000000 0000 00000000 0000 01000000 0302 44332211 02"
                               "21030028 1C000000 0201AB00 07 03000000 413142 00000000 00000000 00000000 00000000"
                               "2B030028 1D000000 0201AB00 03 04000000 43617264 02000000 1000 FFFF 00000000 01020304"
                               "6C1B0028 01000000 01"));
    const std::string tree = Tshark({"-V"});
    for (const std::string& text :
         Split("OrbModule KLV, REMOTE_IO_UPDATE|Key: 0x2800033a (CMD:V0:I826)|Command: REMOTE_IO_UPDATE (826)|"
               "mType: AoIP (7)|mHid: 0x00ab0102 (0.171:102)|mAddress: 10.0.0.1|mOwner: 0xffffffff (INVALID_HID)|"
               "mSampleRate: 96kHz (1)|mSampleRates: 48kHz (0)|mSampleRates: Unknown (9)|mAddress: 1.63.1.0|"
               "mResult: REQUIRESREBOOT (2)|mActive: True|mHid: 0x00000000 (LOCAL_DSP_HID)|mParam1: -2|mParam6: -32765|"
               "mParam7: 255|Key: 0x28401770 (CMD:V1:I6000)|mId: 4094|mHid: 0x00000fff (0.0:fff)|= Style: Output (2)|"
               "0000 0000 0111 = Index: 7|mTargetHid: 65535|mTargetAddress: 127.0.0.1|mCommand bytes: 12|"
               "mSource: 0.171:8001, Invalid, index 20|mSourceLink: Sec Korvo (2)|mSourceSlots count: 2|"
               "mSourceSlots: 511|port: 515|word: 287454020|secondary: 2|mSlots: A1B|mInputs count: 2|mInputs: -1|"
               "mDest: 192.222:201, 8, index 7|mDest: 192.222:201, Output, index 7|"
               "Set a unique ID for this system under System Status > Korvo2 Configuration, and then reset to join the "
               "Korvo2 network. (1)",
               '|'))
        EXPECT_THAT(tree, HasSubstr(text + "\n"));
    EXPECT_THAT(tree, testing::Not(HasSubstr("Expert Info")));
}

TEST_F(Dissector, ItemsNeedNoSegmentsOfTheirOwnAndUnknownOnesAreShownByNumber)
{
    const Bytes request = HexBytes("20030028 00000000");
    AddSegment(49190, Joined(Joined(request, request), HexBytes("2E03")));
    AddSegment(49190, HexBytes("0028 04000000 0201"));
    AddSegment(49190, Joined(HexBytes("AB00"), request));
    AddSegment(55000, HexBytes("00000048 03000000 010203 05004008 00000000 03100400 00000000 E8030038 00000000"
                               "FEFF3F28 01000000 AA 5A020028 01000000 BB 20030028 00000000"));
    EXPECT_THAT(Fields({"_ws.col.Info", "orbklv.IoInfoDevReq.mHid", "_ws.expert.message", "orbklv.type",
                        "orbklv.command", "orbklv.id", "orbklv.number", "orbklv.value", "orbklv.class"}),
                ElementsAre(ElementsAre("IO_INFO_REQ, IO_INFO_REQ", "", "", "5,5", "800,800", _, _, _, _), _,
                            ElementsAre("IO_INFO_DEV_REQ, IO_INFO_REQ", "0x00ab0102", "", _, _, _, _, _, _),
                            ElementsAre("UNKNOWN 9, EVT:V1:E5, MEM:F1:D2:I3, DSP_MESSAGE:M1000, Unknown 4194302, "
                                        "IO_BOX_STATUS, IO_INFO_REQ",
                                        "", _, "9,1,0,7,5,5,5", "4194302,602,800", "5", "1,2,3,1000", "010203,aa,bb",
                                        "IoInfoReq")));
}

TEST_F(Dissector, ABrokenItemHasANoteAndTheNextIsRead)
{
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"47030028 06000000 09000000 4F52", "mName counts 9, and the item has 2 more bytes"},
        {"47030028 02000000 0900", "mName needs 4 bytes, and the item has 2 more"},
        {"77030028 08000000 0201AB00 FFFFFFFF", "mAddresses counts 4294967295, and the item has 0 more bytes"},
        {"2F030028 15000000 0201AB00 00000000 0000 00000000 0000 FFFFFF7F 01",
         "mEntries counts 2147483647, and the item has 1 more bytes"},
        {"2E030028 06000000 0201AB00 0102", "2 bytes after the last field"},
        {"70030028 0D000000 FFFF 7F000001 03000000 3F0300", "the item has 3 bytes, too few for a header"},
        {"70030028 12000000 FFFF 7F000001 08000000 3F030028 04000000", "the item has 0 bytes of its 4"},
    };
    for (const auto& [item, message] : cases)
        AddSegment(55000, Joined(HexBytes(item), HexBytes("3D030028 00000000")));
    // A list without end is not shown to its end.
    MemoryStream stream;
    AoIPAddressesCmd(1, AoIPAddressesCmd::AddressList(6000, 7)).WriteTo(stream);
    AddSegment(55000, stream.bytes);
    const auto rows = Fields({"_ws.expert.message", "orbklv.class", "orbklv.AoIPAddressesCmd.mAddresses.count"});
    ASSERT_EQ(rows.size(), cases.size() + 1);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_THAT(rows[i][0], HasSubstr(cases[i].second));
        EXPECT_THAT(rows[i][1], testing::EndsWith("RouterInfoReq"));
    }
    EXPECT_THAT(rows.back(), ElementsAre("1000 more elements, and what follows them, are not shown", _, "6000"));
}

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
        Bytes item = Joined(command.bytes, {1, 2});
        item[4] = static_cast<std::uint8_t>(item[4] + 2);
        AddSegment(55100, item);
    }
    std::minstd_rand random(7);
    for (int i = 0; i < 1000; ++i) {
        Bytes item = commands[random() % commands.size()].bytes;
        for (int changes = 0; changes < 3; ++changes)
            item[random() % item.size()] = static_cast<std::uint8_t>(random());
        // Each on a connection of its own, so that none is lost in what another has promised.
        AddSegment(49190, item, 0, static_cast<std::uint32_t>(61000 + i));
        item.resize(random() % 16);
        for (const std::uint32_t port : {60001, 60002, 49156, 49157})
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

TEST_F(Dissector, HeartbeatsAndFabricMessages)
{
    for (const char* link : {"00803412 06 000000 2300 0201", "00803412 06 000000 0F00FFFF 00", ""})
        AddDatagram(60001, HexBytes(link));
    AddDatagram(60002, HexBytes("05000000 07 000000 0D0C0B0A"));
    for (const char* module : {"96 00800201", "96 008002"})
        AddDatagram(49157, HexBytes(module));
    for (const char* fabric : {"14 80436D38", "15 01", "14 8043"})
        AddDatagram(49156, HexBytes(fabric));
    std::string text;
    for (const Row& row : Fields({"orblink.hid", "orblink.type", "orblink.variant.number", "orblink.variant.rate",
                                  "orblink.variant.rack", "orblink.internals", "orbheartbeat.hid", "orbfabric.type",
                                  "orbfabric.time", "_ws.col.Protocol", "_ws.col.Info", "_ws.expert.message"})) {
        for (const std::string& field : row)
            if (!field.empty()) text += field + "|";
        text += "\n";
    }
    EXPECT_EQ(text, R"(0x12348000|6|3|2|0x00000102|OrbLink|Link heartbeat of 18.52:8000, OrbDsp, master 1.2|
OrbLink|13 bytes|13 bytes and not 12|
UDP|40000 → 60001 Len=0|
0x00000005|7|0x0a0b0c0d|OrbLink|Link heartbeat of 0x5(5), AoIP|
0x01028000|OrbHeartbeat|Module heartbeat, master 1.2:8000|
OrbHeartbeat|4 bytes|4 bytes and not 5|
20|Jan  1, 2000 00:00:00.000000000 UTC|OrbFabric|Network time 946684800|
21|OrbFabric|Fabric message 21|
OrbFabric|3 bytes|3 bytes and not 5|
)");
}

TEST_F(Dissector, EveryCommandHasItsNameAndIsTakenApartToItsLastField)
{
    std::vector<Row> expected;
    for (const auto& command : golden::AllCommands()) {
        AddSegment(55000, command.bytes);
        expected.push_back({command.name, CommandIdToText(command.id), "", ""});
        if (command.id == ForwardToActiveCmd::ID) {
            expected.back() = {"ForwardToActiveCmd,RouterMcsUpdate", "FORWARD_TO_ACTIVE(ROUTER_MCS_UPDATE)", "", ""};
        } else if (command.id == SornMasterRouterNotification::Command::ID) {
            expected.back().front() = "SornMasterRouterNotification.Command";
        }
    }
    EXPECT_EQ(Fields({"orbklv.class", "_ws.col.Info", "_ws.expert.message", "orbklv.value"}), expected);
}

} // namespace
