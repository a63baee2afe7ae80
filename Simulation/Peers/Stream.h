#pragma once

#include "Simulation/Peers/Wire.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <sys/socket.h>

#include <array>
#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace peers {

using ReusePort = boost::asio::detail::socket_option::boolean<SOL_SOCKET, SO_REUSEPORT>;

/// A TCP connection that carries commands, either accepted or opened by the peer. Lives on the peer's only thread;
/// held by the node and by its own pending operations.
class Stream : public std::enable_shared_from_this<Stream>
{
public:
    using OnCommand = std::function<void(Stream&, const Command&)>;
    using OnClosed = std::function<void(Stream&)>;

    /// @param name what the control channel calls it: local, data or update.
    Stream(boost::asio::ip::tcp::socket socket, std::string name) : mSocket(std::move(socket)), mName(std::move(name))
    {}

    void Start(OnCommand onCommand, OnClosed onClosed);
    void Send(const Command& command) { SendBytes(ToItem(command)); }
    void SendBytes(Bytes bytes);
    /// While on, nothing is read, and the peer's window fills up.
    void Stall(bool on);
    /// Closes with a reset, or in order. OnClosed is not called.
    void Close(bool reset);

    const std::string& GetName() const { return mName; }
    std::string GetText() const { return mName + " " + mText; }

private:
    void Read();
    /// Hands on the commands that are complete, and reads on.
    void Take();
    void Write();
    void Fail();

    boost::asio::ip::tcp::socket mSocket;
    std::string mName;
    std::string mText;
    OnCommand mOnCommand;
    OnClosed mOnClosed;
    std::array<std::uint8_t, 16384> mChunk{};
    Bytes mReceived;
    std::deque<Bytes> mOutput;
    bool mReading = false;
    bool mStalled = false;
    bool mClosed = false;
};

} // namespace peers
