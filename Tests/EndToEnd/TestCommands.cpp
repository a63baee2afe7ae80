// Every command that the module takes, from a far end across the rig's network that knows nothing but bytes.

#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "Simulation/Stage/ByteStream.h"
#include "Simulation/Stage/Deadline.h"
#include "Simulation/Stage/NetworkNamespace.h"
#include "Tests/Support/GoldenCommands.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>
#include <thread>

namespace {

/// A command as its slot met it: its class, the way it came, and what it holds, as bytes.
struct Arrival
{
    std::string name;
    std::vector<std::uint8_t> bytes;
    unsigned int port;
    StreamType type;
    std::thread::id thread;
};

std::string Joined(const std::vector<golden::Golden>& commands)
{
    std::string bytes;
    for (const golden::Golden& command : commands)
        bytes.append(command.bytes.begin(), command.bytes.end());
    return bytes;
}

class CommandsTest : public testing::Test
{
protected:
    CommandsTest()
    {
        Klv::VisitReceivedCommands([this](auto row) {
            using Command = typename decltype(row)::Command;
            const std::string name = row.name;
            mProcessor.Connect<Command>(
                [this, name](const std::shared_ptr<Command const>& command, unsigned char port, StreamType type) {
                    MemoryStream stream;
                    command->WriteTo(stream);
                    mArrivals.push_back({name, stream.bytes, port, type, std::this_thread::get_id()});
                });
        });
        for (golden::Golden& command : golden::AllCommands()) {
            if (IsReceived(command.id)) mReceived.push_back(command);
        }
    }

    static bool IsReceived(CommandID id)
    {
        bool isReceived = false;
        Klv::VisitReceivedCommands([&](auto row) { isReceived = isReceived || decltype(row)::Command::ID == id; });
        return isReceived;
    }
    void RunUntil(const std::function<bool()>& isDone)
    {
        const stage::Deadline deadline(stage::Patience);
        while (!isDone() && !deadline.HasPassed())
            mService.run_one_for(deadline.Left());
    }
    stage::ByteStream ConnectFromUnit()
    {
        auto peer = stage::ByteStream::ConnectTcp(stage::UnitNamespace, "1.63.5.0", NetworkPorts::LOCAL_STREAM);
        bool isThere = false;
        const boost::signals2::scoped_connection watch = mComms.ConnectKLVStreamChanged(
            [&](UINT8GIGEPORT, StreamType, std::uint32_t, bool valid) { isThere = valid; });
        RunUntil([&] { return isThere; });
        EXPECT_TRUE(isThere);
        return peer;
    }

    LogRecorder mLog;
    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
    OrbCommandProcessor mProcessor{mService};
    OrbSimpleStreamContainer mStreams;
    OrbKLVComms mComms{mService, mProcessor, mStreams};
    std::vector<golden::Golden> mReceived;
    std::vector<Arrival> mArrivals;
};

TEST_F(CommandsTest, EachReceivedCommandReachesItsSlotInOrderOnTheMainThread)
{
    ASSERT_EQ(mReceived.size(), 41u);
    stage::ByteStream peer = ConnectFromUnit();
    const std::string bytes = Joined(mReceived);
    // In one piece, and once more in pieces that respect no border.
    peer.Send(bytes);
    for (std::size_t i = 0; i < bytes.size(); i += 7)
        peer.Send(bytes.substr(i, 7));

    RunUntil([&] { return mArrivals.size() == 2 * mReceived.size(); });
    ASSERT_EQ(mArrivals.size(), 2 * mReceived.size());
    for (std::size_t i = 0; i < mArrivals.size(); ++i) {
        const golden::Golden& sent = mReceived[i % mReceived.size()];
        SCOPED_TRACE(sent.name);
        auto expected = sent.bytes;
        if (sent.id == ChainLengthCmd::ID) ++expected.back(); // one hop longer
        EXPECT_EQ(mArrivals[i].name, sent.name);
        EXPECT_EQ(mArrivals[i].bytes, expected);
        EXPECT_EQ(mArrivals[i].port, 0u);
        EXPECT_EQ(mArrivals[i].type, StreamType::LOCAL_LINK);
        EXPECT_EQ(mArrivals[i].thread, std::this_thread::get_id());
    }
}

} // namespace
