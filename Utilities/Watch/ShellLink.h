#pragma once

#include "Utilities/Watch/Clock.h"
#include "Utilities/Watch/ShellSession.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace watch {

/// The one connection to the module's shell. Connects again, a second after each loss, for as long as it lives.
class ShellLink
{
public:
    struct Events
    {
        std::function<void()> connecting;
        std::function<void()> ready;
        /// It is connected and does not greet.
        std::function<void()> silent;
        std::function<void()> lost;
        std::function<void(LogMessage message)> message;
        std::function<void(Reply reply)> reply;
    };

    ShellLink(boost::asio::io_context& context, boost::asio::ip::tcp::endpoint shell, Events events);

    void Start() { Connect(); }
    bool IsReady() const { return mConnected && mSession->IsReady(); }
    /// Only while it is ready.
    ShellSession& Session() { return *mSession; }
    /// Gives the connection up; the next follows.
    void Drop();

private:
    void Connect();
    void OnConnect(const boost::system::error_code& error);
    void Read();
    void OnRead(const boost::system::error_code& error, std::size_t size);
    void Send(const std::string& bytes);
    void SendNext();
    void AwaitGreeting(std::chrono::seconds patience);
    void Retry();

    boost::asio::ip::tcp::socket mSocket;
    Timer mRetryTimer;
    Timer mQuietTimer;
    const boost::asio::ip::tcp::endpoint mShell;
    const Events mEvents;
    std::optional<ShellSession> mSession;
    std::array<char, 16384> mInput{};
    std::string mOutput;
    bool mSending{};
    bool mConnected = false;
    /// Tells the handlers of an old connection from those of the present one.
    unsigned mGeneration{};
};

} // namespace watch
