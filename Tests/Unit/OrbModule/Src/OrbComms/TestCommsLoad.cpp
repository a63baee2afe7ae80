#include "Tests/Unit/OrbModule/Src/OrbComms/CommsFixture.h"

#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/PatchCommands.h"

#include <atomic>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>

using CommsLoad = CommsTest;

namespace {

std::uint32_t Word(const std::string& bytes, std::size_t offset)
{
    std::uint32_t word = 0;
    for (int i = 3; i >= 0; --i)
        word = word << 8 | static_cast<unsigned char>(bytes[offset + static_cast<std::size_t>(i)]);
    return word;
}

/// Ended by the other side.
bool HasEnded(const LoopbackPeer& peer)
{
    char byte = 0;
    if (peer.GetFd() == -1) return false;
    const ssize_t size = ::recv(peer.GetFd(), &byte, 1, MSG_DONTWAIT | MSG_PEEK);
    return size == 0 || (size == -1 && errno != EAGAIN);
}

} // namespace

TEST_F(CommsLoad, CommandsOfSeveralThreadsNeverMixEvenAgainstASlowReader)
{
    Start();
    const LoopbackPeer peer = ConnectAdjacent();
    ASSERT_TRUE(WaitForChanges(1));
    constexpr int Threads = 4;
    constexpr int PerThread = 500;
    std::vector<std::thread> senders;
    senders.reserve(Threads);
    for (int thread = 0; thread < Threads; ++thread) {
        senders.emplace_back([this, thread] {
            for (int i = 0; i < PerThread; ++i) {
                const std::string text(static_cast<std::size_t>(1 + i * 17 % 9000), static_cast<char>('a' + thread));
                mComms->SendLocal(
                    OstrelPingCmd(text, static_cast<std::uint32_t>(thread), static_cast<std::uint32_t>(i)), 255);
            }
        });
    }
    std::vector<std::uint32_t> next(Threads, 0);
    for (int item = 0; item < Threads * PerThread; ++item) {
        const std::string header = peer.Receive(8);
        ASSERT_EQ(header.size(), 8u) << item;
        ASSERT_EQ(Word(header, 0), 0x28000347u) << item;
        const std::string value = peer.Receive(Word(header, 4));
        const std::uint32_t size = Word(value, 0);
        ASSERT_EQ(value.size(), size + 12);
        const std::uint32_t thread = Word(value, 4 + size);
        ASSERT_LT(thread, static_cast<std::uint32_t>(Threads));
        EXPECT_EQ(Word(value, 8 + size), next[thread]++);
        EXPECT_EQ(value.substr(4, size), std::string(size, static_cast<char>('a' + thread)));
    }
    for (std::thread& sender : senders)
        sender.join();
}

TEST_F(CommsLoad, MoreConnectionsThanASetHoldsHarmNoEarlierOne)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max < 5000) GTEST_SKIP() << "too few descriptors are allowed here";
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    Start();
    // Out of the way of the descriptors that the comms count.
    const auto moveUp = [](const LoopbackPeer& peer) {
        return LoopbackPeer(fcntl(peer.GetFd(), F_DUPFD_CLOEXEC, 3000));
    };
    const LoopbackPeer before = moveUp(ConnectAdjacent("127.0.0.5"));
    ASSERT_TRUE(WaitForChanges(1));
    const auto count = [&](const std::string& line) {
        return static_cast<std::size_t>(std::count(mChanges.begin(), mChanges.end(), line));
    };
    const auto accepted = [&] { return count("255 MASTER_LINK 127.0.0.1 true"); };
    std::vector<LoopbackPeer> peers;
    const auto connect = [&] {
        peers.push_back(moveUp(LoopbackPeer::ConnectTo(mComms->GetPorts().masterRouter)));
        // A client that finds the backlog full comes again after a second: there is no need for that here.
        return peers.size() % 10 != 0 || RunUntil([&] {
                   const auto ended = std::count_if(peers.begin(), peers.end(), HasEnded);
                   return accepted() + static_cast<std::size_t>(ended) >= peers.size();
               });
    };
    for (int i = 0; i < 1100; ++i)
        ASSERT_TRUE(connect()) << i;
    const std::size_t full = accepted();
    EXPECT_GT(full, 900u);
    EXPECT_LT(full, 1024u);
    // New ones are taken when places are free.
    for (std::size_t i = 0; i < 100; ++i)
        peers[i].Close();
    ASSERT_TRUE(RunUntil([&] { return count("255 MASTER_LINK 127.0.0.1 false") == 200; }));
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(connect()) << i;
    EXPECT_TRUE(RunUntil([&] { return accepted() == full + 100; }));
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 255));
    EXPECT_EQ(before.Receive(8).size(), 8u);
}

