#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/system/error_code.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace cmd {

/// One client of the shell: lines in, text out. Lives on the main service, from its accept until a read fails.
///
/// Output is queued and sent in the order of the calls, all that is queued in one write. Neither direction can make the
/// process grow: a client that is sent something more while it has left more than MaxUnsent bytes unread, or that sends
/// a line of more than MaxLine bytes, is closed with a line in the log. One reply may be longer than MaxUnsent.
class ClientConnection : public std::enable_shared_from_this<ClientConnection>
{
public:
    static constexpr std::size_t MaxLine = 64 * 1024;
    static constexpr std::size_t MaxUnsent = 4 * 1024 * 1024;

    /// Called with each line, without its delimiter, or once with the error that ends the connection.
    using Receiver = std::function<void(const std::shared_ptr<ClientConnection>& connection,
                                        const boost::system::error_code& error, const std::string& line)>;

    ClientConnection(boost::asio::ip::tcp::socket socket, char delimiter, const Receiver& receiver);

    /// Writes the greeting and starts reading.
    /// @param name of the program, shown in the greeting if it is not empty.
    void Start(const std::string& name);
    /// Returns at once; what cannot be delivered is dropped. Never call it with a lock of the log held.
    void Write(const std::string& text);
    /// Write, while the echo is on: the result of a command.
    void WriteResult(const std::string& text);
    /// The echo is on at first. A client that tails the log sees its results there and has it off.
    void SetEcho(bool echo) { mEcho = echo; }

private:
    void Read();
    void OnRead(const boost::system::error_code& error);
    void SendNext();
    void Close(const std::string& reason);

    boost::asio::ip::tcp::socket mSocket;
    const Receiver mReceiver;
    const char mDelimiter;
    boost::asio::streambuf mInput;
    bool mEcho = true;
    /// What is being written, how much of it has been sent, and what waits after it.
    std::string mSending;
    std::size_t mSent = 0;
    std::string mWaiting;
    std::string mPeer;
};

} // namespace cmd
