#include "Tests/Support/CaptureFile.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/Tshark.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
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

// ---- Values written out by hand

TEST_F(Dissector, NamesAndValuesOfAPing)
{
    mCapture.AddSegment(55000, HexBytes("47030028 15000000 09000000 4F52424D4F44554C45 03000000 04000000"));
    EXPECT_THAT(
        Fields({"_ws.col.Protocol", "_ws.col.Info", "orbklv.key", "orbklv.type", "orbklv.version", "orbklv.command",
                "orbklv.length", "orbklv.class", "orbklv.OstrelPingCmd.mName", "orbklv.OstrelPingCmd.mName.bytes",
                "orbklv.OstrelPingCmd.mPatchCount", "orbklv.OstrelPingCmd.mTotalDests"}),
        ElementsAre(ElementsAre("OrbKLV", "OSTREL_PING_CMD", "0x28000347", "5", "0", "839", "21", "OstrelPingCmd",
                                "ORBMODULE", "9", "3", "4")));
}

TEST_F(Dissector, NamesAndValuesOfAPatch)
{
    mCapture.AddSegment(55100, HexBytes("76030028 27000000 0180AB00 14000000 02 02000000 14000000 FF010000"
                                        "0102DEC0 07200000 01 0201AB00 05100000 00"));
    const std::string path = "orbklv.RouterPatchAudio.";
    EXPECT_THAT(
        Fields({path + "mSource.mSource", path + "mSource.mSourceLink", path + "mSource.mSourceSlots.count",
                path + "mSource.mSourceSlots", path + "mDest", path + "mDest.hid", path + "mDest.style",
                path + "mDest.index", path + "mMake", path + "mOrig", path + "mUseMe"}),
        ElementsAre(ElementsAre("0.171:8001, Invalid, index 20", "2", "2", "20,511", "192.222:201, Output, index 7",
                                "0xc0de0201", "2", "7", "1", "0.171:102, Input, index 5", "0")));
}

TEST_F(Dissector, TextsOfValuesStandInTheTree)
{
    mCapture.AddSegment(55000, HexBytes("3A030028 1D000000 07 0201AB00 0100000A FFFFFFFF 01000000 02000000 02000000"
                                        "09000000"
                                        "71170028 09000000 04000000 312E322E 02"
                                        "6D1B0028 01000000 05"
                                        "22030028 13000000 00000000 0403 FEFFFFFF 01 00 FEFF 0200 0380 FF"
                                        "70174028 19000000 00000000 01000000 01000000 61 00000000 00 01 0B 02 FE0F0000"
                                        "6B030028 09000000 01 FF0F0000 30750000"));
    const std::string tree = Tree();
    for (const char* line : {"OrbModule KLV, REMOTE_IO_UPDATE\n",
                             "Key: 0x2800033a (CMD:V0:I826)\n",
                             "Command: REMOTE_IO_UPDATE (826)\n",
                             "mType: AoIP (7)\n",
                             "mHid: 0x00ab0102 (0.171:102)\n",
                             "mAddress: 10.0.0.1\n",
                             "mOwner: 0xffffffff (INVALID_HID)\n",
                             "mSampleRate: 96kHz (1)\n",
                             "mSampleRates count: 2\n",
                             "mSampleRates: 44.1kHz (2)\n",
                             "mSampleRates: Unknown (9)\n",
                             "mResult: REQUIRESREBOOT (2)\n",
                             "mActive: True\n",
                             "mHid: 0x00000000 (LOCAL_DSP_HID)\n",
                             "mParam1: -2\n",
                             "mParam6: -32765\n",
                             "mParam7: 255\n",
                             "Key: 0x28401770 (CMD:V1:I6000)\n",
                             "mDevices count: 1\n",
                             "mAddress: a\n",
                             "mKind: 11\n",
                             "mId: 4094\n",
                             "mHid: 0x00000fff (0.0:fff)\n",
                             "mSampleRate: 96kHz (1)\n"})
        EXPECT_THAT(tree, HasSubstr(line));
    EXPECT_THAT(tree, Not(HasSubstr("Expert Info")));
}

