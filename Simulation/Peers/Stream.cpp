#include "Simulation/Peers/Stream.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

#include <sstream>
#include <utility>

namespace peers {

using boost::asio::ip::tcp;
using boost::system::error_code;

void Stream::Start(OnCommand onCommand, OnClosed onClosed)
{
    mOnCommand = std::move(onCommand);
    mOnClosed = std::move(onClosed);
    error_code ignored;
    std::ostringstream text;
    text << mSocket.local_endpoint(ignored) << " " << mSocket.remote_endpoint(ignored);
    mText = text.str();
    mSocket.set_option(tcp::no_delay(true), ignored);
    Read();
}

void Stream::Read()
{
    if (mReading || mStalled || mClosed) return;
    mReading = true;
    mSocket.async_read_some(boost::asio::buffer(mChunk),
                            [self = shared_from_this()](const error_code& error, std::size_t size) {
                                self->mReading = false;
                                if (self->mClosed) return;
                                if (error) return self->Fail();
                                self->mReceived.insert(self->mReceived.end(), self->mChunk.begin(),
                                                       self->mChunk.begin() + static_cast<std::ptrdiff_t>(size));
                                bool broken = false;
                                while (const auto command = TakeItem(self->mReceived, broken)) {
                                    self->mOnCommand(*self, *command);
                                    if (self->mClosed) return;
                                }
                                if (broken) return self->Fail();
                                self->Read();
                            });
}

void Stream::SendBytes(Bytes bytes)
{
    if (mClosed) return;
    mOutput.push_back(std::move(bytes));
    if (mOutput.size() == 1) Write();
}

void Stream::Write()
{
    boost::asio::async_write(mSocket, boost::asio::buffer(mOutput.front()),
                             [self = shared_from_this()](const error_code& error, std::size_t) {
                                 if (self->mClosed) return;
                                 if (error) return self->Fail();
                                 self->mOutput.pop_front();
                                 if (!self->mOutput.empty()) self->Write();
                             });
}

void Stream::Stall(bool on)
{
    mStalled = on;
    Read();
}

void Stream::Fail()
{
    const auto self = shared_from_this();
    Close(false);
    mOnClosed(*this);
}

void Stream::Close(bool reset)
{
    mClosed = true;
    error_code ignored;
    if (reset) mSocket.set_option(tcp::socket::linger(true, 0), ignored);
    mSocket.close(ignored);
}

} // namespace peers
