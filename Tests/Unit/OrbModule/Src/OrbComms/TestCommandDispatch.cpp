#include "Tests/Unit/OrbModule/Src/OrbComms/CommsFixture.h"

#include "Common/KLV/Commands/PatchCommands.h"

using CommandDispatch = CommsTest;

namespace {

using Lines = std::vector<std::string>;
using Ping = std::shared_ptr<OstrelPingCmd const>;

/// A ping of this text, as on the wire; the counts are 1 and 2.
std::string PingBytes(const std::string& text)
{
    std::string bytes("\x47\x03\x00\x28", 4);
    for (const std::size_t word : {text.size() + 12, text.size()}) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes += static_cast<char>(word >> shift);
    }
    return bytes + text + std::string("\x01\0\0\0\x02\0\0\0", 8);
}

/// Its id belongs to another class.
struct Impostor
{
    static constexpr CommandID ID = OstrelPingCmd::ID;
    explicit Impostor(KLVCommandReadSet&) {}
};

/// Its read constructor throws.
struct Unreadable
{
    static constexpr CommandID ID = 999;
    explicit Unreadable(KLVCommandReadSet&) { throw std::runtime_error("not today"); }
};

} // namespace

TEST_F(CommandDispatch, ACommandReachesAllItsSlotsDecodedInOrderOnTheMainThread)
{
    mPorts.interfaces[0] = "lo";
    Start();
    Lines calls;
    std::vector<Ping> seen;
    for (const char* slot : {"first ", "second "}) {
        mProcessor.Connect<OstrelPingCmd>([&, slot](const Ping& ping, unsigned char port, StreamType type) {
            EXPECT_EQ(port, 0);
            EXPECT_EQ(type, StreamType::LOCAL_LINK);
            calls.push_back(slot + ping->GetName() + " " + std::to_string(ping->GetPatchCount()));
            seen.push_back(ping);
        });
    }
    const LoopbackPeer peer = ConnectAdjacent();
    // Between the two: an id without a slot, an event, and a ping with more than its fields.
    const std::string longer = PingBytes("long") + "more";
    peer.Send(PingBytes("one") + std::string("\x20\x03\x00\x28\x03\0\0\0abc", 11) +
              std::string("\x01\0\0\x08\x02\0\0\0xy", 10) + longer.substr(0, 4) + std::string("\x14\0\0\0", 4) +
              longer.substr(8) + PingBytes("two"));
    ASSERT_TRUE(RunUntil([&] { return calls.size() >= 6; }));
    EXPECT_EQ(calls,
              (Lines{"first one 1", "second one 1", "first long 1", "second long 1", "first two 1", "second two 1"}));
    EXPECT_EQ(seen[0], seen[1]) << "one object for all slots";
    EXPECT_EQ(mLog.Count("Nothing registered for " + std::string(CommandIdToText(800)) + ", skipping to end of data\n"),
              1u);
    EXPECT_EQ(mLog.Count("Unknown KLV Keytype received: 1\n"), 1u);
}

TEST_F(CommandDispatch, ACommandThatDoesNotFitItsItemClosesItsStream)
{
    Start();
    Lines names;
    mProcessor.Connect<OstrelPingCmd>(
        [&](const Ping& ping, unsigned char, StreamType) { names.push_back(ping->GetName()); });
    const LoopbackPeer peer = ConnectAdjacent();
    // A string count of 200 in 10 bytes of value.
    peer.Send(std::string("\x47\x03\x00\x28\x0A\0\0\0\xC8\0\0\0abcdef", 18) + PingBytes("never"));
    EXPECT_TRUE(peer.WaitForEnd());
    EXPECT_TRUE(mLog.WaitFor("KLVTCPStream from 127.0.0.1 closed: a command does not fit its item\r\n"));
    const LoopbackPeer next = ConnectAdjacent();
    next.Send(PingBytes("next"));
    ASSERT_TRUE(RunUntil([&] { return !names.empty() && names.back() == "next"; }));
    EXPECT_EQ(names, (Lines{"", "next"})) << "the damaged one is delivered with its defaults";
}

TEST_F(CommandDispatch, ExceptionsEndNeitherThreadNorProcess)
{
    Start();
    mProcessor.Connect<Unreadable>([](const std::shared_ptr<Unreadable const>&, unsigned char, StreamType) { FAIL(); });
    int calls = 0;
    mProcessor.Connect<OstrelPingCmd>([&](const Ping&, unsigned char, StreamType) {
        if (++calls == 1) throw std::runtime_error("slot");
        if (calls == 2) throw 2;
    });
    EXPECT_FALSE(mProcessor.Connect<Impostor>([](const auto&, unsigned char, StreamType) { FAIL(); }).connected());
    EXPECT_TRUE(mLog.HasStart("Failed to get signal for Command (anonymous namespace)::Impostor: "));
    EXPECT_TRUE(mLog.HasStart("Failed to get signal of type (anonymous namespace)::Impostor for CommandID 839\n"));
    const LoopbackPeer peer = ConnectAdjacent();
    peer.Send(std::string("\xE7\x03\x00\x28\x02\0\0\0ab", 10));
    EXPECT_TRUE(peer.WaitForEnd());
    const LoopbackPeer next = ConnectAdjacent();
    next.Send(PingBytes("a") + PingBytes("b") + PingBytes("c"));
    ASSERT_TRUE(RunUntil([&] { return calls == 3; }));
}
