#include "Utilities/CommandLine/ClientConnection.h"

#include "Audit/Audit.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/read_until.hpp>

#include <ctime>
#include <istream>
#include <sstream>
#include <utility>

namespace cmd {

namespace {

/// As std::ctime, with the line end.
std::string CurrentTime()
{
    const std::time_t now = std::time(nullptr);
    char text[64] = {};
    const char* const time = ctime_r(&now, text);
    return time ? time : "\n";
}

std::string PeerText(const boost::asio::ip::tcp::socket& socket)
{
    boost::system::error_code error;
    const auto endpoint = socket.remote_endpoint(error);
    if (error) return "of unknown address";
    std::ostringstream text;
    text << endpoint;
    return text.str();
}

} // namespace

ClientConnection::ClientConnection(boost::asio::ip::tcp::socket socket, char delimiter, const Receiver& receiver)
    : mSocket(std::move(socket)),
      mReceiver(receiver),
      mDelimiter(delimiter),
      mInput(MaxLine + 1),
      mPeer(PeerText(mSocket))
{
    // The queue already gathers small writes, so Nagle's algorithm is not needed.
    boost::system::error_code ignored;
    mSocket.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
}

void ClientConnection::Start(const std::string& name)
{
    Write("\nOstrel command shell: " + (name.empty() ? name : name + " ") + CurrentTime() +
          "Type 'help' to see available commands.\n"
          "Type 'cmd --help' to find out more about 'cmd'.\n");
    Read();
}

void ClientConnection::Read()
{
    boost::asio::async_read_until(
        mSocket, mInput, mDelimiter,
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) { self->OnRead(error); });
}

void ClientConnection::OnRead(const boost::system::error_code& error)
{
    if (error) {
        if (error == boost::asio::error::not_found) {
            Close("a line of more than " + std::to_string(MaxLine) + " bytes came");
        }
        mReceiver(shared_from_this(), error, std::string());
        return;
    }
    std::istream input(&mInput);
    std::string line;
    std::getline(input, line, mDelimiter);
    mReceiver(shared_from_this(), error, line);
    if (mSocket.is_open()) {
        Read();
    } else {
        // Dropped because of its output: lines that are still in the buffer are ignored.
        mReceiver(shared_from_this(), boost::asio::error::operation_aborted, std::string());
    }
}

void ClientConnection::Write(const std::string& text)
{
    if (!mSocket.is_open() || text.empty()) return;
    if (mSending.size() - mSent + mWaiting.size() > MaxUnsent) {
        Close("more than " + std::to_string(MaxUnsent) + " bytes were not read");
        return;
    }
    mWaiting += text;
    if (mSending.empty()) SendNext();
}

void ClientConnection::WriteResult(const std::string& text)
{
    if (mEcho) Write(text);
}

void ClientConnection::SendNext()
{
    if (mSent == mSending.size()) {
        mSending = std::exchange(mWaiting, std::string());
        mSent = 0;
        if (mSending.empty()) return;
    }
    mSocket.async_write_some(boost::asio::buffer(mSending.data() + mSent, mSending.size() - mSent),
                             [self = shared_from_this()](const boost::system::error_code& error, std::size_t length) {
                                 // A broken connection is noticed by its read.
                                 if (error) return;
                                 self->mSent += length;
                                 self->SendNext();
                             });
}

void ClientConnection::Close(const std::string& reason)
{
    boost::system::error_code ignored;
    mSocket.close(ignored);
    mWaiting = std::string();
    AUDIT_STREAM(Fault, "CommandLine: client " << mPeer << " dropped, " << reason << "\r\n");
}

} // namespace cmd
