#include "Utilities/Watch/ShellLink.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/write.hpp>

#include <chrono>
#include <utility>

namespace watch {

namespace {

constexpr std::chrono::seconds RetryDelay{1};
constexpr std::chrono::seconds ConnectTimeout{3};
constexpr std::chrono::seconds GreetingTimeout{5};
constexpr std::chrono::seconds GiveUp{30};
/// A message of the log that nothing follows is whole after this.
constexpr std::chrono::milliseconds Quiet{100};

} // namespace

ShellLink::ShellLink(boost::asio::io_context& context, boost::asio::ip::tcp::endpoint shell, Events events)
    : mSocket(context), mRetryTimer(context), mQuietTimer(context), mShell(std::move(shell)), mEvents(std::move(events))
{}

void ShellLink::Connect()
{
    mEvents.connecting();
    mSocket.async_connect(mShell, [this, generation = mGeneration](const boost::system::error_code& error) {
        if (generation == mGeneration) OnConnect(error);
    });
    mRetryTimer.expires_after(ConnectTimeout);
    mRetryTimer.async_wait([this, generation = mGeneration](const boost::system::error_code& error) {
        if (!error && generation == mGeneration) Drop();
    });
}

void ShellLink::OnConnect(const boost::system::error_code& error)
{
    if (error) {
        Drop();
        return;
    }
    boost::system::error_code ignored;
    mSocket.set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    mOutput.clear();
    mSending = false;
    mConnected = true;
    mSession.emplace(ShellSession::Events{[this](const std::string& bytes) { Send(bytes); }, mEvents.message,
                                          mEvents.reply, mEvents.ready});
    AwaitGreeting(GreetingTimeout);
    Read();
}

void ShellLink::AwaitGreeting(std::chrono::seconds patience)
{
    mRetryTimer.expires_after(patience);
    mRetryTimer.async_wait([this, patience, generation = mGeneration](const boost::system::error_code& error) {
        if (error || generation != mGeneration || IsReady()) return;
        if (patience == GiveUp) {
            Drop();
            return;
        }
        mEvents.silent();
        AwaitGreeting(GiveUp);
    });
}

void ShellLink::Read()
{
    mSocket.async_read_some(boost::asio::buffer(mInput),
                            [this, generation = mGeneration](const boost::system::error_code& error, std::size_t size) {
                                if (generation == mGeneration) OnRead(error, size);
                            });
}

void ShellLink::OnRead(const boost::system::error_code& error, std::size_t size)
{
    const unsigned generation = mGeneration;
    const bool isSound = !error && mSession->Feed({mInput.data(), size});
    // What it reported may have dropped the connection.
    if (generation != mGeneration) return;
    if (!isSound) {
        Drop();
        return;
    }
    mQuietTimer.expires_after(Quiet);
    mQuietTimer.async_wait([this, generation](const boost::system::error_code& failed) {
        if (!failed && generation == mGeneration) mSession->OnQuiet();
    });
    Read();
}

void ShellLink::Send(const std::string& bytes)
{
    mOutput += bytes;
    if (!mSending) SendNext();
}

void ShellLink::SendNext()
{
    mSending = !mOutput.empty();
    if (!mSending) return;
    const auto bytes = std::make_shared<std::string>(std::exchange(mOutput, std::string()));
    boost::asio::async_write(
        mSocket, boost::asio::buffer(*bytes),
        [this, bytes, generation = mGeneration](const boost::system::error_code& error, std::size_t) {
            // A broken connection is noticed by its read.
            if (!error && generation == mGeneration) SendNext();
        });
}

void ShellLink::Drop()
{
    ++mGeneration;
    mConnected = false;
    boost::system::error_code ignored;
    mSocket.close(ignored);
    // The session may still be processing its input, so it is destroyed later.
    mEvents.lost();
    Retry();
}

void ShellLink::Retry()
{
    mRetryTimer.expires_after(RetryDelay);
    mRetryTimer.async_wait([this, generation = mGeneration](const boost::system::error_code& error) {
        if (error || generation != mGeneration) return;
        Connect();
    });
}

} // namespace watch
