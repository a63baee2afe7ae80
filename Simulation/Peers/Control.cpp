#include "Simulation/Peers/Control.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/asio/write.hpp>

#include <unistd.h>

#include <istream>
#include <memory>
#include <utility>

namespace peers {

using boost::asio::local::stream_protocol;
using boost::system::error_code;

namespace {

std::string Remove(const std::string& path)
{
    ::unlink(path.c_str());
    return path;
}

class Client : public std::enable_shared_from_this<Client>
{
public:
    Client(stream_protocol::socket socket, OnLine onLine) : mSocket(std::move(socket)), mOnLine(std::move(onLine)) {}

    void Read()
    {
        boost::asio::async_read_until(mSocket, mBuffer, '\n',
                                      [self = shared_from_this()](const error_code& error, std::size_t) {
                                          if (!error) self->Take();
                                      });
    }

private:
    void Take()
    {
        std::istream input(&mBuffer);
        std::string line;
        std::getline(input, line);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        mOnLine(line, [self = shared_from_this()](const std::string& text) { self->Answer(text); });
    }

    void Answer(const std::string& text)
    {
        mAnswer = text;
        if (!mAnswer.empty() && mAnswer.back() != '\n') mAnswer += '\n';
        mAnswer += ".\n";
        boost::asio::async_write(mSocket, boost::asio::buffer(mAnswer),
                                 [self = shared_from_this()](const error_code& error, std::size_t) {
                                     if (!error) self->Read();
                                 });
    }

    stream_protocol::socket mSocket;
    OnLine mOnLine;
    boost::asio::streambuf mBuffer{1u << 20};
    std::string mAnswer;
};

} // namespace

Control::Control(boost::asio::io_service& service, const std::string& path, OnLine onLine)
    : mPath(path), mAcceptor(service, stream_protocol::endpoint(Remove(path))), mOnLine(std::move(onLine))
{
    Accept();
}

Control::~Control()
{
    ::unlink(mPath.c_str());
}

void Control::Accept()
{
    mAcceptor.async_accept([this](const error_code& error, stream_protocol::socket socket) {
        if (error == boost::asio::error::operation_aborted) return;
        if (!error) std::make_shared<Client>(std::move(socket), mOnLine)->Read();
        Accept();
    });
}

} // namespace peers