TEST_F(Dissector, ACommandInsideACommand)
{
    mCapture.AddSegment(55000, HexBytes("70030028 16000000 FFFF 7F000001 0C000000 3F030028 04000000 00013F01"));
    EXPECT_THAT(Fields({"_ws.col.Info", "orbklv.class", "orbklv.ForwardToActiveCmd.mTargetHid",
                        "orbklv.ForwardToActiveCmd.mTargetAddress", "orbklv.ForwardToActiveCmd.mCommand.bytes",
                        "orbklv.RouterMcsUpdate.mAddress", "_ws.expert.message"}),
                ElementsAre(ElementsAre("FORWARD_TO_ACTIVE(ROUTER_MCS_UPDATE)", "ForwardToActiveCmd,RouterMcsUpdate",
                                        "65535", "127.0.0.1", "12", "1.63.1.0", "")));
}

// ---- The stream

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
    mCapture.AddSegment(55000, HexBytes("00000048 03000000 010203"
                                        "05004008 00000000"
                                        "03100400 00000000"
                                        "E8030038 00000000"
                                        "FEFF3F28 01000000 AA"
                                        "5A020028 01000000 BB"
                                        "20030028 00000000"));
    EXPECT_THAT(
        Fields({"_ws.col.Info", "orbklv.type", "orbklv.command", "orbklv.id", "orbklv.number", "orbklv.value",
                "orbklv.class"}),
        ElementsAre(ElementsAre("UNKNOWN 9, EVT:V1:E5, MEM:F1:D2:I3, DSP_MESSAGE:M1000, Unknown 4194302, "
                                "IO_BOX_STATUS, IO_INFO_REQ",
                                "9,1,0,7,5,5,5", "4194302,602,800", "5", "1,2,3,1000", "010203,aa,bb", "IoInfoReq")));
}

struct Broken
{
    const char* item;
    const char* message;
};

TEST_F(Dissector, ABrokenItemHasANoteAndTheNextIsRead)
{
    const std::vector<Broken> cases = {
        {"47030028 06000000 09000000 4F52", "mName counts 9, and the item has 2 more bytes"},
        {"47030028 02000000 0900", "mName needs 4 bytes, and the item has 2 more"},
        {"77030028 08000000 0201AB00 FFFFFFFF", "mAddresses counts 4294967295, and the item has 0 more bytes"},
        {"2F030028 15000000 0201AB00 00000000 0000 00000000 0000 FFFFFF7F 01",
         "mEntries counts 2147483647, and the item has 1 more bytes"},
        {"2E030028 06000000 0201AB00 0102", "2 bytes behind the last field"},
        {"70030028 0D000000 FFFF 7F000001 03000000 3F0300", "the item has 3 bytes, too few for a header"},
        {"70030028 12000000 FFFF 7F000001 08000000 3F030028 04000000", "the item has 0 bytes of its 4"},
    };
    for (const Broken& each : cases)
        mCapture.AddSegment(55000, Joined(HexBytes(each.item), HexBytes("3D030028 00000000")));
    const auto rows = Fields({"_ws.expert.message", "orbklv.class"});
    ASSERT_EQ(rows.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        EXPECT_THAT(rows[i][0], HasSubstr(cases[i].message));
        EXPECT_THAT(rows[i][1], testing::EndsWith("RouterInfoReq"));
    }
}

TEST_F(Dissector, ALengthThatIsNoneTakesOnlyItsSegment)
{
    mCapture.AddSegment(55000, HexBytes("20030028 01000001 0102"));
    mCapture.AddSegment(55000, HexBytes("20030028 00000000"));
    const auto rows = Fields({"_ws.expert.message", "orbklv.length"});
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_THAT(rows[0][0], HasSubstr("no item has 16777217 bytes"));
    EXPECT_THAT(rows[1], ElementsAre("", "0"));
}

