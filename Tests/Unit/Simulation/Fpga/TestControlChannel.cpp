#include "FSI/Core/RegisterBlock.h"
#include "Simulation/Fpga/ControlChannel.h"
#include "Simulation/Fpga/ProcessBoard.h"

#include <cstdlib>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <initializer_list>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

using simulation::RunControlCommand;
using simulation::SimulatedFpga;
using testing::MatchesRegex;
using testing::StartsWith;

void Sync(fsi::RegisterBlock& dma)
{
    dma.Write32(0x38, 0x20);
    dma.Write32(0x38, 0);
}

TEST(ControlCommands, ShowAndMoveTheBoard)
{
    SimulatedFpga board;
    const auto dma = board.Open("0003");
    const auto reference = board.Open("0004");
    dma->Write32(0x24, 0xC0000);
    dma->Write32(0x20, 0x605207);
    const auto run = [&](std::initializer_list<const char*> lines) {
        std::string text;
        for (const char* const line : lines)
            text += RunControlCommand(board, line).text;
        return text;
    };
    EXPECT_EQ(run({"table", "syncs", "times", "probe 1 7", "hold on"}), "0\n0 0\nsilence\n");
    Sync(*dma);
    EXPECT_EQ(run({"reg 0003 3C"}), "0x00000008\n");
    EXPECT_EQ(run({"complete"}), "");
    EXPECT_EQ(run({"table"}), "0 0x00605207\n");
    EXPECT_EQ(run({"probe 1 7"}), "3 5\n");
    EXPECT_EQ(run({"hold off", "syncs"}), "1\n");
    EXPECT_THAT(run({"times"}), MatchesRegex("[1-9][0-9]+ [1-9][0-9]+\n"));
    EXPECT_EQ(run({"reg 0003 20"}), "0x00605207\n");
    EXPECT_EQ(run({"reg 0010 4"}), "0x002a0010\n");

    EXPECT_EQ(run({"measure 4 1150000", "lock on", "event 0004 31"}), "");
    EXPECT_EQ(run({"reg 0004 0x18"}), "0x80000004\n");
    EXPECT_EQ(run({"reg 0004 3c"}), "0x00000008\n");
    EXPECT_EQ(run({"lock off", "reg 0004 3c"}), "0x00000000\n");
    reference->Write32(0x24, 0x30018);
    reference->Write32(0x20, 4);
    EXPECT_EQ(run({"pll", "range"}), "4\n0 4096\n");

    EXPECT_EQ(run({"sync-time 3600000000"}), "");
    Sync(*dma);
    EXPECT_EQ(run({"syncs", "complete", "syncs"}), "1\n2\n");
    EXPECT_EQ(RunControlCommand(board, "wait syncs 7 250").wait->timeout, std::chrono::milliseconds(250));
}

TEST(ControlCommands, WhatTheyCannotMakeOutIsAnError)
{
    SimulatedFpga board;
    for (const char* const line : {"",
                                   "nonsense",
                                   "reg 0003",
                                   "reg 0005 38",
                                   "reg 0003 40",
                                   "reg 0003 39",
                                   "reg 0003 -4",
                                   "probe 8 0",
                                   "probe 1 512",
                                   "hold maybe",
                                   "complete",
                                   "complete now",
                                   "measure 256 1",
                                   "measure 1 16777216",
                                   "event 0003 32",
                                   "event 0013 1",
                                   "sync-time -1",
                                   "sync-time 99999999999999999999",
                                   "wait syncs x 1",
                                   "wait locks 1 1"})
        EXPECT_THAT(RunControlCommand(board, line).text, MatchesRegex("error: .+\n")) << line;
    EXPECT_EQ(board.GetRegister("0004", 0x18), 0u);
}