TEST_F(CommsLoad, APeerThatNeverReadsCostsOnlyItsStreamAndNobodysTime)
{
    Start();
    const LoopbackPeer deaf = ConnectAdjacent("127.0.0.2");
    ASSERT_TRUE(WaitForChanges(1));
    const OstrelPingCmd ping(std::string(200000, 'p'), 0, 0);
    int sent = 0;
    while (sent < 1000 && mComms->SendLocal(ping, 255))
        ++sent;
    EXPECT_GE(sent, 320) << "64 MiB and what the kernel took";
    EXPECT_LT(sent, 1000);
    ASSERT_TRUE(WaitForChanges(2));
    EXPECT_EQ(mChanges[1], "255 LOCAL_LINK 127.0.0.2 false");
    const LoopbackPeer next = ConnectAdjacent();
    ASSERT_TRUE(WaitForChanges(3));
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 255));
    EXPECT_EQ(next.Receive(8).size(), 8u);
}

TEST_F(CommsLoad, AFloodThatTheMainThreadDoesNotFollowWaitsAtItsSenderAndLosesNothing)
{
    constexpr std::uint32_t Commands = 60000;
    std::uint32_t received = 0;
    bool inOrder = true;
    mProcessor.Connect<OstrelPingCmd>([&](const std::shared_ptr<OstrelPingCmd const>& command, unsigned char,
                                          StreamType) { inOrder = inOrder && command->GetTotalDests() == received++; });
    Start();
    const LoopbackPeer peer = ConnectAdjacent();
    const LoopbackPeer other = ConnectAdjacent("127.0.0.2");
    ASSERT_TRUE(WaitForChanges(2));

    std::string command("\x47\x03\x00\x28\xF4\x03\0\0\xE8\x03\0\0", 12);
    command += std::string(1008, 'f');
    std::string flood;
    for (std::uint32_t i = 0; i < Commands; ++i) {
        for (int byte = 0; byte < 4; ++byte)
            command[command.size() - 4 + static_cast<std::size_t>(byte)] = static_cast<char>(i >> 8 * byte);
        flood += command;
    }
    std::size_t sent = 0;
    // Until all of it is sent, or the peer can send no more for as long as that.
    const auto send = [&](int patience) {
        pollfd ready{peer.GetFd(), POLLOUT, 0};
        while (sent < flood.size() && ::poll(&ready, 1, patience) == 1) {
            const ssize_t size = ::send(peer.GetFd(), flood.data() + sent, flood.size() - sent, MSG_DONTWAIT);
            if (size <= 0) break;
            sent += static_cast<std::size_t>(size);
        }
    };
    send(500);
    EXPECT_LT(sent, flood.size() / 2) << "what is not run yet, and what the kernel takes";
    EXPECT_EQ(received, 0u);
    // Whatever else the comms do goes on.
    EXPECT_TRUE(mComms->SendLocal(IoInfoReq(), 255));
    const LoopbackListener server;
    mComms->Connect(Loopback, 1, server.GetPort());
    EXPECT_NE(server.Accept().GetFd(), -1);

    EXPECT_TRUE(RunUntil([&] {
        send(0);
        return received == Commands;
    }));
    EXPECT_TRUE(inOrder);
}

TEST_F(CommsLoad, TheCommsCanEndAtAnyMoment)
{
    for (std::size_t round = 0; round < 8; ++round) {
        mPorts.adjacentRouter = mPorts.masterRouter = 0;
        Start();
        const LoopbackListener server;
        LoopbackPeer peers[] = {ConnectAdjacent(), ConnectAdjacent(), ConnectAdjacent()};
        std::atomic<bool> running{true};
        std::thread link([&] {
            while (running) {
                bool exists = false;
                mComms->DisconnectPending(255, StreamType::LOCAL_LINK, exists);
                mComms->SendLocal(OstrelPingCmd(std::string(50000, 'x'), 0, 0), 255);
            }
        });
        mComms->Connect(Loopback, 1, server.GetPort());
        mComms->Connect(Loopback, 1, 1);   // refused
        mComms->Connect(0xE0000001, 2, 9); // fails at once
        peers[0].Send(std::string("\x47\x03\x00\x28\xFF\xFF\x0F\0 half an item", 21));
        peers[1].Close();
        peers[2].Send(std::string(round * 600, 'g'));
        if (round % 3 == 0) mComms->Disconnect(1);
        if (round % 2 == 0) WaitForChanges(1 + round / 2);
        running = false;
        link.join();
        mComms.reset();
        for (const StreamType type : {StreamType::LOCAL_LINK, StreamType::MASTER_LINK, StreamType::UNKNOWN_STREAM})
            EXPECT_FALSE(mStreams.GetStreamByAddressAndType(Loopback, type)) << "the directory names who is gone";
        // What was posted before the end finds nobody any more.
        const std::size_t told = mChanges.size();
        mService.restart();
        mService.poll();
        EXPECT_EQ(mChanges.size(), told);
        mChanges.clear();
    }
}
