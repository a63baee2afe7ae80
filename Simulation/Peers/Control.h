#pragma once

#include <boost/asio/io_service.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include <functional>
#include <string>

namespace peers {

/// The answer to one line of the control channel. May be called later, and once; the lines of the text are sent
/// followed by a line ".".
using Reply = std::function<void(const std::string& text)>;
using OnLine = std::function<void(const std::string& line, Reply reply)>;

/// The control channel: a Unix stream socket that takes one command a line. Any number of clients; each gets the
/// answers in the order of its lines, since a line is only read when the one before it is answered. Peer's thread.
class Control
{
public:
    /// Throws if the socket cannot be made. A socket that is left there from before is replaced.
    Control(boost::asio::io_service& service, const std::string& path, OnLine onLine);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

private:
    void Accept();

    std::string mPath;
    boost::asio::local::stream_protocol::acceptor mAcceptor;
    OnLine mOnLine;
};

} // namespace peers