class Connection
{
public:
    explicit Connection(const std::string& path) : mFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(::connect(mFd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    }
    ~Connection() { ::close(mFd); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void Send(const std::string& text) const
    {
        EXPECT_EQ(::send(mFd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    void EndSending() const { ::shutdown(mFd, SHUT_WR); }
    /// Up to and with the closing line; what came if the channel closed or nothing more came.
    std::string Answer()
    {
        pollfd readable{mFd, POLLIN, 0};
        std::size_t end = FindEnd();
        while (end == std::string::npos) {
            char bytes[65536];
            const ssize_t length = ::poll(&readable, 1, 20000) == 1 ? ::recv(mFd, bytes, sizeof bytes, 0) : 0;
            if (length <= 0) return mInput + "<end>";
            mInput.append(bytes, static_cast<std::size_t>(length));
            end = FindEnd();
        }
        const std::string answer = mInput.substr(0, end);
        mInput.erase(0, end);
        return answer;
    }
    std::string Ask(const std::string& line)
    {
        Send(line + "\n");
        return Answer();
    }

private:
    std::size_t FindEnd() const
    {
        if (mInput.compare(0, 2, ".\n") == 0) return 2;
        const std::size_t last = mInput.find("\n.\n");
        return last == std::string::npos ? last : last + 3;
    }

    int mFd;
    std::string mInput;
};

class Channel : public testing::Test
{
protected:
    std::string Path() const { return "control-" + std::to_string(::getpid()) + ".sock"; }

    SimulatedFpga mBoard;
    std::unique_ptr<fsi::RegisterBlock> mDma = mBoard.Open("0003");
};

TEST_F(Channel, AClientThatWaitsHoldsUpNoOther)
{
    const simulation::ControlChannel channel(mBoard, Path());
    Connection waiting(Path());
    Connection other(Path());
    waiting.Send("wait syncs 2 60000\nsyncs\n");
    EXPECT_EQ(other.Ask("hold on"), ".\n");
    EXPECT_EQ(other.Ask("wait syncs 1 0"), "timeout\n.\n");
    EXPECT_EQ(other.Ask("wait syncs 0 0"), "0\n.\n");
    Sync(*mDma);
    EXPECT_EQ(other.Ask("complete"), ".\n");
    EXPECT_EQ(other.Ask("wait syncs 2 1"), "timeout\n.\n");
    EXPECT_EQ(other.Ask("hold off"), ".\n");
    Sync(*mDma);
    EXPECT_EQ(waiting.Answer(), "2\n.\n");
    EXPECT_EQ(waiting.Answer(), "2\n.\n") << "the command behind the wait comes after it";
}

TEST_F(Channel, LinesMayComeInPiecesOrManyAtOnce)
{
    const simulation::ControlChannel channel(mBoard, Path());
    Connection client(Path());
    client.Send("syn");
    EXPECT_EQ(Connection(Path()).Ask("pll"), "0\n.\n");
    client.Send("cs\r\npll\n\nbad");
    for (const char* const answer : {"0\n.\n", "0\n.\n", "error: no command\n.\n"})
        EXPECT_EQ(client.Answer(), answer);
    client.Send("\n");
    client.EndSending();
    EXPECT_EQ(client.Answer(), "error: unknown command 'bad'\n.\n");
    EXPECT_EQ(client.Answer(), "<end>");
}

TEST_F(Channel, WhoAsksWithoutReadingOrWithoutAnEndIsBounded)
{
    const std::vector<std::uint32_t> table(2048, 0x111111);
    mDma->Write32(0x24, 0xC0000);
    mDma->WriteBurst(0x20, table.data(), table.size());
    Sync(*mDma);
    const simulation::ControlChannel channel(mBoard, Path());
    Connection greedy(Path());
    std::string many;
    for (int i = 0; i < 200; ++i)
        many += "table\n";
    greedy.Send(many);
    Connection endless(Path());
    endless.Send(std::string(5000, 'x'));
    EXPECT_EQ(endless.Answer(), "<end>");
    EXPECT_EQ(Connection(Path()).Ask("syncs"), "1\n.\n");
    for (int i = 0; i < 200; ++i)
        ASSERT_THAT(greedy.Answer(), StartsWith("0 0x00111111\n1 0x00111111\n")) << i;
}

TEST_F(Channel, TheSocketTakesThePlaceOfAnOldOneAndOfNothingElse)
{
    {
        const simulation::ControlChannel first(mBoard, Path());
    }
    struct stat status;
    EXPECT_NE(::stat(Path().c_str(), &status), 0) << "removed at the end";
    {
        const simulation::ControlChannel old(mBoard, Path());
        const simulation::ControlChannel next(mBoard, Path());
        EXPECT_EQ(Connection(Path()).Ask("pll"), "0\n.\n");
    }
    EXPECT_THROW(simulation::ControlChannel(mBoard, "."), std::system_error);
    EXPECT_THROW(simulation::ControlChannel(mBoard, std::string(200, 'x')), std::system_error);
}

TEST(ProcessBoard, OneBoardServesAllOpeningsAndHasTheChannelOfTheEnvironment)
{
    const std::string path = "process-" + std::to_string(::getpid()) + ".sock";
    ::setenv("ORB_SIM_CONTROL", path.c_str(), 1);
    const std::uint64_t syncs = simulation::GetProcessBoard().GetSyncs();
    const auto first = fsi::OpenRegisterBlock("0003", 0);
    const auto second = fsi::OpenRegisterBlock("0003", 0);
    EXPECT_THROW(fsi::OpenRegisterBlock("0003", 1), std::system_error);
    first->Write32(0x24, 0xC0000);
    second->Write32(0x20, 0x605207);
    Sync(*first);
    EXPECT_EQ(Connection(path).Ask("probe 1 7"), "3 5\n.\n");
    EXPECT_EQ(simulation::GetProcessBoard().GetSyncs(), syncs + 1);
}

} // namespace