TEST_F(Dissector, WhatTheCaptureHasCutIsToldApart)
{
    mCapture.AddSegment(55000, HexBytes("2E030028 04000000 0201AB00"), 2);
    EXPECT_THAT(Tree(), HasSubstr("the item has 2 bytes of its 4"));
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
        mCapture.AddSegment(49190, item, 0, static_cast<std::uint16_t>(61000 + i));
        item.resize(random() % 16);
        for (const int port : {60001, 60002, 49156, 49157})
            mCapture.AddDatagram(static_cast<std::uint16_t>(port), item);
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

// ---- Datagrams

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

// ---- Every field of every command

/// Paths of fields, and how their values read.
using Expected = std::map<std::string, std::string>;

class Expecting
{
public:
    explicit Expecting(Expected& values) : mValues(values) {}

    void Add(const std::string& path, bool value) { Put(path, value ? "1" : "0"); }
    void Add(const std::string& path, const Hid& value)
    {
        char text[16];
        std::snprintf(text, sizeof text, "0x%08x", std::uint32_t{value});
        Put(path, text);
    }
    void Add(const std::string& path, const std::string& value)
    {
        Put(path, value);
        Put(path + ".bytes", std::to_string(value.size()));
    }
    void Add(const std::string& path, const IoPort& value)
    {
        Add(path + ".hid", value.GetHid());
        Put(path + ".style", std::to_string(value.GetStyle()));
        Put(path + ".index", std::to_string(value.GetIndex()));
    }
    void Add(const std::string& path, const Klv::NetworkAddress& value) { Put(path, AddressText(ntohl(value))); }
    void Add(const std::string& path, const std::shared_ptr<CommandContainer>& value)
    {
        Put(path + ".bytes", std::to_string(value->GetLength() - 4));
    }
    void Add(const std::string& path, RemoteDeviceType value) { Put(path, std::to_string(static_cast<int>(value))); }
    void Add(const std::string& path, SampleRates::SystemSampleRate value) { Put(path, std::to_string(value)); }
    void Add(const std::string& path, const Klv::ByteField<SampleRates::SystemSampleRate>& value)
    {
        Add(path, static_cast<SampleRates::SystemSampleRate>(value));
    }
    void Add(const std::string& path, const PortBitmapEntries& entries)
    {
        Put(path + ".count", std::to_string(entries.size()));
        for (const auto& [port, entry] : entries) {
            Add(path + ".port", port);
            Add(path + ".word", entry.word);
            Add(path + ".secondary", entry.secondary);
        }
    }
    template <class Element>
    void Add(const std::string& path, const std::vector<Element>& elements)
    {
        Put(path + ".count", std::to_string(elements.size()));
        for (const Element& element : elements)
            Add(path, element);
    }
    template <class Element, std::size_t Size>
    void Add(const std::string& path, const std::array<Element, Size>& elements)
    {
        for (const Element& element : elements)
            Add(path, element);
    }
    /// A number or a record.
    template <class Type>
    void Add(const std::string& path, const Type& value)
    {
        if constexpr (std::is_same_v<Type, std::uint32_t>) {
            const bool isAddress =
                path.find(".mAddress") != std::string::npos && path.find("AoIP") == std::string::npos;
            Put(path, isAddress ? AddressText(value) : std::to_string(value));
        } else if constexpr (std::is_arithmetic_v<Type>) {
            Put(path, std::to_string(value));
        } else {
            Type::VisitFields(value, [&](const char* name, const auto& field) { Add(path + "." + name, field); });
        }
    }

private:
    void Put(const std::string& path, const std::string& value)
    {
        const auto [known, isNew] = mValues.try_emplace(path, value);
        if (!isNew) known->second += "," + value;
    }

    Expected& mValues;
};

TEST_F(Dissector, EveryFieldOfEveryCommandHasItsNameAndItsValue)
{
    std::vector<Expected> expected;
    std::map<std::string, std::size_t> columns = {{"orbklv.class", 0}, {"_ws.expert.message", 1}};
    for (const auto& command : golden::AllCommands()) {
        mCapture.AddSegment(55000, command.bytes);
        Expected values;
        Klv::VisitCommands([&](const auto& row) {
            using Class = typename std::decay_t<decltype(row)>::Command;
            if (command.id != Class::ID) return;
            std::string name = row.name;
            if (name.find("::") != std::string::npos) name.replace(name.find("::"), 2, ".");
            values["orbklv.class"] = name;
            Expecting(values).Add("orbklv." + name, dynamic_cast<const Class&>(*command.command));
        });
        expected.push_back(values);
    }
    // The one that carries another, whose field is there too.
    for (Expected& values : expected) {
        if (values["orbklv.class"] != "ForwardToActiveCmd") continue;
        values["orbklv.class"] = "ForwardToActiveCmd,RouterMcsUpdate";
        values["orbklv.RouterMcsUpdate.mAddress"] = "0.171.1.0";
    }

    Row fields = {"orbklv.class", "_ws.expert.message"};
    for (const Expected& values : expected)
        for (const auto& [path, value] : values)
            if (columns.emplace(path, fields.size()).second) fields.push_back(path);
    const auto rows = Fields(fields);
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t column = 0; column < fields.size(); ++column) {
            const auto value = expected[i].find(fields[column]);
            EXPECT_EQ(rows[i][column], value == expected[i].end() ? "" : value->second)
                << fields[column] << " in " << expected[i]["orbklv.class"];
        }
    }
}

} // namespace
