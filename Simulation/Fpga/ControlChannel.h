#pragma once

#include "Simulation/Fpga/ControlCommands.h"
#include "Simulation/Fpga/SimulatedFpga.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <thread>

namespace simulation {

/// The hardware side of a simulated board, open to tests and to the rehearsal: a Unix stream socket that takes one
/// command a line and ends each answer with a line holding a single ".". Several clients at once; one that waits for
/// a sync holds up no other.
///
/// Owns its thread, which serves all clients. What a client can make it keep is bounded: a line has at most 4096
/// bytes, answers are made only while less than 256 KiB wait to be read, and 64 clients are served at once.
class ControlChannel
{
public:
    /// @param board outlives the channel
    /// @param path of the socket; replaces one left from an earlier run
    /// @throws std::system_error if the socket cannot be made
    ControlChannel(SimulatedFpga& board, const std::string& path);
    /// Joins the thread and removes the socket.
    ~ControlChannel();
    ControlChannel(const ControlChannel&) = delete;
    ControlChannel& operator=(const ControlChannel&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    struct Waiting
    {
        std::uint64_t n;
        Clock::time_point deadline;
    };
    struct Client
    {
        explicit Client(int descriptor) : fd(descriptor) {}
        ~Client();
        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

        int fd;
        std::string input;
        std::string output;
        std::optional<Waiting> waiting;
        bool gone = false;
    };

    void Listen();
    void Close();
    void Wake() const;
    void Run();
    void Accept();
    void Receive(Client& client) const;
    void Send(Client& client) const;
    void Serve(Client& client);
    void FinishWait(Client& client) const;
    /// True if a command is there that nothing else would bring about the answer to.
    bool HasCommand(const Client& client) const;
    bool HasRoom(const Client& client) const;
    int PollTimeout() const;

    SimulatedFpga& mBoard;
    const std::string mPath;
    int mListener = -1;
    int mWake = -1;
    std::list<Client> mClients;
    std::atomic<bool> mRunning{true};
    std::thread mThread;
};

} // namespace simulation
