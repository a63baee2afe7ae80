#include "Tests/Support/CaptureFile.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/Tshark.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Bytes = std::vector<std::uint8_t>;
using Row = std::vector<std::string>;

class Dissector : public testing::Test
{
protected:
    ~Dissector() override { unlink(mPath.c_str()); }

    std::vector<Row> Fields(const Row& fields)
    {
        mCapture.Close();
        return TsharkFields(mPath, fields);
    }
    /// Everything that tshark has to say.
    std::string Tree(Row options = {})
    {
        mCapture.Close();
        options.push_back("-V");
        return Tshark(mPath, options);
    }

    const std::string mPath = testing::TempDir() + "orb-dissector-" + std::to_string(getpid()) + ".pcap";
    CaptureFile mCapture{mPath};
};

Bytes Joined(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST_F(Dissector, TheTreeShowsTextsOfValues)
{
    mCapture.AddSegment(55000,
                        HexBytes("3A030028 1D000000 07 0201AB00 0100000A FFFFFFFF 01000000 02000000 02000000 09000000"
                                 "71170028 09000000 04000000 312E322E 02 6D1B0028 01000000 05"
                                 "22030028 13000000 00000000 0403 FEFFFFFF 01 00 FEFF 0200 0380 FF"
                                 "70174028 19000000 00000000 01000000 01000000 61 00000000 00 01 0B 02 FE0F0000"
                                 "6B030028 09000000 01 FF0F0000 30750000 49030028 08000000 0102DEC0 07200000"
                                 "70030028 16000000 FFFF 7F000001 0C000000 3F030028 04000000 00013F01"
                                 "76030028 27000000 0180AB00 14000000 02 02000000 14000000 FF010000 0102DEC0"
                                 "07200000 01 0201AB00 05100000 00"
                                 "2F030028 1B000000 0201AB00 00000000 0000 00000000 0000 01000000 0302 44332211 02"
                                 "21030028 1C000000 0201AB00 07 03000000 413142 00000000 00000000 00000000 00000000"
                                 "2B030028 1D000000 0201AB00 03 04000000 43617264 02000000 1000 FFFF 00000000"
                                 "01020304"));
    const std::string tree = Tree();
    for (const std::string& text :
         Split("OrbModule KLV, REMOTE_IO_UPDATE|Key: 0x2800033a (CMD:V0:I826)|Command: REMOTE_IO_UPDATE (826)|"
               "mType: AoIP (7)|mHid: 0x00ab0102 (0.171:102)|mAddress: 10.0.0.1|mOwner: 0xffffffff (INVALID_HID)|"
               "mSampleRate: 96kHz (1)|mSampleRates: 44.1kHz (2)|mSampleRates: Unknown (9)|mAddress: 1.63.1.0|"
               "mResult: REQUIRESREBOOT (2)|mActive: True|mHid: 0x00000000 (LOCAL_DSP_HID)|mParam1: -2|mParam6: -32765|"
               "mParam7: 255|Key: 0x28401770 (CMD:V1:I6000)|mId: 4094|mHid: 0x00000fff (0.0:fff)|= Style: Output (2)|"
               "0000 0000 0111 = Index: 7|mTargetHid: 65535|mTargetAddress: 127.0.0.1|mCommand bytes: 12|"
               "mSource: 0.171:8001, Invalid, index 20|mSourceSlots count: 2|mSourceSlots: 511|port: 515|"
               "word: 287454020|secondary: 2|mSlots: A1B|mInputs count: 2|mInputs: -1",
               '|'))
        EXPECT_THAT(tree, HasSubstr(text + "\n"));
    EXPECT_THAT(tree, HasSubstr("192.222:201, Output, index 7"));
    EXPECT_THAT(tree, Not(HasSubstr("Expert Info")));
}

TEST_F(Dissector, ItemsNeedNoSegmentsOfTheirOwn)
{
    const Bytes request = HexBytes("20030028 00000000");
    mCapture.AddSegment(49190, Joined(Joined(request, request), HexBytes("2E03")));
    mCapture.AddSegment(49190, HexBytes("0028 04000000 0201"));
    mCapture.AddSegment(49190, Joined(HexBytes("AB00"), request));
    EXPECT_THAT(Fields({"_ws.col.Info", "orbklv.IoInfoDevReq.mHid", "_ws.expert.message"}),
                ElementsAre(ElementsAre("IO_INFO_REQ, IO_INFO_REQ", "", ""), testing::_,
                            ElementsAre("IO_INFO_DEV_REQ, IO_INFO_REQ", "0x00ab0102", "")));
}

TEST_F(Dissector, UnknownItemsAreShownByNumber)
{
    mCapture.AddSegment(55000, HexBytes("00000048 03000000 010203 05004008 00000000 03100400 00000000 E8030038 00000000"
                                        "FEFF3F28 01000000 AA 5A020028 01000000 BB 20030028 00000000"));
    EXPECT_THAT(
        Fields({"_ws.col.Info", "orbklv.type", "orbklv.command", "orbklv.id", "orbklv.number", "orbklv.value",
                "orbklv.class"}),
        ElementsAre(ElementsAre("UNKNOWN 9, EVT:V1:E5, MEM:F1:D2:I3, DSP_MESSAGE:M1000, Unknown 4194302, "
                                "IO_BOX_STATUS, IO_INFO_REQ",
                                "9,1,0,7,5,5,5", "4194302,602,800", "5", "1,2,3,1000", "010203,aa,bb", "IoInfoReq")));
}

TEST_F(Dissector, ABrokenItemHasANoteAndTheNextIsRead)
{
    const std::vector<std::pair<const char*, const char*>> cases = {
        {"47030028 06000000 09000000 4F52", "mName counts 9, and the item has 2 more bytes"},
        {"47030028 02000000 0900", "mName needs 4 bytes, and the item has 2 more"},
        {"77030028 08000000 0201AB00 FFFFFFFF", "mAddresses counts 4294967295, and the item has 0 more bytes"},
        {"2F030028 15000000 0201AB00 00000000 0000 00000000 0000 FFFFFF7F 01",
         "mEntries counts 2147483647, and the item has 1 more bytes"},
        {"2E030028 06000000 0201AB00 0102", "2 bytes behind the last field"},
        {"70030028 0D000000 FFFF 7F000001 03000000 3F0300", "the item has 3 bytes, too few for a header"},
        {"70030028 12000000 FFFF 7F000001 08000000 3F030028 04000000", "the item has 0 bytes of its 4"},
    };
    for (const auto& [item, message] : cases)
        mCapture.AddSegment(55000, Joined(HexBytes(item), HexBytes("3D030028 00000000")));
    const auto rows = Fields({"_ws.expert.message", "orbklv.class"});
    ASSERT_EQ(rows.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_THAT(rows[i][0], HasSubstr(cases[i].second));
        EXPECT_THAT(rows[i][1], testing::EndsWith("RouterInfoReq"));
    }
}

TEST_F(Dissector, AListWithoutEndIsNotShownToItsEnd)
{
    constexpr std::uint32_t Count = 6000;
    MemoryStream stream;
    AoIPAddressesCmd(1, AoIPAddressesCmd::AddressList(Count, 7)).WriteTo(stream);
    mCapture.AddSegment(55000, stream.bytes);
    EXPECT_THAT(Fields({"_ws.expert.message", "orbklv.AoIPAddressesCmd.mAddresses.count"}),
                ElementsAre(ElementsAre("1000 more elements, and what stands behind them, are not shown", "6000")));
}

/// Whatever comes, the dissector has its own answer, and never one of the interpreter.
TEST_F(Dissector, NothingRaisesALuaError)
{
    const auto commands = golden::AllCommands();
    for (const auto& command : commands) {
        // Cut at every byte, with a header that fits and with one that does not.
        for (std::size_t size = 8; size < command.bytes.size(); ++size) {
            Bytes item(command.bytes.begin(), command.bytes.begin() + static_cast<std::ptrdiff_t>(size));
            mCapture.AddSegment(55000, item, size % 3);
            item[4] = static_cast<std::uint8_t>(size - 8);
            mCapture.AddSegment(55100, item, size % 3);
        }
        // And with more than its fields.
        Bytes item = Joined(command.bytes, {1, 2});
        item[4] = static_cast<std::uint8_t>(item[4] + 2);
        mCapture.AddSegment(55100, item);
    }
    std::minstd_rand random(7);
    for (int i = 0; i < 1000; ++i) {
        Bytes item = commands[random() % commands.size()].bytes;
        for (int changes = 0; changes < 3; ++changes)
            item[random() % item.size()] = static_cast<std::uint8_t>(random());
        // Each on a connection of its own, so that none is lost in what another has promised.
        mCapture.AddSegment(49190, item, 0, static_cast<std::uint32_t>(61000 + i));
        item.resize(random() % 16);
        for (const std::uint32_t port : {60001, 60002, 49156, 49157})
            mCapture.AddDatagram(port, item);
    }
    // As one stream, and each segment for itself, which is how an item comes whose end is not in the capture.
    for (const char* whole : {"TRUE", "FALSE"}) {
        const std::string tree = Tree({"-o", std::string("tcp.desegment_tcp_streams:") + whole});
        for (const char* seen : {"bytes of its", "more bytes", "needs", "behind the last field", "no item has"})
            EXPECT_THAT(tree.find(seen), testing::Ne(std::string::npos)) << seen;
        for (const char* complaint : {"Lua Error", "Dissector bug", "Malformed Packet", "Exception occurred"})
            EXPECT_THAT(tree.find(complaint), std::string::npos) << tree.substr(tree.find(complaint) - 2000, 2500);
    }
}

TEST_F(Dissector, LinkHeartbeats)
{
    mCapture.AddDatagram(60001, HexBytes("00803412 06 000000 2300 0201"));
    mCapture.AddDatagram(60002, HexBytes("05000000 07 000000 0D0C0B0A"));
    mCapture.AddDatagram(60001, HexBytes("00803412 06 000000 0F00FFFF 00"));
    mCapture.AddDatagram(60001, {});
    EXPECT_THAT(
        Fields({"orblink.hid", "orblink.type", "orblink.variant.number", "orblink.variant.rate", "orblink.variant.rack",
                "orblink.internals", "_ws.col.Info", "_ws.expert.message"}),
        ElementsAre(ElementsAre("0x12348000", "6", "3", "2", "0x00000102", "",
                                "Link heartbeat of 18.52:8000, OrbDsp, master 1.2", ""),
                    ElementsAre("0x00000005", "7", "", "", "", "0x0a0b0c0d", "Link heartbeat of 0x5(5), AoIP", ""),
                    ElementsAre("", "", "", "", "", "", "13 bytes", "13 bytes and not 12"), testing::_));
}

TEST_F(Dissector, ModuleHeartbeatAndFabricMessages)
{
    mCapture.AddDatagram(49157, HexBytes("96 00800201"));
    mCapture.AddDatagram(49157, HexBytes("96 008002"));
    mCapture.AddDatagram(49156, HexBytes("14 80436D38"));
    mCapture.AddDatagram(49156, HexBytes("15 01"));
    mCapture.AddDatagram(49156, HexBytes("14 8043"));
    EXPECT_THAT(Fields({"_ws.col.Protocol", "orbheartbeat.hid", "orbfabric.type", "orbfabric.time", "_ws.col.Info",
                        "_ws.expert.message"}),
                ElementsAre(ElementsAre("OrbHeartbeat", "0x01028000", "", "", "Module heartbeat, master 1.2:8000", ""),
                            ElementsAre("OrbHeartbeat", "", "", "", "4 bytes", "4 bytes and not 5"),
                            ElementsAre("OrbFabric", "", "20", "Jan  1, 2000 00:00:00.000000000 UTC",
                                        "Network time 946684800", ""),
                            ElementsAre("OrbFabric", "", "21", "", "Fabric message 21", ""),
                            ElementsAre("OrbFabric", "", "", "", "3 bytes", "3 bytes and not 5")));
}

TEST_F(Dissector, EveryCommandHasItsNameAndIsTakenApartToItsLastField)
{
    std::vector<Row> expected;
    for (const auto& command : golden::AllCommands()) {
        mCapture.AddSegment(55000, command.bytes);
        const bool carries = command.id == ForwardToActiveCmd::ID;
        const bool isNested = command.id == SornMasterRouterNotification::Command::ID;
        expected.push_back({carries    ? "ForwardToActiveCmd,RouterMcsUpdate"
                            : isNested ? "SornMasterRouterNotification.Command"
                                       : command.name,
                            carries ? "FORWARD_TO_ACTIVE(ROUTER_MCS_UPDATE)" : CommandIdToText(command.id), "", ""});
    }
    EXPECT_EQ(Fields({"orbklv.class", "_ws.col.Info", "_ws.expert.message", "orbklv.value"}), expected);
}

} // namespace
