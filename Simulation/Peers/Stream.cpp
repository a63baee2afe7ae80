#include "Simulation/Peers/Stream.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
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
                                // The read that was under way as the stall began keeps what it brought for later.
                                if (!self->mStalled) self->Take();
                            });
}

void Stream::Take()
{
    bool broken = false;
    while (const auto command = TakeItem(mReceived, broken)) {
        mOnCommand(*this, *command);
        if (mClosed) return;
    }
    if (broken) return Fail();
    Read();
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
    // Not at once: what it brings may end streams, and the caller goes through all of them.
    boost::asio::post(mSocket.get_executor(), [self = shared_from_this()] {
        if (!self->mStalled && !self->mReading && !self->mClosed) self->Take();
    });
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
